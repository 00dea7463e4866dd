#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

// Laying an interfering sound over the speech, block by block, the sound
// starting over whenever it ends.

// A loaded noise sound, never changed once published. `data` holds the bytes
// of the data chunk exactly as they were read from the file, so a file
// shorter than its data chunk gives a shorter sound.
struct NoiseSound {
    uint16_t channels = 0;
    uint16_t bitsPerSample = 0;
    uint32_t samplesPerSec = 0;
    std::vector<uint8_t> data;
};

// 16-bit mix of byteCount / 2 samples. Adds a block sample and a noise sample
// only while the pair cannot leave the range, otherwise the louder one wins
// (a tie to the block). The pair tested is taken at the old *noiseIndex, the
// noise value used at the next one. *noiseIndex counts samples and wraps at
// noiseBytes / 2; a noise with no whole sample is never read.
void MixNoise16(uint8_t* block, uint32_t byteCount, const uint8_t* noise, uint32_t noiseBytes, uint32_t* noiseIndex);

// 8-bit mix: each byte becomes the mean of itself and the noise byte, raised
// by log10(20) and wrapped to 8 bits. *noiseIndex counts bytes.
void MixNoise8(uint8_t* block, uint32_t byteCount, const uint8_t* noise, uint32_t noiseBytes, uint32_t* noiseIndex);

// Runs the mix that the sound's width calls for; other widths leave the block
// alone. The caller has checked that the sound's format fits the block's.
void MixNoiseBlock(const NoiseSound& sound, uint8_t* block, uint32_t byteCount, uint32_t* noiseIndex);

// Hands the noise sound from the host's thread to the device's.
//
// The host publishes a new sound or drops it at any time; the device takes up
// the latest publication at the start of a block, so a block is mixed wholly
// with the old sound or wholly with the new one. Neither side ever blocks the
// other: a publication waits in a slot until the device takes it, and what
// the device stops using goes on a list that the host frees at its next
// publication, so nothing is freed while the device may still read it, and
// the device thread frees nothing at all. A newly published sound starts at
// its beginning; otherwise the position runs on from block to block, and
// stands still while nothing is mixed.
class CNoiseSlot {
public:
    CNoiseSlot() = default;
    ~CNoiseSlot();
    CNoiseSlot(const CNoiseSlot&) = delete;
    CNoiseSlot& operator=(const CNoiseSlot&) = delete;

    // Host side. A null sound drops the noise; the position is kept.
    void Publish(std::shared_ptr<const NoiseSound> sound);
    // Host side: what the host last published.
    std::shared_ptr<const NoiseSound> Sound() const { return m_hostSound; }

    // Device side. False, with the block left alone, when data is null, no
    // sound is published, mixing is off, or the sound's channels, width or
    // rate differ from the block's; true otherwise.
    bool Mix(uint8_t* data, uint32_t byteCount, uint16_t channels, uint16_t bitsPerSample, uint32_t samplesPerSec,
             bool mixOn);

    // Device side: the position the next mixed block starts from.
    uint32_t NoiseIndex();

private:
    struct Publication {
        std::shared_ptr<const NoiseSound> sound;   // null for a drop
        Publication* nextRetired = nullptr;
    };

    void TakeUpPending();
    static void FreeList(Publication* head);

    std::atomic<Publication*> m_pending{nullptr};
    std::atomic<Publication*> m_retired{nullptr};
    // Host side only.
    std::shared_ptr<const NoiseSound> m_hostSound;
    // Device side only.
    Publication* m_current = nullptr;
    uint32_t m_noiseIndex = 0;
};
