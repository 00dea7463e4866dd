// The refined profile of the engine: the file read by its chunks, blocks of
// exactly a tenth of a second that pass through a tempo stage keeping its
// state, and the time of what is heard told from where the device stands.
// The classic paths stay as they are; each public operation turns here
// when the play under way is refined.
#include "engine/WavOut.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "dsp/GainVolume.h"
#include "dsp/SyllableRate.h"
#include "platform/Debug.h"
#include "platform/Messages.h"
#include "riff/WaveLayout.h"
#include "messages/MessageCatalogue.h"

namespace {

constexpr uint32_t kBlocksPerSecond = 10;

}  // namespace

// ---------------------------------------------------------------- opening

bool CWavOut::OpenRefinedWaveFile(const char* path)
{
    CFile stream;
    if (!stream.Open(path, CFile::modeRead | CFile::typeBinary)) return false;
    riff::WaveLayout layout;
    const riff::LayoutError error = riff::FindWaveLayout(
        [&stream](uint64_t offset, void* into, uint32_t count) -> uint32_t {
            if (stream.Seek(static_cast<int64_t>(offset), CFile::begin) < 0) return 0;
            return stream.Read(into, count);
        },
        stream.GetLength(), layout);
    stream.Close();
    // Only what the engine can play as it stands: 8- or 16-bit PCM, plain
    // or extensible, whose rates agree with each other.
    if (error != riff::LayoutError::None || !riff::IsPlainPcm(layout)) {
        ReportMessage(206, "不支持的音频格式！对不起，不能播放！");
        return false;
    }
    m_format.formatTag = WAVE_FORMAT_PCM;
    m_format.channels = layout.channels;
    m_format.samplesPerSec = layout.samplesPerSec;
    m_format.avgBytesPerSec = layout.avgBytesPerSec;
    m_format.blockAlign = layout.blockAlign;
    m_format.bitsPerSample = layout.bitsPerSample;
    m_waveFormat = ToWaveFormat(m_format);
    // The samples end at a whole frame within the data chunk; what follows
    // (a LIST chunk after the data, a torn last frame) is never played.
    const uint64_t dataLength = std::min<uint64_t>(layout.dataLength, 0xFFFFFFFFu);
    m_dataStart = static_cast<uint32_t>(layout.dataOffset);
    m_dataEnd = layout.dataOffset + dataLength - dataLength % layout.blockAlign;
    m_dataChunk.length = static_cast<uint32_t>(m_dataEnd - m_dataStart);

    m_filePath = path;
    if (!m_file.Open(path, CFile::modeRead | CFile::typeBinary | CFile::shareDenyNone)) {
        ReportMessage(207, "音频文件打开失败，请确认文件是否存在或正在被其他程序使用中！");
        return false;
    }
    m_gain = 1.0f;
    if (m_format.bitsPerSample == 16) {
        // The gain looks at the samples only, not at chunks after them.
        m_file.Seek(m_dataStart, CFile::begin);
        // The scan takes its samples a little at a time; the file is read
        // in large pieces under it, so an hour's file costs a few thousand
        // reads rather than a million.
        uint64_t left = m_dataEnd - m_dataStart;
        std::vector<uint8_t> ahead(64 * 1024);
        size_t aheadStart = 0;
        size_t aheadEnd = 0;
        m_gain = ScanPeakGainWith([&](int16_t* into, uint32_t capacity) {
            if (aheadStart == aheadEnd && left > 0) {
                aheadStart = 0;
                aheadEnd = m_file.Read(ahead.data(), static_cast<uint32_t>(std::min<uint64_t>(ahead.size(), left)));
                left -= aheadEnd;
            }
            const size_t got = std::min<size_t>(capacity, aheadEnd - aheadStart);
            std::memcpy(into, ahead.data() + aheadStart, got);
            aheadStart += got;
            return static_cast<uint32_t>(got);
        });
    }
    m_bOpened = 1;
    m_file.Seek(m_dataStart, CFile::begin);
    return true;
}

uint32_t CWavOut::RefinedReadSize() const
{
    // Exactly a tenth of a second of whole frames, whatever the byte rate.
    const uint32_t frames = std::max<uint32_t>(m_format.samplesPerSec / kBlocksPerSecond, 1);
    return frames * m_format.blockAlign;
}

void CWavOut::StartRefinedPipeline()
{
    m_tempo.Configure(m_format.channels, m_format.samplesPerSec, m_format.bitsPerSample, m_readSize,
                      m_bufferCapacity);
    m_tempo.Restart(0);
    m_heard.Clear(0.0);
    m_syllables.Configure(m_format.samplesPerSec, m_format.channels);
    m_wordTally.SetSyllablesPerWord(m_syllablesPerWord.load());
    m_wordTally.Clear();
    m_outputWritten = 0;
    m_bInputDone = false;
    m_timeOverrideMs = -1;
}

// ---------------------------------------------------------------- blocks

int64_t CWavOut::ReadFrame() const
{
    const uint64_t position = m_file.GetPosition();
    return position <= m_dataStart ? 0 : static_cast<int64_t>((position - m_dataStart) / m_format.blockAlign);
}

uint64_t CWavOut::MsToDataByte(uint32_t ms) const
{
    const uint64_t frame = static_cast<uint64_t>(ms) * m_format.samplesPerSec / 1000;
    return std::min<uint64_t>(m_dataStart + frame * m_format.blockAlign, m_dataEnd);
}

uint32_t CWavOut::ReadRefinedBlock(uint8_t* into, bool& last)
{
    uint64_t limit = m_dataEnd;
    const bool looping = m_sections.loop && m_sections.loopEndMs.load() > m_sections.loopStartMs.load();
    if (looping) limit = std::min(limit, MsToDataByte(m_sections.loopEndMs.load()));
    const uint64_t position = m_file.GetPosition();
    const uint64_t wanted = position >= limit ? 0 : std::min<uint64_t>(m_readSize, limit - position);
    const uint32_t got = m_file.Read(into, static_cast<uint32_t>(wanted));
    const bool atLimit = position + got >= limit;
    // A loop's end plays out what the stage holds and starts again at the
    // loop's start; the end of the file plays it out and ends.
    last = atLimit;
    return got;
}

uint32_t CWavOut::FillRefinedBlock(uint8_t* data)
{
    bool last = false;
    const uint32_t read = ReadRefinedBlock(data, last);
    // The live count: words by the syllables of the file's own samples.
    if (!m_cadence.justPlay) m_cadence.wordCount += int32_t(m_wordTally.Add(m_syllables.FeedBytes(data, read, m_format.bitsPerSample)));
    const int64_t stageStart = m_tempo.OutputFrames();
    const uint32_t bytes = m_tempo.Run(data, read, m_bufferCapacity, m_speedLevel.load(), last);
    RecordHeardMarks(stageStart, bytes);
    MixNoise(data, bytes);

    const bool looping = m_sections.loop && m_sections.loopEndMs.load() > m_sections.loopStartMs.load();
    if (last && looping) {
        const uint64_t start = MsToDataByte(m_sections.loopStartMs.load());
        m_file.Seek(static_cast<int64_t>(start), CFile::begin);
        m_tempo.Restart(static_cast<int64_t>((start - m_dataStart) / m_format.blockAlign));
        m_syllables.Reset();
    } else if (last) {
        m_bInputDone = true;
    }
    return bytes;
}

void CWavOut::RecordHeardMarks(int64_t stageStart, uint32_t bytes)
{
    const int64_t frames = bytes / m_format.blockAlign;
    CHeardPosition::BlockMarks marks;
    for (int i = 0; i <= CHeardPosition::kMarksPerBlock; ++i) {
        marks[size_t(i)] = m_tempo.FileFrameAt(stageStart + frames * i / CHeardPosition::kMarksPerBlock);
    }
    m_heard.AddBlock(m_outputWritten, m_outputWritten + bytes, marks);
    m_outputWritten += bytes;
}

bool CWavOut::RefillRefined()
{
    // The device stands where everything written so far has passed; the
    // new blocks count on from there.
    uint64_t passed = m_outputWritten;
    if (waveOutGetPosition(m_hWaveOut, &passed) == MMSYSERR_NOERROR) m_outputWritten = passed;
    m_tempo.Restart(ReadFrame());
    m_syllables.Reset();
    m_bInputDone = false;
    for (WAVEHDR& header : m_headers) waveOutUnprepareHeader(m_hWaveOut, &header, sizeof(WAVEHDR));
    m_bStopping = false;
    for (int i = 0; i < kBufferCount; ++i) {
        SetupBufferHeader(m_headers[i], m_buffers[i], m_bInputDone ? 0 : FillRefinedBlock(m_buffers[i]));
    }
    m_timeOverrideMs = -1;
    for (WAVEHDR& header : m_headers) {
        if (waveOutPrepareHeader(m_hWaveOut, &header, sizeof(WAVEHDR)) != MMSYSERR_NOERROR) {
            ReportMessage(210, "准备缓冲区失败！");
            return false;
        }
    }
    for (WAVEHDR& header : m_headers) {
        ApplyGain(header);
        if (!m_bSuspended) WriteToDevice(m_hWaveOut, header);
    }
    return true;
}

// The opening ten seconds by their syllables, reported at once like the
// classic count; the file position is left where it was.
void CWavOut::CountRefinedFirstTenSeconds()
{
    const uint64_t notedPosition = m_file.GetPosition();
    const uint64_t end = std::min<uint64_t>(m_dataEnd, m_dataStart + 10ull * m_format.avgBytesPerSec);
    auto counter = std::make_unique<CSyllableCounter>();
    counter->Configure(m_format.samplesPerSec, m_format.channels);
    std::vector<uint8_t> piece(std::max<uint32_t>(m_readSize, m_format.blockAlign));
    m_file.Seek(m_dataStart, CFile::begin);
    for (uint64_t at = m_dataStart; at < end;) {
        const uint32_t got = m_file.Read(piece.data(), uint32_t(std::min<uint64_t>(piece.size(), end - at)));
        if (got == 0) break;
        counter->FeedBytes(piece.data(), got, m_format.bitsPerSample);
        at += got;
    }
    counter->Finish();
    CWordTally tally;
    tally.SetSyllablesPerWord(m_syllablesPerWord.load());
    const uint32_t words = tally.Add(uint32_t(counter->Nuclei()));
    SendMessageA(m_hNotifyWnd.load(), WM_WORDCOUNT, static_cast<WPARAM>(words), 10000);
    OutputDebugStringA("ten sec count word\n");
    m_file.Seek(static_cast<int64_t>(notedPosition), CFile::begin);
}

// ---------------------------------------------------------------- time

uint32_t CWavOut::RefinedCurrentPlayTime() const
{
    if (m_state.load() == 0 || !m_bOpened || m_format.samplesPerSec == 0) return 0;
    const int64_t pending = m_timeOverrideMs.load();
    if (pending >= 0) return static_cast<uint32_t>(pending);
    uint64_t passed = 0;
    if (m_hWaveOut == nullptr || waveOutGetPosition(m_hWaveOut, &passed) != MMSYSERR_NOERROR) return 0;
    const double frame = std::max(m_heard.FileFrameAt(passed), 0.0);
    return static_cast<uint32_t>(frame * 1000.0 / m_format.samplesPerSec);
}

uint32_t CWavOut::RefinedTotalPlayTime() const
{
    if (!m_bOpened || m_format.avgBytesPerSec == 0) return 0;
    return static_cast<uint32_t>(static_cast<uint64_t>(m_dataEnd - m_dataStart) * 1000 / m_format.avgBytesPerSec);
}

void CWavOut::RefinedSetCurrentPlayTime(uint32_t curTime)
{
    const uint16_t state = m_state.load();
    if (state == 0 || !m_bOpened) return;
    curTime = std::min(curTime, RefinedTotalPlayTime());
    const uint64_t target = MsToDataByte(curTime);
    if (state == 1) {
        // The jump is heard at once: what is queued from the old place goes,
        // and the blocks of the new place follow.
        m_bStopping = true;
        if (!ResetDevice()) return;
        m_file.Seek(static_cast<int64_t>(target), CFile::begin);
        RefillRefined();
        return;
    }
    // Paused: the time reads the new place at once, and ResumePlay, seeing
    // the moved position, starts there.
    m_file.Seek(static_cast<int64_t>(target), CFile::begin);
    m_timeOverrideMs = curTime;
}
