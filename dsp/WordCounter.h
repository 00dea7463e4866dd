#pragma once
#include <cstdint>
#include <memory>

// Counts the voiced frames of one block as it stands in the file: frames of
// 40 ms whose difference function shows a clear pitch period. Keeps no state
// between calls, so the device's thread and the host's thread may both call it.
// Allocates its working memory at every call, and spreads a long block's
// frames over threads it starts for the call.
int32_t CountVoicedFrames(const uint8_t* data, uint32_t byteCount, uint32_t samplesPerSec, uint16_t bitsPerSample);

// The same count for a stream of blocks of one format, in working memory
// allocated once, on the calling thread alone: the output pipeline counts
// every block on the device's thread without the allocator and without
// starting threads. One thread at a time; Reserve may run on another thread
// than Count as long as the two never overlap.
class CWordCountStage {
public:
    CWordCountStage();
    ~CWordCountStage();
    CWordCountStage(const CWordCountStage&) = delete;
    CWordCountStage& operator=(const CWordCountStage&) = delete;

    // Room for blocks of up to `maxBlockBytes` in the given format.
    // Allocates (about 24 bytes per sample); a second call replaces the room.
    void Reserve(uint32_t maxBlockBytes, uint32_t samplesPerSec, uint16_t bitsPerSample);

    // CountVoicedFrames(data, byteCount, rate, bits) for the format reserved;
    // -1 for a countable block longer than the room. Never allocates.
    int32_t Count(const uint8_t* data, uint32_t byteCount);

private:
    struct Workspace;
    std::unique_ptr<Workspace> m_work;
    uint32_t m_samplesPerSec = 0;
    uint16_t m_bitsPerSample = 0;
    uint32_t m_maxSamples = 0;
};
