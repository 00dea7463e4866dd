#pragma once
#include <array>
#include <cstdint>
#include <mutex>

// Which file frame is being heard, from where the device stands in what was
// written to it. The device's thread records, for each block it writes, the
// block's bytes in the written stream and a few evenly spaced marks of the
// file frames its output plays; any thread then turns the device's position
// into a file frame by interpolating between the marks of the block it falls
// in. Fixed storage: nothing allocates after construction.
class CHeardPosition {
public:
    static constexpr int kMarksPerBlock = 16;
    using BlockMarks = std::array<double, kMarksPerBlock + 1>;

    // Nothing written yet: every position plays `fileFrame`.
    void Clear(double fileFrame);

    // A block of the written stream, bytes [startByte, endByte), whose output
    // plays marks[i] at startByte + i / kMarksPerBlock of its length.
    void AddBlock(uint64_t startByte, uint64_t endByte, const BlockMarks& marks);

    // The file frame (with a fraction) heard at device position `passedBytes`.
    double FileFrameAt(uint64_t passedBytes) const;

private:
    struct Block {
        uint64_t start = 0;
        uint64_t end = 0;
        BlockMarks marks{};
    };
    // More than the device can hold at once, so the block being heard is
    // always still here.
    static constexpr int kBlocksKept = 16;

    mutable std::mutex m_mutex;
    std::array<Block, kBlocksKept> m_blocks{};
    int m_count = 0;
    int m_newest = -1;
    double m_idleFrame = 0.0;
};
