// The engine's reading of a file's head and everything it sizes from it:
// ReadWaveHeader and the open-time checks, then a start on the manual
// device, a few blocks through the pipeline, the time arithmetic and a stop.
#include <cstdint>

#include "engine/WavOut.h"
#include "engine/WaveReader.h"
#include "fuzz/FuzzSupport.h"
#include "platform/Messages.h"
#include "platform/Window.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzzsupport::Scratch scratch("wave-head");
    static const HWND window = [] {
        fuzzsupport::AnswerBoxesQuietly();
        platform::AudioBackendConfig manual;
        manual.backend = platform::AudioBackend::Manual;
        platform::SetAudioBackend(manual);
        return CreateMessageWindow(nullptr);
    }();
    const std::string path = scratch.Write("head.wav", data, size);

    {
        CFile stream;
        if (stream.Open(path.c_str(), CFile::modeRead)) {
            WavFormatRecord format{};
            WavChunkHead chunk{};
            uint32_t factExtra = 0;
            if (ReadWaveHeader(stream, format, chunk, factExtra) != 0) {
                (void)ByteRateFitsFile(format, stream.GetLength());
                (void)ToWaveFormat(format);
            }
        }
    }

    CWavOut engine;
    engine.m_hNotifyWnd = window;
    // Word counting reads nothing of the head and would take most of the
    // time of an execution.
    engine.SetJustPlay(TRUE);
    // The last byte picks a speed level, so that the speed stage sees the
    // odd block lengths too.
    if (size > 0) engine.SetChangeSpeedLevel(static_cast<int16_t>(static_cast<int>(data[size - 1] % 111) - 60));
    if (engine.StartPlay(path.c_str())) {
        engine.GetTotalPlayTime();
        for (int i = 0; i < 6; ++i) {
            platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
            if (device == nullptr || !device->Step()) break;
            engine.GetCurrentPlayTime();
        }
        engine.SetCurrentPlayTime(engine.GetTotalPlayTime() / 2);
        engine.SpeedUp(1000);
    }
    engine.StopPlay();
    platform::PumpPendingMessages();
    return 0;
}
