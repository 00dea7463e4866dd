#include "engine/HeardPosition.h"

void CHeardPosition::Clear(double fileFrame)
{
    std::lock_guard lock(m_mutex);
    m_count = 0;
    m_newest = -1;
    m_idleFrame = fileFrame;
}

void CHeardPosition::AddBlock(uint64_t startByte, uint64_t endByte, const BlockMarks& marks)
{
    std::lock_guard lock(m_mutex);
    m_newest = (m_newest + 1) % kBlocksKept;
    m_blocks[size_t(m_newest)] = Block{startByte, endByte, marks};
    if (m_count < kBlocksKept) ++m_count;
}

double CHeardPosition::FileFrameAt(uint64_t passedBytes) const
{
    std::lock_guard lock(m_mutex);
    if (m_count == 0) return m_idleFrame;
    // From the newest block back: the first that began at or before the
    // position holds it, or the position lies past its end, in the silence
    // after the last block (its end is then what was heard last).
    for (int i = 0; i < m_count; ++i) {
        const Block& block = m_blocks[size_t((m_newest - i + kBlocksKept) % kBlocksKept)];
        if (block.start > passedBytes) continue;
        if (passedBytes >= block.end || block.end == block.start) return block.marks[kMarksPerBlock];
        const double at = double(passedBytes - block.start) / double(block.end - block.start) * kMarksPerBlock;
        const int below = int(at);
        return block.marks[size_t(below)] + (at - below) * (block.marks[size_t(below) + 1] - block.marks[size_t(below)]);
    }
    const Block& oldest = m_blocks[size_t((m_newest - m_count + 1 + kBlocksKept) % kBlocksKept)];
    return oldest.marks[0];
}
