// The sentence finder's frequency-domain pieces: its low-pass filter, the
// power spectrum of a frame and the bands it is read in.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "dsp/SentenceFinderDetail.h"

namespace sentence_detail {

namespace {

constexpr double kPi = 3.14159265358979323846;

}  // namespace

// ---------------------------------------------------------------- filter

Biquad Biquad::LowPass(double cutoffHz, double sampleRate, double q)
{
    const double k = std::tan(kPi * cutoffHz / sampleRate);
    const double norm = 1.0 / (1.0 + k / q + k * k);
    Biquad section;
    section.b0 = static_cast<float>(k * k * norm);
    section.b1 = static_cast<float>(2.0 * k * k * norm);
    section.b2 = section.b0;
    section.a1 = static_cast<float>(2.0 * (k * k - 1.0) * norm);
    section.a2 = static_cast<float>((1.0 - k / q + k * k) * norm);
    return section;
}

// ---------------------------------------------------------------- spectrum

CPowerSpectrum::CPowerSpectrum(size_t n)
    : m_n(n), m_window(n), m_cos(n / 4), m_sin(n / 4), m_reversed(n / 2), m_re(n / 2), m_im(n / 2), m_splitCos(n / 2 + 1),
      m_splitSin(n / 2 + 1)
{
    if (n < 4 || (n & (n - 1)) != 0) throw std::invalid_argument("spectrum size must be a power of two");
    const size_t half = n / 2;
    for (size_t i = 0; i < n; ++i) m_window[i] = static_cast<float>(0.5 - 0.5 * std::cos(2.0 * kPi * double(i) / double(n)));
    // The twiddles of the half-length transform, and those that split its
    // answer into the spectrum of the real frame.
    for (size_t i = 0; i < half / 2; ++i) {
        m_cos[i] = static_cast<float>(std::cos(2.0 * kPi * double(i) / double(half)));
        m_sin[i] = static_cast<float>(-std::sin(2.0 * kPi * double(i) / double(half)));
    }
    for (size_t k = 0; k <= half; ++k) {
        m_splitCos[k] = static_cast<float>(std::cos(2.0 * kPi * double(k) / double(n)));
        m_splitSin[k] = static_cast<float>(-std::sin(2.0 * kPi * double(k) / double(n)));
    }
    size_t bits = 0;
    while ((size_t(1) << bits) < half) ++bits;
    for (size_t i = 0; i < half; ++i) {
        uint32_t r = 0;
        for (size_t b = 0; b < bits; ++b) r |= uint32_t((i >> b) & 1u) << (bits - 1 - b);
        m_reversed[i] = r;
    }
}

void CPowerSpectrum::Compute(const float* frame, float* power)
{
    // A real frame of n samples as a complex one of n/2: even samples in the
    // real part, odd ones in the imaginary part, windowed and placed in
    // bit-reversed order for an iterative radix-2 transform.
    const size_t half = m_n / 2;
    for (size_t i = 0; i < half; ++i) {
        m_re[m_reversed[i]] = frame[2 * i] * m_window[2 * i];
        m_im[m_reversed[i]] = frame[2 * i + 1] * m_window[2 * i + 1];
    }
    for (size_t span = 1; span < half; span *= 2) {
        const size_t stride = half / (2 * span);
        for (size_t start = 0; start < half; start += 2 * span) {
            for (size_t k = 0; k < span; ++k) {
                const float wr = m_cos[k * stride];
                const float wi = m_sin[k * stride];
                const size_t a = start + k;
                const size_t b = a + span;
                const float tr = m_re[b] * wr - m_im[b] * wi;
                const float ti = m_re[b] * wi + m_im[b] * wr;
                m_re[b] = m_re[a] - tr;
                m_im[b] = m_im[a] - ti;
                m_re[a] += tr;
                m_im[a] += ti;
            }
        }
    }
    // With Z the half-length transform (Z[n/2] = Z[0]): the spectra of the
    // even and odd samples are E = (Z[k] + conj Z[n/2-k]) / 2 and O = (Z[k] -
    // conj Z[n/2-k]) / 2j, and X[k] = E + e^(-2 pi j k / n) O.
    for (size_t k = 0; k <= half; ++k) {
        const size_t a = k % half;
        const size_t b = (half - k) % half;
        const float evenRe = 0.5f * (m_re[a] + m_re[b]);
        const float evenIm = 0.5f * (m_im[a] - m_im[b]);
        const float oddRe = 0.5f * (m_im[a] + m_im[b]);
        const float oddIm = -0.5f * (m_re[a] - m_re[b]);
        const float re = evenRe + m_splitCos[k] * oddRe - m_splitSin[k] * oddIm;
        const float im = evenIm + m_splitCos[k] * oddIm + m_splitSin[k] * oddRe;
        power[k] = re * re + im * im;
    }
}

float NoiseMeanAbovePercentileDb(double bins, double percentile)
{
    if (percentile <= 0.0) return 0.0f;
    const double shape = std::max(1.0, bins);
    // The regularised lower incomplete gamma function by its series; the
    // quantile by bisection, on [0, the mean + 20 standard deviations].
    auto cdf = [shape](double x) {
        if (x <= 0.0) return 0.0;
        double term = 1.0 / shape;
        double sum = term;
        for (int k = 1; k < 1000 && term > sum * 1e-12; ++k) {
            term *= x / (shape + k);
            sum += term;
        }
        return std::exp(shape * std::log(x) - x - std::lgamma(shape)) * sum;
    };
    double low = 0.0;
    double high = shape + 20.0 * std::sqrt(shape) + 20.0;
    for (int i = 0; i < 100; ++i) {
        const double middle = 0.5 * (low + high);
        (cdf(middle) < percentile / 100.0 ? low : high) = middle;
    }
    return static_cast<float>(10.0 * std::log10(shape / low));
}

std::vector<BinRange> LogBands(double lowHz, double highHz, size_t bandCount, size_t fftSize, double sampleRate)
{
    const double binHz = sampleRate / double(fftSize);
    const size_t lastBin = std::min(fftSize / 2, static_cast<size_t>(std::lround(highHz / binHz)));
    std::vector<BinRange> bands;
    size_t first = std::max<size_t>(1, static_cast<size_t>(std::lround(lowHz / binHz)));
    for (size_t i = 0; i < bandCount && first < lastBin; ++i) {
        const double edgeHz = lowHz * std::pow(highHz / lowHz, double(i + 1) / double(bandCount));
        const size_t end = std::clamp(static_cast<size_t>(std::lround(edgeHz / binHz)), first + 1, lastBin);
        bands.push_back({first, end});
        first = end;
    }
    return bands;
}

}  // namespace sentence_detail
