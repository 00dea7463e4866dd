#pragma once
#include <cstdint>
#include <memory>

// Samples of one block as floats in the scale of 16-bit integers.
struct SampleBuffer {
    int32_t rate = 0;
    int32_t count = 0;
    float* data = nullptr;
};

// Changes the tempo of one block with the pitch kept, by waveform-similarity
// overlap-add. Used once per block: Load, Run, TakeOutput, then destroyed;
// every step allocates. CSpeedChangeStage below runs the same change in
// memory it allocated beforehand.
class CSpeedChanger {
public:
    static constexpr int32_t kDefaultRate = 22050;
    static constexpr int32_t kDecimation = 10;

    CSpeedChanger();
    ~CSpeedChanger();
    CSpeedChanger(const CSpeedChanger&) = delete;
    CSpeedChanger& operator=(const CSpeedChanger&) = delete;

    void Load(const int16_t* samples, int32_t count, int16_t level);
    int32_t Run();
    // The caller owns *out and frees it with delete[].
    void TakeOutput(int16_t** out, int32_t* count);
    void Release();

    // Input samples consumed per output sample, 0.5 to 2.0.
    static float FactorForLevel(int16_t level);
    // Output room as a multiple of the input length.
    static int32_t CapacityMultiple(float factor);
    static int32_t AnalysisHop(int32_t halfFrame, float factor);

    // Mean of each whole run of `factor` samples; new[]-allocated, count / factor elements.
    static float* DecimateAverage(const float* samples, int32_t count, int32_t factor);

    // Offset from `search` at which a frame of `length` samples best matches
    // `reference`, or 0. The reference may be cut short by the end of its
    // block: only `referenceCount` samples and `decimatedReferenceCount`
    // decimated values exist, and the missing ones score as 0.
    // `decimatedSearch` must hold searchLength / factor values.
    static int32_t FindBestOffset(const float* decimatedReference, int32_t decimatedReferenceCount,
                                  const float* reference, int32_t referenceCount, int32_t length,
                                  const float* decimatedSearch, const float* search, int32_t searchLength,
                                  int32_t factor);

    // scores[c], for c below `candidates`: the correlation of `terms`
    // reference values with search[c] onwards, which holds
    // candidates + terms - 1 values.
    static void ScoreOffsets(const float* reference, int32_t terms, const float* search, int32_t candidates,
                             float* scores);

    // Nearest 16-bit sample, halves away from zero, held at the ends of the range.
    static void RoundToSamples(const float* values, int32_t count, int16_t* samples);

    float Factor() const { return m_factor; }

private:
    void FreeOutput();
    void CopyInputToOutput();

    SampleBuffer m_input;
    SampleBuffer m_output;
    float m_factor;
};

// The tempo change of CSpeedChanger for a stream of blocks, in working
// memory allocated once, so that the output pipeline changes every block on
// the device's thread without touching the allocator. A block comes out
// sample for sample as Load, Run and TakeOutput on a fresh changer give it.
// One thread at a time; Reserve may run on another thread than RunInto as
// long as the two never overlap.
class CSpeedChangeStage {
public:
    CSpeedChangeStage();
    ~CSpeedChangeStage();
    CSpeedChangeStage(const CSpeedChangeStage&) = delete;
    CSpeedChangeStage& operator=(const CSpeedChangeStage&) = delete;

    // Room for blocks of up to `maxSamples` 16-bit samples at every level.
    // Allocates (about 16 bytes per sample); a second call replaces the room.
    void Reserve(int32_t maxSamples);
    int32_t ReservedSamples() const { return m_reserved; }

    // Changes the `count` samples of `samples` at speed `level` (-60 to 50;
    // beyond, the factor is held at 0.5 or 2.0) and writes the result to
    // `out`, which holds `capacity` samples and may be `samples` itself.
    // Answers how many samples were written: the changer's count, cut to
    // `capacity`. A block longer than the room reserved is left alone and
    // -1 is answered. Never allocates.
    int32_t RunInto(const int16_t* samples, int32_t count, int16_t level, int16_t* out, int32_t capacity);

private:
    int32_t m_reserved = 0;
    int32_t m_halfFrame = 0;
    std::unique_ptr<float[]> m_input;      // the block as floats, m_reserved
    std::unique_ptr<float[]> m_output;     // the widest output, 3 x m_reserved
    std::unique_ptr<float[]> m_decimated;  // m_reserved / kDecimation
    std::unique_ptr<float[]> m_window;     // 2 x m_halfFrame + 1
};
