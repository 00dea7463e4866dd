#pragma once
// The steps of CountVoicedFrames, one function each, so that each can be
// checked on its own. Only the word counter and its tests include this.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Equal-ripple linear-phase low-pass, symmetric about index 9; its pass band
// scales with the sample rate (ends near 0.10 fs).
inline constexpr int kLowPassTapCount = 19;
extern const double g_lowPassTaps[kLowPassTapCount];

struct FrameGeometry {
    int32_t frameLen = 0;
    int32_t overlap = 0;
    int32_t Hop() const { return frameLen - overlap; }
};

// 40 ms frames overlapping by 20 ms, truncated from the rate in double.
FrameGeometry FrameGeometryForRate(uint32_t samplesPerSec);

// Frames that fit whole in `count` samples; 0 where none fits, or where the
// geometry is degenerate (a rate below 25 gives frames of no length).
int32_t FrameCountFor(uint32_t count, FrameGeometry geometry);

// 8-bit samples are offset by 128, 16-bit ones signed; any other width
// leaves `out` as it was.
void SamplesToDoubles(const uint8_t* bytes, uint32_t byteCount, uint32_t bytesPerSample, double* out);

// Starts from silence at every call: no memory of the block before.
void LowPassFilter(const double* in, double* out, uint32_t count);

// Copies of the whole frames, each `frameLen` long, `hop` apart.
std::vector<std::vector<double>> SplitFrames(const double* samples, uint32_t count, int32_t frameLen, int32_t overlap);

// Centre-clips `frame` in place at 0.68 of its peak and fills difference[0..n-1].
// The sum of a lag leaves out the pair that ends on the last sample.
void ClipAndDifference(double* frame, int32_t frameLen, double* difference);

// 1 when the difference function's valleys fall on multiples of one period.
int32_t IsFrameVoiced(const double* difference, int32_t frameLen);

// Strict local minima over ten neighbours each side, cleaned when more than two.
std::vector<uint32_t> FindValleys(const double* difference, int32_t frameLen);

// Keeps valleys whose depth lies within [0.5, 2] times a local median: groups
// of three, then the whole list backwards against the last three. A valley can
// stand twice in the result, and its second part runs downward.
void CleanValleys(std::vector<uint32_t>& valleys, const double* difference);

// The period in samples (the first valley) when more than 70 % of its
// multiples up to the last valley are found, else 0.
uint32_t TestPeriod(std::span<const uint32_t> valleys);

// First index whose lag is within 5 % of `lag`; 0 also means none.
size_t FindNearValley(std::span<const uint32_t> valleys, uint32_t lag);
