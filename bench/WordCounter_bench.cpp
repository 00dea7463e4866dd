// The word counter on speech-like audio: one 0.1 s block as the device's
// callback hands it over, and ten seconds at once as at the start of play.
// The plain version shows what the fast one saves; the stage, what the
// pipeline pays per block with its memory reserved and no threads.
#include "dsp/WordCounter.h"
#include "tests/support/WordCounterReference.h"

#include <benchmark/benchmark.h>

#include <map>
#include <tuple>

namespace {

struct Audio {
    std::vector<uint8_t> bytes;
    uint32_t rate;
};

// Built once per format; ten seconds also serve the 0.1 s cases.
const Audio& SpeechLike(uint32_t rate, uint16_t channels) {
    static std::map<std::pair<uint32_t, uint16_t>, Audio> cache;
    auto found = cache.find({rate, channels});
    if (found == cache.end()) {
        const std::vector<int16_t> samples = wordref::SpeechLikeSamples(rate, channels, 10.0, 7);
        found = cache.emplace(std::make_pair(rate, channels), Audio{wordref::AsBytes(samples), rate}).first;
    }
    return found->second;
}

template <int32_t (*Count)(const uint8_t*, uint32_t, uint32_t, uint16_t)>
void CountBlocks(benchmark::State& state) {
    const uint32_t rate = uint32_t(state.range(0));
    const uint16_t channels = uint16_t(state.range(1));
    const bool wholeTenSeconds = state.range(2) != 0;
    const Audio& audio = SpeechLike(rate, channels);
    const uint32_t blockBytes = wholeTenSeconds ? uint32_t(audio.bytes.size()) : rate * channels * 2 / 10;
    const uint32_t blocks = uint32_t(audio.bytes.size()) / blockBytes;
    uint32_t block = 0;
    int64_t voiced = 0;
    for (auto _ : state) {
        const int32_t count = Count(audio.bytes.data() + size_t(block) * blockBytes, blockBytes, rate, 16);
        benchmark::DoNotOptimize(count);
        voiced += count;
        block = (block + 1) % blocks;
    }
    state.counters["voiced/call"] = benchmark::Counter(double(voiced) / double(state.iterations()));
}

void Formats(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"rate", "channels", "tenSeconds"});
    for (int64_t tenSeconds : {0, 1}) {
        bench->Args({22050, 1, tenSeconds});
        bench->Args({44100, 2, tenSeconds});
    }
    bench->Unit(benchmark::kMillisecond);
}

// The pipeline's stage on 0.1 s blocks, beside the one-call count on the
// same blocks. The last format (48 kHz, eight channels: 39 frames a block)
// is one where the one-call count spreads the frames over a second thread.
void StageBlocks(benchmark::State& state) {
    const uint32_t rate = uint32_t(state.range(0));
    const uint16_t channels = uint16_t(state.range(1));
    const Audio& audio = SpeechLike(rate, channels);
    const uint32_t blockBytes = rate * channels * 2 / 10;
    const uint32_t blocks = uint32_t(audio.bytes.size()) / blockBytes;
    CWordCountStage stage;
    stage.Reserve(blockBytes, rate, 16);
    uint32_t block = 0;
    int64_t voiced = 0;
    for (auto _ : state) {
        const int32_t count = stage.Count(audio.bytes.data() + size_t(block) * blockBytes, blockBytes);
        benchmark::DoNotOptimize(count);
        voiced += count;
        block = (block + 1) % blocks;
    }
    state.counters["voiced/call"] = benchmark::Counter(double(voiced) / double(state.iterations()));
}

void BlockFormats(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"rate", "channels", "tenSeconds"});
    bench->Args({22050, 1, 0});
    bench->Args({44100, 2, 0});
    bench->Args({48000, 8, 0});
    bench->Unit(benchmark::kMillisecond);
}

void ManyChannelBlock(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"rate", "channels", "tenSeconds"});
    bench->Args({48000, 8, 0});
    bench->Unit(benchmark::kMillisecond);
}

BENCHMARK(CountBlocks<CountVoicedFrames>)->Name("CountVoicedFrames/fast")->Apply(Formats)->UseRealTime();
BENCHMARK(CountBlocks<wordref::CountVoicedFrames>)->Name("CountVoicedFrames/plain")->Apply(Formats)->UseRealTime();
BENCHMARK(StageBlocks)->Name("WordCountStage")->Apply(BlockFormats)->UseRealTime();
BENCHMARK(CountBlocks<CountVoicedFrames>)->Name("CountVoicedFrames/fast")->Apply(ManyChannelBlock)->UseRealTime();

}  // namespace
