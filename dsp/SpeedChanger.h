#pragma once
#include <cstdint>

// Samples of one block as floats in the scale of 16-bit integers.
struct SampleBuffer {
    int32_t rate = 0;
    int32_t count = 0;
    float* data = nullptr;
};

// Changes the tempo of one block with the pitch kept, by waveform-similarity
// overlap-add. Used once per block: Load, Run, TakeOutput, then destroyed.
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
