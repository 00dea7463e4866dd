// Decoding a whole file into the control's .wav, as SetPlayFilePath does for
// an MP3: FFmpeg's decoder, the 16-bit conversion and the canonical writer,
// one pass. The file is named by TEMPVOX_BENCH_AUDIO (bench/decode-mp3.sh
// makes one hour of 128 kbit/s MP3 and runs this under /usr/bin/time -v for
// the memory figure); the .wav goes beside it, or into TEMPVOX_BENCH_OUT_DIR
// when that place is taken.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "media/DecodedAudio.h"
#include "platform/OwnedFiles.h"

namespace {

void DecodeWholeFile(benchmark::State& state)
{
    const char* input = std::getenv("TEMPVOX_BENCH_AUDIO");
    if (input == nullptr) {
        state.SkipWithError("set TEMPVOX_BENCH_AUDIO to the file to decode");
        return;
    }
    const char* outDir = std::getenv("TEMPVOX_BENCH_OUT_DIR");
    double audioSeconds = 0.0;
    for (auto _ : state) {
        media::DecodeReport report = media::DecodeToWav(input, outDir != nullptr ? outDir : "");
        if (report.wavPath.empty()) {
            state.SkipWithError(report.reason.c_str());
            return;
        }
        audioSeconds = report.decodedSeconds;
        state.PauseTiming();
        platform::DeleteOwnedFile(report.wavPath);
        state.ResumeTiming();
    }
    state.counters["audio_s"] = audioSeconds;
}

BENCHMARK(DecodeWholeFile)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
