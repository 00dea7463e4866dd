// What the host waits for inside StartPlay: open, gain scan, the first four
// blocks counted and the first ten seconds counted, device opened and four
// buffers queued. 60-second speech-like files, counting on, on the manual
// device so no device thread takes part.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>

#include "engine/WavOut.h"
#include "platform/MessageBox.h"
#include "riff/WavHead.h"
#include "tests/support/WordCounterReference.h"

namespace {

std::string MakeFile(uint32_t rate, uint16_t channels)
{
    std::vector<int16_t> ten = wordref::SpeechLikeSamples(rate, channels, 10.0, 11);
    std::vector<uint8_t> tenBytes = wordref::AsBytes(ten);
    std::string data;
    for (int i = 0; i < 6; ++i) data.append(reinterpret_cast<const char*>(tenBytes.data()), tenBytes.size());
    uint8_t head[riff::kCanonicalHeadBytes];
    riff::PutCanonicalWavHead(head, riff::Pcm16Format(channels, rate), static_cast<uint32_t>(data.size()));
    std::string bytes(reinterpret_cast<const char*>(head), sizeof head);
    bytes += data;
    std::string path = "/tmp/tempvox-startplay-" + std::to_string(getpid()) + "-" + std::to_string(rate) + "-" +
                       std::to_string(channels) + ".wav";
    FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    return path;
}

void StartPlayLatency(benchmark::State& state)
{
    const uint32_t rate = static_cast<uint32_t>(state.range(0));
    const uint16_t channels = static_cast<uint16_t>(state.range(1));
    const std::string path = MakeFile(rate, channels);
    platform::AudioBackendConfig audio;
    audio.backend = platform::AudioBackend::Manual;
    platform::SetAudioBackend(audio);
    platform::SetMessageBoxHandler([](const platform::MessageBoxRequest&) { return IDOK; });

    CWavOut engine;
    for (auto _ : state) {
        if (!engine.StartPlay(path.c_str())) {
            state.SkipWithError("StartPlay failed");
            break;
        }
        state.PauseTiming();
        engine.StopPlay();
        state.ResumeTiming();
    }
    std::remove(path.c_str());
}

}  // namespace

BENCHMARK(StartPlayLatency)
    ->ArgNames({"rate", "channels"})
    ->Args({22050, 1})
    ->Args({44100, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
