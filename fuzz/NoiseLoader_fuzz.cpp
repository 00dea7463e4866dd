// The noise loader: the head checks and the read of the sound, then one
// block of speech mixed with it on the device's side.
#include <cstdint>
#include <string>

#include "engine/WavOut.h"
#include "fuzz/FuzzSupport.h"
#include "platform/Messages.h"
#include "platform/Window.h"

namespace {

// A second of a 16-bit mono 22050 Hz triangle, looped, so that a noise of
// that format is mixed into every block that comes back.
std::string SpeechFile(const fuzzsupport::Scratch& scratch)
{
    std::string bytes = "RIFF";
    auto u32 = [&bytes](uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes += char(v >> (8 * i));
    };
    auto u16 = [&bytes](uint16_t v) {
        bytes += char(v);
        bytes += char(v >> 8);
    };
    const uint32_t dataBytes = 44100;
    u32(36 + dataBytes);
    bytes += "WAVEfmt ";
    u32(16);
    u16(1);
    u16(1);
    u32(22050);
    u32(44100);
    u16(2);
    u16(16);
    bytes += "data";
    u32(dataBytes);
    for (uint32_t i = 0; i < dataBytes / 2; ++i) u16(uint16_t(int(i % 100) * 600 - 30000));
    return scratch.Write("speech.wav", reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzzsupport::Scratch scratch("noise");
    static const std::string speech = SpeechFile(scratch);
    static CWavOut* engine = [] {
        fuzzsupport::AnswerBoxesQuietly();
        platform::AudioBackendConfig manual;
        manual.backend = platform::AudioBackend::Manual;
        platform::SetAudioBackend(manual);
        auto* made = new CWavOut;
        made->m_hNotifyWnd = CreateMessageWindow(nullptr);
        made->SetJustPlay(TRUE);
        made->SetMixerFlag(TRUE);
        made->SetLoopPlaySection(TRUE, 0, 800);
        if (!made->StartPlay(speech.c_str())) std::abort();
        return made;
    }();
    // The manual device keeps every byte it plays; a fresh opening now and
    // then keeps that record from growing through a long run.
    static unsigned executions = 0;
    if (++executions % 4096 == 0) {
        engine->StopPlay();
        if (!engine->StartPlay(speech.c_str())) std::abort();
    }
    engine->LoadMixSound(scratch.Write("noise.wav", data, size).c_str());
    platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
    if (device == nullptr || !device->Step()) std::abort();  // a loop never runs dry
    platform::PumpPendingMessages();
    return 0;
}
