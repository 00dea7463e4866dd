#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>

// Automatic gain and the host's volume.
//
// A first pass over a 16-bit file (the peak scan) finds the gain that lifts
// its loudest true peak to 30000, at most 50 times. The last stage of the
// output pipeline then multiplies every block by that gain and by the
// volume, and repairs a 16-bit sample that the gain drove over the range.

constexpr float kPeakScanStartGain = 50.0f;   // also the highest gain there is
constexpr float kLowestGain = 1.0f;
constexpr double kPeakTarget = 30000.0;
constexpr int16_t kPeakRatio = 4;
constexpr uint32_t kPeakScanMaxPeaks = 1323000;
constexpr uint32_t kPeakScanReadBytes = 2048;
constexpr int16_t kBlockEdgeRepairValue = 16383;

// Working state of one peak scan. A default record is the state at the start
// of a scan: empty window, ratio 4, gain 50, 16-bit samples.
struct PeakScanState {
    int16_t window[3] = {0, 0, 0};   // previous, centre and next sample
    int16_t ratio = kPeakRatio;      // a neighbour must exceed centre / ratio
    float gain = kPeakScanStartGain;
    uint16_t bitsPerSample = 16;
};

// Peak test over one read of the scan. The window carries over from one call
// to the next, so a peak on the boundary between two reads is seen; an
// all-zero window is refilled from the block's first three samples.
// *found receives the number of peaks that passed; state.gain comes down for
// each peak that the gain would lift above 30000. Reads byteCount / 2
// samples. A ratio of 0 tests nothing.
void ScanPeakBlock(PeakScanState& state, const int16_t* samples, uint32_t byteCount, uint32_t* found);

// Fills `into` with up to `capacity` bytes of the file and returns how many it
// gave; 0 ends the scan.
using PeakScanReader = std::function<uint32_t(int16_t* into, uint32_t capacity)>;

// The whole scan of a 16-bit file: reads 2048 bytes at a time through `read`
// (already positioned at the first sample) until a read gives nothing or
// 1323000 peaks were counted, and returns the resulting gain, never below 1.0.
float ScanPeakGainWith(const PeakScanReader& read);

// The same scan over bytes already in memory.
float ScanPeakGainOver(const uint8_t* data, size_t byteCount);

// Scales one block in place by *gain and then by volume.
//
// 16-bit: a sample that the gain drives above 32767 is rebuilt from its
// neighbours as they stand in the buffer (the one before already scaled, the
// one after still raw), or set to 16383 at the block's first or last place.
// When a neighbour shows it was a true peak, *gain comes down for the rest of
// the file, never below 1.0. Products below -32768 wrap.
// 8-bit: every byte, unsigned, is multiplied by the volume only.
// Other widths are left alone. Always returns true.
//
// With 16-bit data and an odd byteCount the last sample is formed from the
// last byte and the byte after it, and both are written back: data must have
// one more byte of room past byteCount (the engine's buffers do).
bool ApplyGainAndVolume(uint8_t* data, int32_t byteCount, uint16_t bitsPerSample, float volume, float* gain);

// The refined profile's form of the same stage: channels stay apart. The
// gain and volume scale every sample alike; a product beyond full scale is
// held at full scale (no wrap-around), and when the same channel's
// neighbours show it was a true peak, *gain comes down for the rest of the
// file as above. Interleaved frames of `channels` samples; 8-bit data is
// scaled about its midpoint 128 by the volume only.
bool ApplyGainAndVolumeFrames(uint8_t* data, uint32_t byteCount, uint16_t bitsPerSample, uint16_t channels,
                              float volume, float* gain);

// Host volume in percent to the factor: the low 16 bits of `volume`, unsigned,
// must be at most 100, else false and *out untouched.
bool VolumeFromPercent(long volume, float* out);

// The factor back in percent, truncated; often one less than was set, since
// the single nearest to v / 100 is often just below it.
long PercentFromVolume(float volume);
