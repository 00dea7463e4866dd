// The streaming tempo stretcher as the player runs it: one Process() call
// per 0.1 s block, state kept from block to block. The counter `rt_percent`
// is the CPU time per block as a share of the block's own 100 ms;
// `x_realtime` is how many times faster than real time that is.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "dsp/TempoKernels.h"
#include "dsp/TempoStretcher.h"
#include "tests/support/SpeechLikeSignal.h"

namespace {

struct Layout {
    int rate;
    int channels;
};
constexpr Layout kLayouts[] = {{22050, 1}, {48000, 2}};

void ReportRealTimeShare(benchmark::State& state)
{
    const double seconds = 0.1 * double(state.iterations());
    state.counters["x_realtime"] = benchmark::Counter(seconds, benchmark::Counter::kIsRate);
    // CPU time / (sound duration / 100).
    state.counters["rt_percent"] =
        benchmark::Counter(seconds / 100.0, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_TempoStretcher(benchmark::State& state)
{
    const double factor = double(state.range(0)) / 100.0;
    const Layout layout = kLayouts[state.range(1)];
    const int block = layout.rate / 10;
    // Four seconds of speech, fed round and round in 0.1 s blocks, so a run
    // sees voiced stretches and pauses alike.
    const std::vector<int16_t> speech = test_signals::SpeechLike(layout.rate, 40 * block, layout.channels, 1);
    CTempoStretcher stretcher;
    stretcher.Configure(layout.rate, layout.channels, block);
    stretcher.SetFactor(factor);
    std::vector<int16_t> out(size_t(stretcher.MaxOutputFrames(block)) * layout.channels);
    size_t next = 0;
    for (auto _ : state) {
        const int got = stretcher.Process(speech.data() + next * block * layout.channels, block, out.data(),
                                          stretcher.MaxOutputFrames(block));
        benchmark::DoNotOptimize(got);
        benchmark::DoNotOptimize(out.data());
        next = (next + 1) % 40;
    }
    ReportRealTimeShare(state);
}

BENCHMARK(BM_TempoStretcher)
    ->ArgNames({"factor_pct", "layout"})
    ->ArgsProduct({{50, 125, 200}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

// The search's inner product at the lengths it runs at: a 12.5 ms overlap
// at 22050 Hz and 48000 Hz.
void BM_Dot(benchmark::State& state)
{
    const int n = int(state.range(0));
    const std::vector<int16_t> speech = test_signals::SpeechLike(22050, 2 * n, 1, 2);
    std::vector<float> a(speech.begin(), speech.begin() + n), b(speech.begin() + n, speech.end());
    for (auto _ : state)
        benchmark::DoNotOptimize(tempo_kernels::Dot(a.data(), b.data(), n));
}
BENCHMARK(BM_Dot)->Arg(276)->Arg(600);

}  // namespace
