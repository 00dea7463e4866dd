#pragma once
#include <cstdint>
#include <vector>

#include "dsp/TempoStretcher.h"

// The refined profile's tempo stage: changes the tempo of each block read
// from the file, in place in the block's buffer, and keeps its state from
// one block to the next so that a steady sound stays steady.
//
// While the speed level has stayed 0 since the last Restart the blocks pass
// untouched, so a play at the normal tempo gives the file's samples exactly.
// At the first other level the stretcher takes over, primed with the tail of
// what was passed, so the change is heard within a block and without a gap.
// 8-bit blocks are widened to 16 bits for the stretcher and narrowed back.
//
// Configure allocates everything (the control's thread, at the start of
// play); Restart, Run and the queries never allocate and run on the
// device's thread. One thread at a time: the engine hands the stage from
// its thread to the device's through the device queue.
class CTempoStage {
public:
    // False for a format the stretcher does not take (the stage then passes
    // every block through).
    bool Configure(uint16_t channels, uint32_t samplesPerSec, uint16_t bitsPerSample, uint32_t maxBlockBytes,
                   uint32_t capacityBytes);

    // Starts afresh: the next block begins at file frame `fileFrame`.
    void Restart(int64_t fileFrame);

    // Turns the `bytes` of the block in `data` into the output, in the same
    // buffer of `capacity` bytes, at the given speed level; the output's
    // length in bytes. With `last`, the input held back is played out too.
    uint32_t Run(uint8_t* data, uint32_t bytes, uint32_t capacity, int16_t level, bool last);

    // Output frames since the last Restart, and the file frame (with a
    // fraction) that output frame `outputFrame` plays.
    int64_t OutputFrames() const { return m_outputFrames; }
    double FileFrameAt(int64_t outputFrame) const;

    // Input consumed per output at a speed level: the level table's factor.
    static double FactorForLevel(int16_t level);

private:
    uint32_t PassThrough(uint8_t* data, uint32_t frames);
    void KeepHistory(const uint8_t* data, uint32_t frames);
    void StartStretching();
    uint32_t Stretch(uint8_t* data, uint32_t frames, uint32_t capacityFrames, bool last);
    uint32_t DropPrimedOutput(int16_t* out, uint32_t frames);
    void ToSamples16(const uint8_t* data, uint32_t frames, int16_t* into) const;
    void FromSamples16(const int16_t* samples, uint32_t frames, uint8_t* into) const;

    CTempoStretcher m_stretcher;
    bool m_usable = false;
    uint16_t m_channels = 0;
    uint16_t m_bytesPerSample = 2;
    uint32_t m_frameBytes = 0;

    std::vector<int16_t> m_in;       // the block as 16-bit samples
    std::vector<int16_t> m_out;      // the stretcher's output
    std::vector<int16_t> m_history;  // the last frames passed through
    uint32_t m_historyFrames = 0;    // how many of them are valid
    uint32_t m_historyCapacity = 0;  // frames

    int64_t m_fileFrameAtRestart = 0;
    int64_t m_inputFrames = 0;       // consumed since Restart
    int64_t m_outputFrames = 0;      // given out since Restart
    bool m_stretching = false;
    // Where the stretcher took over: the output frame, the input frame its
    // own frame 0 stands for (the primed history comes first), and how many
    // of its frames were dropped as the history's own.
    int64_t m_switchOutput = 0;
    int64_t m_switchInputBase = 0;
    int64_t m_primedFrames = 0;
    int64_t m_droppedFrames = 0;
    bool m_dropping = false;
};
