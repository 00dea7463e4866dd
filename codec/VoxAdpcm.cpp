#include "codec/VoxAdpcm.h"

#include <algorithm>
#include <array>
#include <limits>

namespace voxadpcm {
namespace {

constexpr std::array<int32_t, kLargestStepIndex + 1> kZqSteps = {
    7,     8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,    28,
    31,    34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,   118,
    130,   143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,   494,
    544,   598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,
    2272,  2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845,  8630,
    9493,  10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

// The second variant grows by about 9.4 % a step from a smaller start, so
// quiet passages are coded more finely at the cost of the loudest peaks.
constexpr std::array<int32_t, kLargestStepIndex + 1> MakeZrSteps()
{
    std::array<int32_t, kLargestStepIndex + 1> steps{};
    steps[0] = 5;
    for (size_t i = 1; i < steps.size(); ++i) steps[i] = steps[i - 1] + steps[i - 1] * 3 / 32 + 1;
    return steps;
}
constexpr std::array<int32_t, kLargestStepIndex + 1> kZrSteps = MakeZrSteps();

constexpr int32_t kIndexAdjust[8] = {-1, -1, -1, -1, 2, 4, 6, 8};

int32_t StepOf(Variant variant, int32_t stepIndex)
{
    return variant == Variant::ZR ? kZrSteps[size_t(stepIndex)] : kZqSteps[size_t(stepIndex)];
}

void PutU16(uint8_t* out, uint16_t value)
{
    out[0] = uint8_t(value);
    out[1] = uint8_t(value >> 8);
}

void PutU32(uint8_t* out, uint32_t value)
{
    for (int i = 0; i < 4; ++i) out[i] = uint8_t(value >> (8 * i));
}

uint32_t GetU32(const uint8_t* in)
{
    return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

ChannelState ReadFrameState(const uint8_t* frame, int channel)
{
    const uint8_t* slot = frame + 4 * channel;
    ChannelState state;
    state.predictor = int16_t(uint16_t(slot[0] | slot[1] << 8));
    // A damaged head may name any index; it is held to the table.
    state.stepIndex = std::min<int32_t>(slot[2], kLargestStepIndex);
    return state;
}

void WriteFrameState(uint8_t* frame, int channel, const ChannelState& state)
{
    uint8_t* slot = frame + 4 * channel;
    PutU16(slot, uint16_t(int16_t(state.predictor)));
    slot[2] = uint8_t(state.stepIndex);
    slot[3] = 0;
}

}  // namespace

void WriteHeader(const StreamHeader& header, uint8_t out[kHeaderBytes])
{
    out[0] = 'Z';
    out[1] = header.variant == Variant::ZR ? 'R' : 'Q';
    PutU16(out + 2, uint16_t(header.channels));
    PutU32(out + 4, header.sampleRate);
    PutU32(out + 8, header.frameBytes);
    PutU32(out + 12, header.frameCount);
}

bool ReadHeader(const uint8_t bytes[kHeaderBytes], StreamHeader& header)
{
    if (bytes[0] != 'Z' || (bytes[1] != 'Q' && bytes[1] != 'R')) return false;
    header.variant = bytes[1] == 'R' ? Variant::ZR : Variant::ZQ;
    header.channels = int16_t(uint16_t(bytes[2] | bytes[3] << 8));
    header.sampleRate = GetU32(bytes + 4);
    header.frameBytes = GetU32(bytes + 8);
    header.frameCount = GetU32(bytes + 12);
    return header.channels > 0 && header.frameBytes >= kFrameHeadBytes && header.frameBytes <= kLargestFrameBytes;
}

int16_t DecodeNibble(Variant variant, ChannelState& state, uint8_t code)
{
    const int32_t step = StepOf(variant, state.stepIndex);
    int32_t delta = step >> 3;
    if (code & 4) delta += step;
    if (code & 2) delta += step >> 1;
    if (code & 1) delta += step >> 2;
    state.predictor += (code & 8) ? -delta : delta;
    state.predictor = std::clamp<int32_t>(state.predictor, std::numeric_limits<int16_t>::min(),
                                          std::numeric_limits<int16_t>::max());
    state.stepIndex = std::clamp(state.stepIndex + kIndexAdjust[code & 7], 0, kLargestStepIndex);
    return int16_t(state.predictor);
}

uint8_t EncodeNibble(Variant variant, ChannelState& state, int16_t sample)
{
    int32_t difference = int32_t(sample) - state.predictor;
    uint8_t code = 0;
    if (difference < 0) {
        code = 8;
        difference = -difference;
    }
    int32_t step = StepOf(variant, state.stepIndex);
    for (uint8_t bit = 4; bit != 0; bit >>= 1) {
        if (difference >= step) {
            code |= bit;
            difference -= step;
        }
        step >>= 1;
    }
    DecodeNibble(variant, state, code);
    return code;
}

void DecodeFrame(const StreamHeader& header, const uint8_t* frame, uint8_t* pcmOut)
{
    const int channels = header.channels;
    std::vector<ChannelState> states(static_cast<size_t>(channels));
    for (int c = 0; c < std::min(channels, kChannelsWithState); ++c) states[size_t(c)] = ReadFrameState(frame, c);

    const uint8_t* payload = frame + kFrameHeadBytes;
    const uint32_t samples = SamplesPerFrame(header.frameBytes);
    int channel = 0;
    for (uint32_t i = 0; i < samples; ++i) {
        const uint8_t code = (i & 1) ? payload[i / 2] >> 4 : payload[i / 2] & 0x0F;
        const int16_t value = DecodeNibble(header.variant, states[size_t(channel)], code);
        PutU16(pcmOut + 2 * size_t(i), uint16_t(value));
        if (++channel == channels) channel = 0;
    }
}

Encoder::Encoder(const StreamHeader& header) : m_header(header), m_states(size_t(std::max<int16_t>(header.channels, 1)))
{
}

void Encoder::ChooseStartingState(const int16_t* samples)
{
    // The first frame starts at each channel's first sample, with the step
    // index that codes the opening of the frame with the least error.
    const int channels = int(m_states.size());
    const uint32_t perChannel = SamplesPerFrame(m_header.frameBytes) / uint32_t(channels);
    for (int c = 0; c < std::min(channels, kChannelsWithState); ++c) {
        int64_t bestError = std::numeric_limits<int64_t>::max();
        ChannelState best;
        for (int32_t index = 0; index <= kLargestStepIndex; ++index) {
            ChannelState start{samples[c], index};
            ChannelState trial = start;
            int64_t error = 0;
            for (uint32_t i = 0; i < std::min<uint32_t>(perChannel, 64); ++i) {
                const int16_t wanted = samples[size_t(i) * size_t(channels) + size_t(c)];
                EncodeNibble(m_header.variant, trial, wanted);
                const int64_t miss = int64_t(trial.predictor) - wanted;
                error += miss * miss;
            }
            if (error < bestError) {
                bestError = error;
                best = start;
            }
        }
        m_states[size_t(c)] = best;
    }
}

void Encoder::EncodeFrame(const int16_t* samples, std::vector<uint8_t>& out)
{
    if (!m_started) {
        ChooseStartingState(samples);
        m_started = true;
    }
    const int channels = int(m_states.size());
    // Channels beyond those in the head restart from silence, as the decoder
    // will.
    for (int c = kChannelsWithState; c < channels; ++c) m_states[size_t(c)] = ChannelState{};

    const size_t start = out.size();
    out.resize(start + m_header.frameBytes, 0);
    uint8_t* frame = out.data() + start;
    for (int c = 0; c < std::min(channels, kChannelsWithState); ++c) WriteFrameState(frame, c, m_states[size_t(c)]);

    uint8_t* payload = frame + kFrameHeadBytes;
    const uint32_t count = SamplesPerFrame(m_header.frameBytes);
    int channel = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t code = EncodeNibble(m_header.variant, m_states[size_t(channel)], samples[i]);
        payload[i / 2] |= (i & 1) ? uint8_t(code << 4) : code;
        if (++channel == channels) channel = 0;
    }
}

std::vector<uint8_t> EncodeStream(StreamHeader& header, const std::vector<int16_t>& samples, std::string* error)
{
    auto fail = [error](const std::string& why) {
        if (error != nullptr) *error = why;
        return std::vector<uint8_t>();
    };
    if (header.channels <= 0) return fail("the channel count must be positive");
    if (header.frameBytes <= kFrameHeadBytes || header.frameBytes > kLargestFrameBytes)
        return fail("the frame size must be above 8 and at most " + std::to_string(kLargestFrameBytes) + " bytes");
    const uint32_t perFrame = SamplesPerFrame(header.frameBytes);
    if (perFrame % uint32_t(header.channels) != 0)
        return fail("a frame of " + std::to_string(header.frameBytes) + " bytes does not hold whole sample frames of " +
                    std::to_string(header.channels) + " channels");
    if (samples.size() % size_t(header.channels) != 0) return fail("the samples do not divide among the channels");

    const uint64_t frames = (samples.size() + perFrame - 1) / perFrame;
    if (frames > std::numeric_limits<uint32_t>::max() ||
        frames * (4ull * header.frameBytes - 32) > std::numeric_limits<uint32_t>::max() - 36u)
        return fail("the audio is too long for one file");
    header.frameCount = uint32_t(frames);

    std::vector<uint8_t> stream(kHeaderBytes);
    WriteHeader(header, stream.data());
    stream.reserve(kHeaderBytes + size_t(frames) * header.frameBytes);
    Encoder encoder(header);
    std::vector<int16_t> frameSamples(perFrame);
    for (uint64_t f = 0; f < frames; ++f) {
        const size_t first = size_t(f) * perFrame;
        const size_t available = std::min<size_t>(perFrame, samples.size() - first);
        std::fill(std::copy_n(samples.begin() + ptrdiff_t(first), available, frameSamples.begin()), frameSamples.end(),
                  int16_t(0));
        encoder.EncodeFrame(frameSamples.data(), stream);
    }
    return stream;
}

}  // namespace voxadpcm
