// Tempo change of one 0.1 s block: Load, Run and TakeOutput on a fresh
// changer, which allocates at every step, and the stage the output pipeline
// runs, whose memory is reserved once. The counter `x_realtime` tells how
// many times faster than real time the blocks are changed.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "dsp/SpeedChanger.h"
#include "tests/support/SpeechLikeSignal.h"
#include "tests/support/SpeedChangerReference.h"

namespace {

struct Layout {
    int32_t rate;
    int32_t channels;
};
constexpr Layout kLayouts[] = {{22050, 1}, {44100, 2}};

// Two seconds of speech cut into 0.1 s blocks, so that a run of iterations
// sees voiced stretches and pauses alike.
std::vector<std::vector<int16_t>> SpeechBlocks(const Layout& layout)
{
    const int32_t blockFrames = layout.rate / 10;
    const std::vector<int16_t> speech = test_signals::SpeechLike(layout.rate, 20 * blockFrames, layout.channels, 1);
    const size_t blockSamples = size_t(blockFrames) * layout.channels;
    std::vector<std::vector<int16_t>> blocks;
    for (size_t start = 0; start + blockSamples <= speech.size(); start += blockSamples)
        blocks.emplace_back(speech.begin() + start, speech.begin() + start + blockSamples);
    return blocks;
}

// Seconds of sound per second of CPU: 1k means a block takes 0.1 % of its own duration.
void ReportRealTimeShare(benchmark::State& state)
{
    state.counters["x_realtime"] = benchmark::Counter(0.1 * double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_SpeedChanger(benchmark::State& state)
{
    const int16_t level = int16_t(state.range(0));
    const auto blocks = SpeechBlocks(kLayouts[state.range(1)]);
    size_t next = 0;
    for (auto _ : state) {
        const std::vector<int16_t>& block = blocks[next];
        next = (next + 1) % blocks.size();
        CSpeedChanger changer;
        changer.Load(block.data(), int32_t(block.size()), level);
        changer.Run();
        int16_t* out = nullptr;
        int32_t count = 0;
        changer.TakeOutput(&out, &count);
        benchmark::DoNotOptimize(out);
        delete[] out;
    }
    ReportRealTimeShare(state);
}

// The pipeline's stage: the same change into memory reserved before play,
// written back in place into the block's buffer as the engine does.
void BM_SpeedChangeStage(benchmark::State& state)
{
    const int16_t level = int16_t(state.range(0));
    const auto blocks = SpeechBlocks(kLayouts[state.range(1)]);
    CSpeedChangeStage stage;
    stage.Reserve(int32_t(blocks.front().size()));
    std::vector<int16_t> buffer(10 * blocks.front().size());
    size_t next = 0;
    for (auto _ : state) {
        const std::vector<int16_t>& block = blocks[next];
        next = (next + 1) % blocks.size();
        std::copy(block.begin(), block.end(), buffer.begin());
        const int32_t written =
            stage.RunInto(buffer.data(), int32_t(block.size()), level, buffer.data(), int32_t(buffer.size()));
        benchmark::DoNotOptimize(written);
        benchmark::DoNotOptimize(buffer.data());
    }
    ReportRealTimeShare(state);
}

// The plain version the tests hold the changer against: same results,
// one lane at a time.
void BM_PlainSpeedChanger(benchmark::State& state)
{
    const int16_t level = int16_t(state.range(0));
    const auto blocks = SpeechBlocks(kLayouts[state.range(1)]);
    size_t next = 0;
    for (auto _ : state) {
        std::vector<int16_t> out = speed_reference::ChangeSpeed(blocks[next], level);
        next = (next + 1) % blocks.size();
        benchmark::DoNotOptimize(out.data());
    }
    ReportRealTimeShare(state);
}

void LevelsAndLayouts(benchmark::internal::Benchmark* bench)
{
    bench->ArgNames({"level", "layout"});
    for (int64_t layout : {0, 1})
        for (int64_t level : {50, 25, -30, -60})
            bench->Args({level, layout});
}

BENCHMARK(BM_SpeedChanger)->Apply(LevelsAndLayouts);
BENCHMARK(BM_SpeedChangeStage)->Apply(LevelsAndLayouts);
BENCHMARK(BM_PlainSpeedChanger)->Apply(LevelsAndLayouts);

// The fine stage of one search: 20 offsets of a 221-sample frame.
struct FineSearch {
    std::vector<float> reference;
    std::vector<float> search;
    FineSearch()
    {
        const std::vector<int16_t> speech = test_signals::SpeechLike(22050, 1000, 1, 2);
        reference.assign(speech.begin() + 300, speech.begin() + 521);
        search.assign(speech.begin() + 380, speech.begin() + 380 + 20 + 220);
    }
};

void BM_FineScores(benchmark::State& state)
{
    const FineSearch data;
    float scores[20];
    for (auto _ : state) {
        CSpeedChanger::ScoreOffsets(data.reference.data(), 221, data.search.data(), 20, scores);
        benchmark::DoNotOptimize(scores);
    }
}

void BM_PlainFineScores(benchmark::State& state)
{
    const FineSearch data;
    float scores[20];
    for (auto _ : state) {
        for (int32_t c = 0; c < 20; ++c)
            scores[c] = speed_reference::Correlate(data.reference, 0, data.search, c, 221);
        benchmark::DoNotOptimize(scores);
    }
}

BENCHMARK(BM_FineScores);
BENCHMARK(BM_PlainFineScores);

}  // namespace
