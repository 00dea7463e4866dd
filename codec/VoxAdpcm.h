#pragma once
// The wzq frame coding: 4-bit adaptive differential samples behind a small
// frame head that restarts the decoder at every frame. Shared by the codec
// library and the encoder of the command-line tool.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace voxadpcm {

constexpr size_t kHeaderBytes = 16;
constexpr uint32_t kFrameHeadBytes = 8;
// Channels whose predictor and step index travel in the frame head; any
// further channel restarts from silence at every frame.
constexpr int kChannelsWithState = 2;
// Frames are kept small enough that one encoded and one decoded frame fit
// comfortably in memory whatever a header claims.
constexpr uint32_t kLargestFrameBytes = 1u << 20;
constexpr int kLargestStepIndex = 88;

enum class Variant { ZQ, ZR };

struct StreamHeader {
    Variant variant = Variant::ZQ;
    int16_t channels = 1;
    uint32_t sampleRate = 16000;
    uint32_t frameBytes = 264;
    uint32_t frameCount = 0;
};

// Samples (over all channels) that one frame of `frameBytes` carries.
inline uint32_t SamplesPerFrame(uint32_t frameBytes) { return 2 * (frameBytes - kFrameHeadBytes); }

// The header record, little-endian.
void WriteHeader(const StreamHeader& header, uint8_t out[kHeaderBytes]);
// False when the magic is unknown, the frame size is outside 8 ..
// kLargestFrameBytes or the channel count is not positive.
bool ReadHeader(const uint8_t bytes[kHeaderBytes], StreamHeader& header);

// The predictor state of one channel between two samples.
struct ChannelState {
    int32_t predictor = 0;
    int32_t stepIndex = 0;
};

// One sample's 4-bit code applied to `state`; the new sample.
int16_t DecodeNibble(Variant variant, ChannelState& state, uint8_t code);
// The code that brings `state` closest to `sample`, applied to `state`.
uint8_t EncodeNibble(Variant variant, ChannelState& state, int16_t sample);

// Decodes one frame of `header.frameBytes` bytes into SamplesPerFrame
// interleaved 16-bit samples, written little-endian to `pcmOut`.
void DecodeFrame(const StreamHeader& header, const uint8_t* frame, uint8_t* pcmOut);

// Turns interleaved 16-bit samples into frames, carrying each channel's
// state from frame to frame.
class Encoder {
public:
    explicit Encoder(const StreamHeader& header);

    // Encodes exactly SamplesPerFrame samples into one frame of
    // header.frameBytes bytes appended to `out`.
    void EncodeFrame(const int16_t* samples, std::vector<uint8_t>& out);

private:
    void ChooseStartingState(const int16_t* samples);

    StreamHeader m_header;
    std::vector<ChannelState> m_states;
    bool m_started = false;
};

// The whole stream: header and frames. The last frame is filled up with
// silence; `header.frameCount` is set from the sample count. Empty with
// `error` set when the header can't carry the samples.
std::vector<uint8_t> EncodeStream(StreamHeader& header, const std::vector<int16_t>& samples, std::string* error);

}  // namespace voxadpcm
