// The syllable counter as the refined player runs it: one Feed() call per
// 0.1 s block, state kept from block to block, and the whole-stretch
// measure that GetSpeakingRate and GetWordSpeedByAsyn make. The counter
// `rt_percent` is the CPU time as a share of the sound's own duration.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "dsp/SyllableRate.h"
#include "tests/support/SampleBytes.h"
#include "tests/support/SpeechLikeSignal.h"

namespace {

struct Layout {
    int rate;
    int channels;
};
constexpr Layout kLayouts[] = {{16000, 1}, {22050, 1}, {44100, 2}, {48000, 2}};

void ReportRealTimeShare(benchmark::State& state, double secondsPerIteration)
{
    const double seconds = secondsPerIteration * double(state.iterations());
    state.counters["x_realtime"] = benchmark::Counter(seconds, benchmark::Counter::kIsRate);
    state.counters["rt_percent"] =
        benchmark::Counter(seconds / 100.0, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_SyllableCounterBlock(benchmark::State& state)
{
    const Layout layout = kLayouts[state.range(0)];
    const int block = layout.rate / 10;
    // Four seconds of speech-like sound, fed round and round in 0.1 s blocks.
    const std::vector<int16_t> speech = test_signals::SpeechLike(layout.rate, 40 * block, layout.channels, 3);
    CSyllableCounter counter;
    counter.Configure(uint32_t(layout.rate), uint16_t(layout.channels));
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(counter.Feed(speech.data() + next * block * layout.channels, size_t(block)));
        next = (next + 1) % 40;
    }
    ReportRealTimeShare(state, 0.1);
}
BENCHMARK(BM_SyllableCounterBlock)->ArgName("layout")->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

// A whole minute at once, from the bytes of a file.
void BM_MeasureSpeakingRate(benchmark::State& state)
{
    const Layout layout = kLayouts[state.range(0)];
    const std::vector<uint8_t> bytes =
        testbytes::ToBytes(test_signals::SpeechLike(layout.rate, 60 * layout.rate, layout.channels, 4));
    for (auto _ : state) {
        const SpeakingRate rate =
            MeasureSpeakingRate(bytes.data(), bytes.size(), uint32_t(layout.rate), uint16_t(layout.channels), 16);
        benchmark::DoNotOptimize(rate.syllables);
    }
    ReportRealTimeShare(state, 60.0);
}
BENCHMARK(BM_MeasureSpeakingRate)->ArgName("layout")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

}  // namespace
