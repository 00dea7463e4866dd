// The sentence finder over 30 s of made-up speech with pauses under pink
// noise, fed in blocks of 64 KB as `tempvox segments` and FindSentences feed
// it. The counter `audio_x` is seconds of audio per second of CPU; the share
// of real time is 100 / audio_x %.
#include "dsp/SentenceFinder.h"
#include "tests/support/SentenceSignal.h"

#include <benchmark/benchmark.h>

#include <map>
#include <utility>
#include <vector>

namespace {

constexpr double kSeconds = 30.0;

const std::vector<int16_t>& Lesson(int32_t rate, int32_t channels)
{
    static std::map<std::pair<int32_t, int32_t>, std::vector<int16_t>> cache;
    auto found = cache.find({rate, channels});
    if (found == cache.end()) {
        sentence_signal::RecordingBuilder recording(rate, channels, 17);
        recording.Silence(0.5);
        while (recording.Seconds() < kSeconds - 3.0) {
            recording.Sentence(2.2, -12.0, 0.5, 0.15);
            recording.Silence(0.7);
        }
        recording.Silence(kSeconds - recording.Seconds());
        recording.AddPinkNoise(20.0);
        found = cache.emplace(std::make_pair(rate, channels), recording.Samples()).first;
    }
    return found->second;
}

void FindSentences(benchmark::State& state)
{
    const int32_t rate = static_cast<int32_t>(state.range(0));
    const int32_t channels = static_cast<int32_t>(state.range(1));
    const std::vector<int16_t>& samples = Lesson(rate, channels);
    const size_t frames = samples.size() / size_t(channels);
    const size_t block = 65536 / (2 * size_t(channels));
    size_t found = 0;
    for (auto _ : state) {
        CSentenceFinder finder{uint32_t(rate), uint16_t(channels)};
        for (size_t at = 0; at < frames; at += block)
            finder.Feed(&samples[at * size_t(channels)], std::min(block, frames - at));
        found = finder.Finish().size();
        benchmark::DoNotOptimize(found);
    }
    state.counters["sentences"] = double(found);
    state.counters["audio_x"] = benchmark::Counter(double(frames) / rate * double(state.iterations()),
                                                   benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(FindSentences)
    ->Args({16000, 1})
    ->Args({22050, 1})
    ->Args({44100, 2})
    ->Args({48000, 2})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
