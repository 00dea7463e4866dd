// What the device's thread spends on each 0.1 s block during play: read,
// word count, tempo change, noise, gain and volume, in either profile.
// 60-second speech-like files on the manual device, stepped one buffer at a
// time on the benchmark's thread; the figure per iteration is one block,
// so the share of real time is (time per iteration) / 100 ms.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>

#include "engine/WavOut.h"
#include "tests/support/WavOutProbe.h"
#include "platform/MessageBox.h"
#include "riff/LittleEndian.h"
#include "tests/support/WordCounterReference.h"

namespace {

std::string MakeFile(uint32_t rate, uint16_t channels)
{
    const std::vector<int16_t> ten = wordref::SpeechLikeSamples(rate, channels, 10.0, 11);
    const std::vector<uint8_t> tenBytes = wordref::AsBytes(ten);
    std::string data;
    for (int i = 0; i < 6; ++i) data.append(reinterpret_cast<const char*>(tenBytes.data()), tenBytes.size());
    uint8_t head[44] = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
    riff::PutU32(head + 4, static_cast<uint32_t>(36 + data.size()));
    riff::PutU32(head + 16, 16);
    riff::PutU16(head + 20, 1);
    riff::PutU16(head + 22, channels);
    riff::PutU32(head + 24, rate);
    riff::PutU32(head + 28, rate * channels * 2u);
    riff::PutU16(head + 32, static_cast<uint16_t>(channels * 2));
    riff::PutU16(head + 34, 16);
    std::memcpy(head + 36, "data", 4);
    riff::PutU32(head + 40, static_cast<uint32_t>(data.size()));
    const std::string path = "/tmp/tempvox-live-" + std::to_string(getpid()) + "-" + std::to_string(rate) + "-" +
                             std::to_string(channels) + ".wav";
    FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(head, 1, sizeof head, file);
    std::fwrite(data.data(), 1, data.size(), file);
    std::fclose(file);
    return path;
}

void LivePipelineBlock(benchmark::State& state)
{
    const uint32_t rate = static_cast<uint32_t>(state.range(0));
    const uint16_t channels = static_cast<uint16_t>(state.range(1));
    const int16_t profile = static_cast<int16_t>(state.range(2));
    const int16_t level = static_cast<int16_t>(state.range(3));
    const std::string path = MakeFile(rate, channels);
    platform::AudioBackendConfig audio;
    audio.backend = platform::AudioBackend::Manual;
    platform::SetAudioBackend(audio);
    platform::SetMessageBoxHandler([](const platform::MessageBoxRequest&) { return IDOK; });

    CWavOut engine;
    engine.SetPlaybackProfile(profile);
    engine.SetChangeSpeedLevel(level);
    bool playing = false;
    for (auto _ : state) {
        // A play lasts a minute; a new one starts outside the timing.
        if (!playing || platform::ManualWaveOut::Current() == nullptr || CWavOutProbe::IsEnded(engine)) {
            state.PauseTiming();
            engine.StopPlay();
            playing = engine.StartPlay(path.c_str());
            state.ResumeTiming();
            if (!playing) {
                state.SkipWithError("StartPlay failed");
                break;
            }
        }
        platform::ManualWaveOut::Current()->Step();
    }
    engine.StopPlay();
    std::remove(path.c_str());
}

}  // namespace

// Arguments: rate, channels, profile (0 classic, 1 refined), speed level.
BENCHMARK(LivePipelineBlock)
    ->ArgNames({"rate", "channels", "profile", "level"})
    ->Args({22050, 1, 0, -60})
    ->Args({22050, 1, 1, -60})
    ->Args({48000, 2, 0, -60})
    ->Args({48000, 2, 1, -60})
    ->Args({48000, 2, 1, 0})
    ->Args({48000, 2, 1, 50})
    ->Unit(benchmark::kMicrosecond);
