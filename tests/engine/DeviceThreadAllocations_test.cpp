// Whether a refill touches the allocator on the device's thread. The manual
// device runs every done notice, and so the engine's refill, on the thread
// that steps it: the test marks that thread around each step and counts the
// calls of operator new and delete made meanwhile.
//
// A step also runs the device's own bookkeeping (its queue of headers, its
// record of the bytes played), which allocates now and then on its own. To
// tell the engine's part from it, the same device is driven a second time
// by a callback that only writes its headers back with the lengths the
// engine gave them: every step must count exactly what the device alone
// counts, so the engine's refill adds nothing.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "engine/WavOut.h"
#include "support/WavOutProbe.h"
#include "platform/WaveOut.h"
#include "support/CountingAllocator.h"
#include "support/HostHarness.h"
#include "support/SpeechLikeSignal.h"
#include "support/WavFiles.h"

using namespace testwav;
using counting_allocator::Counts;
using counting_allocator::MarkedScope;

namespace {

constexpr int kSteps = 48;

struct StepRecord {
    uint32_t played = 0;  // bytes the step handed out
    Counts counts;
};

// Steps the current manual device `steps` times, each step marked.
std::vector<StepRecord> StepMarked(int steps)
{
    platform::ManualWaveOut* device = platform::ManualWaveOut::Current();
    std::vector<StepRecord> records;
    records.reserve(size_t(steps));
    for (int i = 0; i < steps && device != nullptr; ++i) {
        const size_t before = device->PlayedBytes().size();
        StepRecord record;
        bool stepped = false;
        {
            MarkedScope marked;
            stepped = device->Step();
            record.counts = marked.SoFar();
        }
        if (!stepped) break;
        record.played = uint32_t(device->PlayedBytes().size() - before);
        records.push_back(record);
    }
    return records;
}

// The device alone: headers written back with given lengths, one per notice.
struct Replay {
    std::vector<uint32_t> lengths;  // of every write, in order
    size_t next = 0;
};

void ReplayCallback(HWAVEOUT device, UINT message, DWORD_PTR instance, DWORD_PTR param1, DWORD_PTR)
{
    if (message != MM_WOM_DONE) return;
    auto* replay = reinterpret_cast<Replay*>(instance);
    auto* header = reinterpret_cast<WAVEHDR*>(param1);
    // Writes past the recorded ones are never played within the steps counted.
    header->dwBufferLength = replay->next < replay->lengths.size() ? replay->lengths[replay->next] : 0;
    ++replay->next;
    waveOutWrite(device, header, sizeof(WAVEHDR));
}

std::vector<StepRecord> ReplayOnDeviceAlone(const Format& format, const std::vector<StepRecord>& engineSteps)
{
    Replay replay;
    for (const StepRecord& step : engineSteps) replay.lengths.push_back(step.played);
    const WAVEFORMATEX waveFormat{format.formatTag, format.channels, format.samplesPerSec, format.AvgBytesPerSec(),
                                  format.BlockAlign(), format.bitsPerSample, 0};
    HWAVEOUT device = nullptr;
    EXPECT_EQ(waveOutOpen(&device, WAVE_MAPPER, &waveFormat, reinterpret_cast<DWORD_PTR>(&ReplayCallback),
                          reinterpret_cast<DWORD_PTR>(&replay), CALLBACK_FUNCTION),
              MMSYSERR_NOERROR);
    std::vector<char> buffers[kBufferCount];
    WAVEHDR headers[kBufferCount] = {};
    for (int i = 0; i < kBufferCount; ++i) {
        buffers[i].resize(format.AvgBytesPerSec());
        headers[i].lpData = buffers[i].data();
        headers[i].dwBufferLength = replay.lengths.at(replay.next++);
        waveOutPrepareHeader(device, &headers[i], sizeof(WAVEHDR));
        waveOutWrite(device, &headers[i], sizeof(WAVEHDR));
    }
    std::vector<StepRecord> steps = StepMarked(int(engineSteps.size()));
    waveOutReset(device);
    for (WAVEHDR& header : headers) waveOutUnprepareHeader(device, &header, sizeof(WAVEHDR));
    waveOutClose(device);
    return steps;
}

std::string SamplesInFormat(const std::vector<int16_t>& samples, uint16_t bitsPerSample)
{
    if (bitsPerSample == 16) return Samples16(samples);
    std::string bytes;
    for (int16_t sample : samples) bytes.push_back(static_cast<char>((sample >> 8) + 128));
    return bytes;
}

TEST(DeviceThreadAllocations, NoRefillAllocatesInEitherProfile)
{
    struct Case {
        const char* name;
        int16_t profile;
        Format format;
        int16_t firstLevel;   // for the first half of the steps
        int16_t secondLevel;  // for the rest
        bool loop;
    };
    const Case cases[] = {
        {"classic, 22050 Hz mono", kProfileClassic, {1, 1, 22050, 16}, 25, -60, false},
        {"classic, 44100 Hz stereo", kProfileClassic, {1, 2, 44100, 16}, -40, 50, false},
        {"classic, 8-bit", kProfileClassic, {1, 1, 11025, 8}, 50, 10, false},
        {"classic, looping a section", kProfileClassic, {1, 1, 22050, 16}, -30, 30, true},
        {"refined, 22050 Hz mono", kProfileRefined, {1, 1, 22050, 16}, 0, 25, false},
        {"refined, 44100 Hz stereo", kProfileRefined, {1, 2, 44100, 16}, -40, 50, false},
        {"refined, 8-bit", kProfileRefined, {1, 1, 11025, 8}, 50, -60, false},
        {"refined, looping a section", kProfileRefined, {1, 1, 22050, 16}, 30, -30, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HostHarness host;
        const Format& format = c.format;
        const std::vector<int16_t> speech =
            test_signals::SpeechLike(int32_t(format.samplesPerSec), int32_t(format.samplesPerSec) * 6, format.channels, 4);
        std::mt19937 rng(9);
        std::vector<int16_t> noise(format.samplesPerSec * format.channels * 7 / 10);
        for (int16_t& value : noise) value = int16_t(std::uniform_int_distribution<int>(-3000, 2999)(rng));
        const std::string speechPath = WriteFile("speech.wav", CanonicalWav(format, SamplesInFormat(speech, format.bitsPerSample)));
        const std::string noisePath = WriteFile("noise.wav", CanonicalWav(format, SamplesInFormat(noise, format.bitsPerSample)));

        std::vector<StepRecord> engineSteps;
        uint32_t readSize = 0;
        {
            CWavOut engine;
            // No window: what the engine posts would be the message queue's
            // allocation, not its own.
            engine.m_hNotifyWnd = nullptr;
            engine.SetPlaybackProfile(c.profile);
            engine.SetJustPlay(FALSE);  // the live word count runs on every block
            engine.LoadMixSound(noisePath.c_str());
            engine.SetMixerFlag(TRUE);
            engine.SetChangeSpeedLevel(c.firstLevel);
            if (c.loop) engine.SetLoopPlaySection(TRUE, 700, 1600);
            ASSERT_TRUE(engine.StartPlay(speechPath.c_str()));
            readSize = engine.ReadSize();
            engineSteps = StepMarked(kSteps / 2);
            engine.SetChangeSpeedLevel(c.secondLevel);
            const std::vector<StepRecord> rest = StepMarked(kSteps / 2);
            engineSteps.insert(engineSteps.end(), rest.begin(), rest.end());
            // Every step refilled its buffer: the play went on all along.
            EXPECT_EQ(host.Queued(), size_t(kBufferCount));
            EXPECT_FALSE(CWavOutProbe::IsEnded(engine));
            engine.StopPlay();
        }
        ASSERT_EQ(engineSteps.size(), size_t(kSteps));
        // The tempo did change: blocks of another length than a read went out.
        int changedBlocks = 0;
        for (const StepRecord& step : engineSteps) changedBlocks += step.played != readSize ? 1 : 0;
        EXPECT_GE(changedBlocks, kSteps / 4);

        const std::vector<StepRecord> deviceSteps = ReplayOnDeviceAlone(format, engineSteps);
        ASSERT_EQ(deviceSteps.size(), engineSteps.size());
        for (size_t i = 0; i < engineSteps.size(); ++i) {
            EXPECT_EQ(engineSteps[i].counts.allocations, deviceSteps[i].counts.allocations) << "step " << i + 1;
            EXPECT_EQ(engineSteps[i].counts.releases, deviceSteps[i].counts.releases) << "step " << i + 1;
        }
        std::remove(speechPath.c_str());
        std::remove(noisePath.c_str());
    }
}

// The counting itself: a step whose refill allocates is seen as such, so
// the equality above cannot hold by a counter that never counts.
TEST(DeviceThreadAllocations, TheCounterSeesAnAllocationInACallback)
{
    HostHarness host;
    const WAVEFORMATEX waveFormat{1, 1, 22050, 44100, 2, 16, 0};
    struct Allocating {
        static void Callback(HWAVEOUT device, UINT message, DWORD_PTR, DWORD_PTR param1, DWORD_PTR)
        {
            if (message != MM_WOM_DONE) return;
            delete new std::vector<int16_t>(2205);  // two calls of new, two of delete
            waveOutWrite(device, reinterpret_cast<WAVEHDR*>(param1), sizeof(WAVEHDR));
        }
    };
    HWAVEOUT device = nullptr;
    ASSERT_EQ(waveOutOpen(&device, WAVE_MAPPER, &waveFormat, reinterpret_cast<DWORD_PTR>(&Allocating::Callback), 0,
                          CALLBACK_FUNCTION),
              MMSYSERR_NOERROR);
    std::vector<char> buffer(4410);
    WAVEHDR header{};
    header.lpData = buffer.data();
    header.dwBufferLength = 0;
    waveOutPrepareHeader(device, &header, sizeof(WAVEHDR));
    waveOutWrite(device, &header, sizeof(WAVEHDR));
    const std::vector<StepRecord> steps = StepMarked(3);
    waveOutReset(device);
    waveOutUnprepareHeader(device, &header, sizeof(WAVEHDR));
    waveOutClose(device);
    ASSERT_EQ(steps.size(), 3u);
    // At least the callback's own two; the device may add its bookkeeping.
    for (const StepRecord& step : steps) EXPECT_GE(step.counts.allocations, 2);
}

}  // namespace
