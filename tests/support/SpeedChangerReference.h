#pragma once
// A plain, unoptimised tempo changer written for readability, one rounding
// point per line. The fast CSpeedChanger must agree with it bit for bit.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace speed_reference {

inline constexpr int32_t kHalfFrame = 110;
inline constexpr int32_t kFrameLength = 2 * kHalfFrame + 1;
inline constexpr int32_t kDecimation = 10;
inline constexpr float kLowestScore = -3.4028235e38f;

inline float FactorForLevel(int16_t level)
{
    if (level > 0) {
        float factor = float(level / 50.0 + 1.0);
        return factor > 2.0f ? 2.0f : factor;
    }
    float factor = float(level / 120.0 + 1.0);
    return factor < 0.5f ? 0.5f : factor;
}

inline std::vector<float> Decimate(const std::vector<float>& x, int32_t factor)
{
    std::vector<float> result(x.size() / factor);
    for (size_t m = 0; m < result.size(); ++m) {
        float sum = 0.0f;
        for (int32_t k = 0; k < factor; ++k)
            sum = float(double(sum) + double(x[m * factor + k]));
        result[m] = float(double(sum) / factor);
    }
    return result;
}

// Reads past either end of an array count as 0.
inline float At(const std::vector<float>& x, int64_t index)
{
    return index >= 0 && index < int64_t(x.size()) ? x[index] : 0.0f;
}

inline float Correlate(const std::vector<float>& a, int64_t aStart, const std::vector<float>& b, int64_t bStart, int32_t terms)
{
    float sum = 0.0f;
    for (int32_t j = 0; j < terms; ++j)
        sum = float(double(sum) + double(At(a, aStart + j)) * double(At(b, bStart + j)));
    return sum;
}

// Offset from searchStart found by the coarse-then-fine search.
inline int32_t BestOffset(const std::vector<float>& in, const std::vector<float>& dec, int32_t referenceStart,
                          int32_t searchStart, int32_t length, int32_t searchLength)
{
    int32_t diff = searchLength - length;
    if (diff < kDecimation)
        return 0;
    int32_t candidates = diff / kDecimation;
    float best = kLowestScore;
    int32_t bestCoarse = 0;
    for (int32_t c = 0; c < candidates; ++c) {
        float score = Correlate(dec, referenceStart / kDecimation, dec, searchStart / kDecimation + c, length / kDecimation);
        if (score > best) {
            best = score;
            bestCoarse = c;
        }
    }
    best = kLowestScore;
    int32_t bestFine = 0;
    for (int32_t i = std::max(0, 10 * bestCoarse - 10); i < std::min(10 * bestCoarse + 10, diff); ++i) {
        float score = Correlate(in, referenceStart, in, searchStart + i, length);
        if (score > best) {
            best = score;
            bestFine = i;
        }
    }
    return bestFine;
}

inline int16_t ToSample(float v)
{
    double d = v;
    if (d > 32767.0)
        return 32767;
    if (d < -32768.0)
        return -32768;
    return int16_t(d >= 0.0 ? int32_t(d + 0.5) : int32_t(d - 0.5));
}

// Whole block: samples in, 16-bit samples out. Blocks shorter than one
// frame come back unchanged.
inline std::vector<int16_t> ChangeSpeed(const std::vector<int16_t>& samples, int16_t level)
{
    const int32_t n = int32_t(samples.size());
    const float factor = FactorForLevel(level);
    if (factor == 1.0f || n < kFrameLength)
        return samples;

    std::vector<float> in(samples.begin(), samples.end());
    const int32_t capacity = n * int32_t(1.0 / factor + 1.5);
    std::vector<float> out(capacity, 0.0f);
    const int32_t H = kHalfFrame;
    const int32_t L = kFrameLength;
    const int32_t Sa = int32_t(H * double(factor) + 0.5);
    std::vector<float> dec = Decimate(in, kDecimation);

    std::vector<float> win(2 * H + 1);
    for (int32_t i = 0; i <= 2 * H; ++i) {
        float angle = float(i * 6.2831854820251465 / (2 * H));
        float cosine = float(std::cos(double(angle)));
        win[i] = float((1.0 - cosine) * 0.5);
    }
    auto W = [&](int32_t k) { return win[H + k]; };
    auto overlapAdd = [&](int32_t q, int32_t k, float sample) {
        out.at(q + k) = float(double(sample) * double(W(k)) + double(out.at(q + k)));
    };

    for (int32_t i = 0; i < H; ++i)
        out[i] = in[i];
    for (int32_t i = H; i <= 2 * H; ++i)
        out[i] = float(double(in[i]) * double(W(i - H)));

    int32_t P = H, T = 0, Q = L, E = L;
    int32_t refEnd = P + L;
    if (Sa < n) {
        for (;;) {
            if (P > n)
                break;
            if (refEnd > n)
                refEnd = n;
            T += Sa;
            int32_t searchEnd = std::min(T + 2 * H + L, n);
            int32_t offset;
            if (T <= P && searchEnd >= refEnd) {
                offset = P - T;
            } else {
                offset = BestOffset(in, dec, P, T, L, searchEnd - T);
                if (offset == 0)
                    break;
            }
            int32_t A = T + offset;
            int32_t frameEnd = std::min(A + L, n);
            int32_t k = -H;
            for (int32_t i = A; i < frameEnd; ++i, ++k)
                overlapAdd(Q, k, in.at(i));
            int32_t m = frameEnd - A;
            if (m > H) {
                E += m - H - 1;
                Q += H;
            }
            P = A + H;
            refEnd = P + L;
            if (T + Sa >= n)
                break;
        }
    }

    int32_t endW = std::min(P + H, n);
    int32_t k = -H;
    for (int32_t i = P; i <= endW && i < n; ++i, ++k)
        overlapAdd(Q, k, in.at(i));
    if (endW + 1 < n) {
        for (int32_t i = endW + 1; i < n; ++i) {
            ++E;
            out.at(E) = in[i];
        }
    }

    std::vector<int16_t> result(E);
    for (int32_t i = 0; i < E; ++i)
        result[i] = ToSample(out.at(i));
    return result;
}

}  // namespace speed_reference
