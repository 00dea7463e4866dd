#include "platform/WaveOut.h"
#include "platform/WaveDevice.h"

#include <gtest/gtest.h>

#include "support/WavFiles.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace platform;
using Steady = std::chrono::steady_clock;

WAVEFORMATEX Format(WORD channels, DWORD rate, WORD bits)
{
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_PCM;
    format.nChannels = channels;
    format.nSamplesPerSec = rate;
    format.wBitsPerSample = bits;
    format.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    format.nAvgBytesPerSec = rate * format.nBlockAlign;
    return format;
}

struct Event {
    UINT message;
    WAVEHDR* header;
    std::thread::id thread;
};

// Records every notice; an optional hook runs on each done notice, on the
// thread that delivers it, with no lock of the listener held.
struct Listener {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Event> events;
    std::function<void(HWAVEOUT, WAVEHDR*)> onDone;

    static void Proc(HWAVEOUT device, UINT message, DWORD_PTR instance, DWORD_PTR param1, DWORD_PTR)
    {
        auto* self = reinterpret_cast<Listener*>(instance);
        WAVEHDR* header = reinterpret_cast<WAVEHDR*>(param1);
        {
            std::lock_guard lock(self->mutex);
            self->events.push_back({message, header, std::this_thread::get_id()});
        }
        if (message == MM_WOM_DONE && self->onDone)
            self->onDone(device, header);
        self->changed.notify_all();
    }

    std::vector<Event> Snapshot()
    {
        std::lock_guard lock(mutex);
        return events;
    }

    std::vector<WAVEHDR*> Done()
    {
        std::vector<WAVEHDR*> done;
        for (const Event& event : Snapshot())
            if (event.message == MM_WOM_DONE)
                done.push_back(event.header);
        return done;
    }

    bool WaitForDone(size_t count, int timeoutMs = 5000)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
            size_t done = 0;
            for (const Event& event : events)
                done += event.message == MM_WOM_DONE;
            return done >= count;
        });
    }
};

struct Block {
    std::string data;
    WAVEHDR header{};

    explicit Block(size_t size, char fill = 0) : Block(std::string(size, fill)) {}
    explicit Block(std::string bytes) : data(std::move(bytes))
    {
        header.lpData = data.data();
        header.dwBufferLength = static_cast<DWORD>(data.size());
        header.dwFlags = WHDR_BEGINLOOP | WHDR_ENDLOOP;
        header.dwLoops = 1;
    }
    Block(const Block&) = delete;  // the header points into this very object
};

MMRESULT OpenDevice(HWAVEOUT* device, Listener& listener, const WAVEFORMATEX& format = Format(1, 8000, 8))
{
    return waveOutOpen(device, WAVE_MAPPER, &format, reinterpret_cast<DWORD_PTR>(&Listener::Proc),
                       reinterpret_cast<DWORD_PTR>(&listener), CALLBACK_FUNCTION);
}

// Prepares and writes each block in turn; true if every write was taken.
template <class Blocks>
bool PrepareAndWrite(HWAVEOUT device, Blocks& blocks)
{
    bool taken = true;
    for (Block& block : blocks) {
        waveOutPrepareHeader(device, &block.header, sizeof(WAVEHDR));
        taken = waveOutWrite(device, &block.header, sizeof(WAVEHDR)) == MMSYSERR_NOERROR && taken;
    }
    return taken;
}

template <class Blocks>
std::vector<WAVEHDR*> Headers(Blocks& blocks)
{
    std::vector<WAVEHDR*> headers;
    for (Block& block : blocks) headers.push_back(&block.header);
    return headers;
}

class WaveOutTest : public ::testing::Test {
protected:
    void UseBackend(AudioBackend backend, std::string capturePath = {})
    {
        AudioBackendConfig config;
        config.backend = backend;
        config.capturePath = std::move(capturePath);
        SetAudioBackend(config);
    }

    void TearDown() override
    {
        ManualWaveOut::ClearFailures();
        SetAudioBackend(AudioBackendConfig{});
    }
};

TEST_F(WaveOutTest, ManualDeviceCompletesInOrderOnTheSteppingThreadWithEachWrittenLength)
{
    UseBackend(AudioBackend::Manual);
    Listener listener;
    HWAVEOUT device = nullptr;
    const WAVEFORMATEX format = Format(1, 8000, 8);
    ASSERT_EQ(OpenDevice(&device, listener, format), MMSYSERR_NOERROR);
    ASSERT_NE(device, nullptr);
    ManualWaveOut* manual = ManualWaveOut::Current();
    ASSERT_NE(manual, nullptr);

    Block a(6, 'a'), b(4, 'b');
    ASSERT_EQ(waveOutPrepareHeader(device, &a.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutPrepareHeader(device, &b.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);

    // Each row rewrites the same prepared headers with new lengths; the
    // device must take the length of the write, not of the preparation.
    struct Round {
        DWORD lengthA, lengthB;
        const char* heard;
    };
    const Round rounds[] = {
        {6, 4, "aaaaaabbbb"},
        {2, 0, "aa"},
        {0, 3, "bbb"},
        {5, 1, "aaaaab"},
    };
    std::string expected;
    for (const Round& round : rounds) {
        a.header.dwBufferLength = round.lengthA;
        b.header.dwBufferLength = round.lengthB;
        ASSERT_EQ(waveOutWrite(device, &a.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        ASSERT_EQ(waveOutWrite(device, &b.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        EXPECT_EQ(manual->QueuedCount(), 2u);
        EXPECT_TRUE(a.header.dwFlags & WHDR_INQUEUE);
        EXPECT_FALSE(a.header.dwFlags & WHDR_DONE);
        EXPECT_TRUE(manual->Step());
        EXPECT_TRUE(a.header.dwFlags & WHDR_DONE);
        EXPECT_FALSE(a.header.dwFlags & WHDR_INQUEUE);
        EXPECT_TRUE(b.header.dwFlags & WHDR_INQUEUE);
        EXPECT_TRUE(manual->Step());
        EXPECT_FALSE(manual->Step());
        expected += round.heard;
    }
    EXPECT_EQ(manual->PlayedBytes(), expected);

    ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
    EXPECT_EQ(ManualWaveOut::Current(), nullptr);

    const std::vector<Event> events = listener.Snapshot();
    ASSERT_EQ(events.size(), 2 + 2 * std::size(rounds));
    EXPECT_EQ(events.front().message, MM_WOM_OPEN);
    EXPECT_EQ(events.back().message, MM_WOM_CLOSE);
    for (size_t i = 1; i + 1 < events.size(); ++i) {
        EXPECT_EQ(events[i].message, MM_WOM_DONE);
        EXPECT_EQ(events[i].header, i % 2 == 1 ? &a.header : &b.header) << i;
    }
    for (const Event& event : events)
        EXPECT_EQ(event.thread, std::this_thread::get_id());
}

TEST_F(WaveOutTest, ManualDeviceTakesWritesFromInsideItsCallback)
{
    UseBackend(AudioBackend::Manual);
    Listener listener;
    int refills = 0;
    listener.onDone = [&](HWAVEOUT device, WAVEHDR* header) {
        if (refills++ < 5) {
            EXPECT_EQ(waveOutWrite(device, header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        }
    };
    HWAVEOUT device = nullptr;
    ASSERT_EQ(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    Block blocks[] = {Block(1, '1'), Block(1, '2'), Block(1, '3')};
    ASSERT_TRUE(PrepareAndWrite(device, blocks));
    int steps = 0;
    while (ManualWaveOut::Current()->Step())
        ++steps;
    EXPECT_EQ(steps, 8);
    EXPECT_EQ(ManualWaveOut::Current()->PlayedBytes(), "12312312");
    EXPECT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, ResetReturnsEveryQueuedHeaderAndKeepsThePause)
{
    UseBackend(AudioBackend::Manual);
    Listener listener;
    HWAVEOUT device = nullptr;
    ASSERT_EQ(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    ManualWaveOut* manual = ManualWaveOut::Current();
    Block blocks[] = {Block(3, 'x'), Block(3, 'y'), Block(3, 'z')};
    PrepareAndWrite(device, blocks);

    ASSERT_EQ(waveOutPause(device), MMSYSERR_NOERROR);
    EXPECT_TRUE(manual->IsPaused());
    EXPECT_FALSE(manual->Step());
    EXPECT_EQ(manual->QueuedCount(), 3u);
    EXPECT_EQ(waveOutClose(device), WAVERR_STILLPLAYING);
    EXPECT_EQ(waveOutUnprepareHeader(device, &blocks[1].header, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);

    ASSERT_EQ(waveOutReset(device), MMSYSERR_NOERROR);
    EXPECT_EQ(listener.Done(), Headers(blocks));
    for (Block& block : blocks)
        EXPECT_EQ(block.header.dwFlags & (WHDR_DONE | WHDR_INQUEUE | WHDR_PREPARED), WHDR_DONE | WHDR_PREPARED);
    EXPECT_EQ(manual->QueuedCount(), 0u);
    EXPECT_TRUE(manual->IsPaused());
    EXPECT_EQ(manual->PlayedBytes(), "");

    // Reset delivered everything: nothing is left for a step to run.
    const size_t eventsAfterReset = listener.Snapshot().size();
    EXPECT_FALSE(manual->Step());
    waveOutRestart(device);
    EXPECT_FALSE(manual->Step());
    EXPECT_EQ(listener.Snapshot().size(), eventsAfterReset);

    EXPECT_EQ(waveOutUnprepareHeader(device, &blocks[1].header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutWrite(device, &blocks[1].header, sizeof(WAVEHDR)), WAVERR_UNPREPARED);
    ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
    EXPECT_EQ(listener.Snapshot().back().message, MM_WOM_CLOSE);
}

TEST_F(WaveOutTest, BadHandlesFormatsAndHeadersAreRefused)
{
    UseBackend(AudioBackend::Manual);
    Listener listener;
    HWAVEOUT closed = nullptr;
    ASSERT_EQ(OpenDevice(&closed, listener), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutClose(closed), MMSYSERR_NOERROR);
    Block block(4);

    struct Call {
        const char* name;
        std::function<MMRESULT(HWAVEOUT)> run;
    };
    const Call calls[] = {
        {"prepare", [&](HWAVEOUT h) { return waveOutPrepareHeader(h, &block.header, sizeof(WAVEHDR)); }},
        {"unprepare", [&](HWAVEOUT h) { return waveOutUnprepareHeader(h, &block.header, sizeof(WAVEHDR)); }},
        {"write", [&](HWAVEOUT h) { return waveOutWrite(h, &block.header, sizeof(WAVEHDR)); }},
        {"pause", [](HWAVEOUT h) { return waveOutPause(h); }},
        {"restart", [](HWAVEOUT h) { return waveOutRestart(h); }},
        {"reset", [](HWAVEOUT h) { return waveOutReset(h); }},
        {"close", [](HWAVEOUT h) { return waveOutClose(h); }},
    };
    const HWAVEOUT stale[] = {nullptr, closed, reinterpret_cast<HWAVEOUT>(uintptr_t{12345678})};
    for (const Call& call : calls)
        for (HWAVEOUT handle : stale)
            EXPECT_EQ(call.run(handle), MMSYSERR_INVALHANDLE) << call.name;

    struct FormatCase {
        const char* name;
        WAVEFORMATEX format;
    };
    WAVEFORMATEX floatFormat = Format(1, 8000, 16);
    floatFormat.wFormatTag = 3;
    WAVEFORMATEX badAlign = Format(2, 8000, 16);
    badAlign.nBlockAlign = 2;
    const FormatCase formats[] = {
        {"24-bit", Format(1, 8000, 24)},
        {"no channels", Format(0, 8000, 16)},
        {"no rate", Format(1, 0, 16)},
        {"float tag", floatFormat},
        {"block align", badAlign},
    };
    const size_t eventsBefore = listener.Snapshot().size();
    for (const FormatCase& c : formats) {
        HWAVEOUT device = reinterpret_cast<HWAVEOUT>(uintptr_t{1});
        EXPECT_NE(OpenDevice(&device, listener, c.format), MMSYSERR_NOERROR) << c.name;
        EXPECT_EQ(device, nullptr) << c.name;
    }
    HWAVEOUT device = nullptr;
    EXPECT_NE(waveOutOpen(&device, WAVE_MAPPER, nullptr, 0, 0, CALLBACK_FUNCTION), MMSYSERR_NOERROR);
    EXPECT_EQ(listener.Snapshot().size(), eventsBefore);
    EXPECT_EQ(ManualWaveOut::Current(), nullptr);
}

TEST_F(WaveOutTest, UnderrunsCountGapsButNotTheEndPauseOrReset)
{
    UseBackend(AudioBackend::Manual);
    Listener listener;
    HWAVEOUT device = nullptr;
    ASSERT_EQ(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    ManualWaveOut* manual = ManualWaveOut::Current();
    Block a(2), b(2);
    waveOutPrepareHeader(device, &a.header, sizeof(WAVEHDR));
    waveOutPrepareHeader(device, &b.header, sizeof(WAVEHDR));

    struct Action {
        const char* what;
        std::function<void()> run;
        uint64_t underrunsAfter;
    };
    const Action actions[] = {
        {"first write", [&] { waveOutWrite(device, &a.header, sizeof(WAVEHDR)); }, 0},
        {"second write while queued", [&] { waveOutWrite(device, &b.header, sizeof(WAVEHDR)); }, 0},
        {"play both", [&] { manual->Step(), manual->Step(); }, 0},
        {"write after the queue ran dry", [&] { waveOutWrite(device, &a.header, sizeof(WAVEHDR)); }, 1},
        {"pause, then play nothing", [&] { waveOutPause(device); }, 1},
        {"reset empties the queue", [&] { waveOutReset(device); }, 1},
        {"write after reset", [&] { waveOutWrite(device, &a.header, sizeof(WAVEHDR)); }, 1},
        {"restart and play it", [&] { waveOutRestart(device), manual->Step(); }, 1},
        {"the end: nothing more comes", [] {}, 1},
        {"a late write is a gap", [&] { waveOutWrite(device, &b.header, sizeof(WAVEHDR)); }, 2},
        {"and its end is not", [&] { manual->Step(); }, 2},
    };
    for (const Action& action : actions) {
        action.run();
        EXPECT_EQ(waveOutGetUnderruns(device), action.underrunsAfter) << action.what;
    }
    EXPECT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, NullDeviceCompletesInOrderAtRoughlyTheByteRateAndCountsALateWriteAsAGap)
{
    UseBackend(AudioBackend::Null);
    Listener listener;
    HWAVEOUT device = nullptr;
    const auto opened = Steady::now();
    ASSERT_EQ(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    // OPEN is delivered on the device's own thread, before the open returns.
    const std::vector<Event> atOpen = listener.Snapshot();
    ASSERT_EQ(atOpen.size(), 1u);
    EXPECT_EQ(atOpen[0].message, MM_WOM_OPEN);
    EXPECT_NE(atOpen[0].thread, std::this_thread::get_id());

    // 50 + 0 + 100 + 50 ms of sound at 8000 bytes per second.
    Block blocks[] = {Block(400), Block(0), Block(800), Block(400)};
    ASSERT_TRUE(PrepareAndWrite(device, blocks));
    ASSERT_TRUE(listener.WaitForDone(4));
    const auto took = Steady::now() - opened;
    EXPECT_GE(took, std::chrono::milliseconds(190));
    EXPECT_LT(took, std::chrono::seconds(3));
    EXPECT_EQ(listener.Done(), Headers(blocks));
    EXPECT_EQ(waveOutGetUnderruns(device), 0u);

    // A write after the queue ran dry is one gap; its own end is none.
    Block late[] = {Block(16)};
    ASSERT_TRUE(PrepareAndWrite(device, late));
    ASSERT_TRUE(listener.WaitForDone(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(waveOutGetUnderruns(device), 1u);
    ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
    EXPECT_EQ(listener.Snapshot().back().message, MM_WOM_CLOSE);
}

TEST_F(WaveOutTest, NullDeviceHoldsThePausedQueueAndRefusesToCloseOverIt)
{
    UseBackend(AudioBackend::Null);
    Listener listener;
    HWAVEOUT device = nullptr;
    ASSERT_EQ(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutPause(device), MMSYSERR_NOERROR);
    Block blocks[] = {Block(80), Block(80)};
    PrepareAndWrite(device, blocks);

    std::this_thread::sleep_for(std::chrono::milliseconds(120));  // six times their length
    EXPECT_TRUE(listener.Done().empty());
    EXPECT_EQ(waveOutClose(device), WAVERR_STILLPLAYING);
    EXPECT_EQ(waveOutUnprepareHeader(device, &blocks[0].header, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);

    ASSERT_EQ(waveOutRestart(device), MMSYSERR_NOERROR);
    ASSERT_TRUE(listener.WaitForDone(2));
    EXPECT_EQ(listener.Done(), Headers(blocks));
    ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
    const std::vector<Event> events = listener.Snapshot();
    EXPECT_EQ(events.back().message, MM_WOM_CLOSE);
    EXPECT_EQ(events.size(), 4u);
}

// The engine's way of stopping: a flag that keeps the callback from writing,
// then a reset from the host's thread while the device thread may be inside
// a callback that is about to write.
TEST_F(WaveOutTest, ResetWhileTheCallbackRefillsLosesAndDuplicatesNothing)
{
    UseBackend(AudioBackend::Null);
    constexpr int kBlocks = 4;
    Block blocks[kBlocks] = {Block(8), Block(8), Block(8), Block(8)};  // a millisecond each
    std::atomic<int> written[kBlocks] = {};
    std::atomic<int> done[kBlocks] = {};
    std::atomic<bool> stopping{false};
    std::atomic<bool> resetReturned{false};
    std::atomic<int> callbacksAfterReset{0};
    auto indexOf = [&](WAVEHDR* header) {
        for (int i = 0; i < kBlocks; ++i)
            if (&blocks[i].header == header)
                return i;
        return -1;
    };

    Listener listener;
    listener.onDone = [&](HWAVEOUT device, WAVEHDR* header) {
        if (resetReturned.load())
            ++callbacksAfterReset;
        const int index = indexOf(header);
        ASSERT_GE(index, 0);
        ++done[index];
        if (stopping.load())
            return;
        std::this_thread::yield();  // widen the window between the check and the write
        if (waveOutWrite(device, header, sizeof(WAVEHDR)) == MMSYSERR_NOERROR)
            ++written[index];
    };
    HWAVEOUT device = nullptr;
    ASSERT_EQ(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    for (Block& block : blocks)
        waveOutPrepareHeader(device, &block.header, sizeof(WAVEHDR));

    for (int round = 0; round < 25; ++round) {
        SCOPED_TRACE(round);
        stopping = false;
        resetReturned = false;
        for (int i = 0; i < kBlocks; ++i) {
            ASSERT_EQ(waveOutWrite(device, &blocks[i].header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
            ++written[i];
        }
        std::this_thread::sleep_for(std::chrono::microseconds(500 + 700 * (round % 7)));
        stopping = true;
        ASSERT_EQ(waveOutReset(device), MMSYSERR_NOERROR);
        resetReturned = true;
        for (int i = 0; i < kBlocks; ++i) {
            EXPECT_EQ(written[i].load(), done[i].load()) << "block " << i;
            EXPECT_FALSE(blocks[i].header.dwFlags & WHDR_INQUEUE);
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(callbacksAfterReset.load(), 0);
    ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
}

// Backends differ in which thread runs the callback; a reset made from
// inside it must return the rest of the queue there and then, on both.
TEST_F(WaveOutTest, ResetFromInsideTheCallbackReturnsTheRestAtOnce)
{
    for (AudioBackend backend : {AudioBackend::Manual, AudioBackend::Null}) {
        SCOPED_TRACE(static_cast<int>(backend));
        UseBackend(backend);
        Listener listener;
        std::vector<size_t> doneSeenByReset;
        bool resetDone = false;
        listener.onDone = [&](HWAVEOUT device, WAVEHDR*) {
            if (resetDone)
                return;
            resetDone = true;
            EXPECT_EQ(waveOutReset(device), MMSYSERR_NOERROR);
            doneSeenByReset.push_back(listener.Done().size());
        };
        HWAVEOUT device = nullptr;
        ASSERT_EQ(OpenDevice(&device, listener), MMSYSERR_NOERROR);
        Block blocks[] = {Block(8), Block(8), Block(8)};
        ASSERT_TRUE(PrepareAndWrite(device, blocks));
        EXPECT_EQ(waveOutWrite(device, &blocks[1].header, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
        if (backend == AudioBackend::Manual)
            ManualWaveOut::Current()->Step();
        ASSERT_TRUE(listener.WaitForDone(3));
        // The close is served once the outer callback has returned.
        ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
        EXPECT_EQ(listener.Done(), Headers(blocks));
        EXPECT_EQ(doneSeenByReset, std::vector<size_t>{3});
    }
}

// A sink the test drives: it takes at most `room` bytes, hears what the test
// says, and on a pause gives back `giveBack` unheard bytes, as a card
// without a hardware pause does.
struct ScriptedSink final : wave::WaveSink {
    struct Script {
        std::mutex mutex;
        std::string accepted;
        uint64_t heard = 0;
        size_t room = 0;
        uint64_t giveBack = 0;
    };
    std::shared_ptr<Script> script = std::make_shared<Script>();

    MMRESULT Open(const WAVEFORMATEX&) override { return MMSYSERR_NOERROR; }
    void Close() override {}
    size_t Write(const char* data, size_t bytes) override
    {
        std::lock_guard lock(script->mutex);
        const size_t took = std::min(bytes, script->room);
        script->room -= took;
        script->accepted.append(data, took);
        return took;
    }
    uint64_t Played() override
    {
        std::lock_guard lock(script->mutex);
        return std::min<uint64_t>(script->heard, script->accepted.size());
    }
    uint64_t Pause() override
    {
        std::lock_guard lock(script->mutex);
        const uint64_t back = script->giveBack;
        script->accepted.resize(script->accepted.size() - back);
        return back;
    }
    void Resume() override {}
    void Drop() override {}
    int64_t WaitHintNs(uint64_t) override { return 1'000'000; }
};

TEST_F(WaveOutTest, BytesGivenBackAtAPauseAreFedAgainExactlyOnce)
{
    struct Case {
        const char* what;
        std::vector<std::string> buffers;
        size_t room;
        uint64_t heardBeforePause;
        size_t doneBeforePause;
        uint64_t giveBack;
    };
    const Case cases[] = {
        {"the sink full inside the second buffer", {"AAAAAA", "BBBBBB"}, 10, 6, 1, 4},
        {"back across an empty buffer into the first", {"AAAA", "", "CCCC"}, 100, 2, 0, 6},
        {"back to the first heard byte", {"AAAA", "BB"}, 100, 4, 1, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto sink = std::make_unique<ScriptedSink>();
        std::shared_ptr<ScriptedSink::Script> script = sink->script;
        script->room = c.room;
        Listener listener;
        auto device = wave::MakeThreadedDevice(std::move(sink), Format(1, 8000, 8), &Listener::Proc,
                                               reinterpret_cast<DWORD_PTR>(&listener));
        ASSERT_EQ(device->Start(), MMSYSERR_NOERROR);
        std::vector<Block> blocks(c.buffers.begin(), c.buffers.end());
        std::string all;
        for (Block& block : blocks) {
            all += block.data;
            device->Prepare(&block.header);
            ASSERT_EQ(device->Write(&block.header), MMSYSERR_NOERROR);
        }
        {
            std::lock_guard lock(script->mutex);
            script->heard = c.heardBeforePause;
        }
        ASSERT_TRUE(listener.WaitForDone(c.doneBeforePause));
        // A stream of fewer buffers than a player keeps in flight starts once
        // writes stop coming; wait until the sink holds what it has room for.
        const size_t expectedAccepted = std::min(c.room, all.size());
        for (int waited = 0; waited < 2000; ++waited) {
            {
                std::lock_guard lock(script->mutex);
                if (script->accepted.size() >= expectedAccepted) break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(listener.Done().size(), c.doneBeforePause);

        script->mutex.lock();
        script->giveBack = script->accepted.size() - c.heardBeforePause;
        EXPECT_EQ(script->giveBack, c.giveBack);
        script->mutex.unlock();
        ASSERT_EQ(device->Pause(), MMSYSERR_NOERROR);
        {
            std::lock_guard lock(script->mutex);
            script->room = 1000;
            script->heard = UINT64_MAX;
        }
        ASSERT_EQ(device->Restart(), MMSYSERR_NOERROR);
        ASSERT_TRUE(listener.WaitForDone(blocks.size()));
        ASSERT_EQ(device->Close(), MMSYSERR_NOERROR);
        EXPECT_EQ(script->accepted, all);
        EXPECT_EQ(listener.Done(), Headers(blocks));
    }
}

TEST_F(WaveOutTest, CaptureDeviceWritesTheHeardBytesAsAWaveFile)
{
    struct Case {
        WAVEFORMATEX format;
        std::vector<std::string> buffers;
    };
    const Case cases[] = {
        {Format(1, 8000, 8), {"abc", "", "defgh"}},
        {Format(2, 44100, 16), {std::string("\x01\x00\xff\x7f", 4), "xyz", std::string(3000, '\x5a')}},
        {Format(1, 22050, 16), {}},
    };
    const std::string path = std::string(TEMPVOX_BINARY_DIR) + "/WaveOut_test_capture.wav";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format.nSamplesPerSec);
        std::remove(path.c_str());
        UseBackend(AudioBackend::Capture, path);
        Listener listener;
        HWAVEOUT device = nullptr;
        ASSERT_EQ(OpenDevice(&device, listener, c.format), MMSYSERR_NOERROR);
        std::vector<Block> blocks(c.buffers.begin(), c.buffers.end());
        std::string expected;
        for (const std::string& bytes : c.buffers) expected += bytes;
        ASSERT_TRUE(PrepareAndWrite(device, blocks));
        ASSERT_TRUE(listener.WaitForDone(blocks.size()));
        ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
        EXPECT_EQ(CapturedByteCount(), expected.size());
        const testwav::Format format{WAVE_FORMAT_PCM, c.format.nChannels, c.format.nSamplesPerSec,
                                     c.format.wBitsPerSample};
        EXPECT_EQ(testwav::ReadFile(path), testwav::CanonicalWav(format, expected));
    }
    std::remove(path.c_str());
}

TEST_F(WaveOutTest, DevicesThatCannotOpenLeaveNothingBehind)
{
    Listener listener;
    UseBackend(AudioBackend::Capture, "");
    HWAVEOUT device = nullptr;
    EXPECT_NE(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    EXPECT_EQ(device, nullptr);

    UseBackend(AudioBackend::Capture, "/nonexistent-folder/out.wav");
    EXPECT_NE(OpenDevice(&device, listener), MMSYSERR_NOERROR);
    EXPECT_EQ(device, nullptr);

    AudioBackendConfig alsa;
    alsa.backend = AudioBackend::Alsa;
    alsa.alsaDevice = "tempvox-no-such-device";
    SetAudioBackend(alsa);
    EXPECT_FALSE(AlsaOutputAvailable(alsa.alsaDevice));
    EXPECT_NE(OpenDevice(&device, listener, Format(1, 8000, 16)), MMSYSERR_NOERROR);
    EXPECT_EQ(device, nullptr);
    EXPECT_TRUE(listener.Snapshot().empty());
}

}  // namespace

namespace {

uint64_t Position(HWAVEOUT device)
{
    uint64_t bytes = UINT64_MAX;
    EXPECT_EQ(waveOutGetPosition(device, &bytes), MMSYSERR_NOERROR);
    return bytes;
}

}  // namespace

// The position counts the written bytes in order as they are heard, and a
// reset passes over whatever was still queued, so an owner that numbers its
// bytes as it writes them can always tell which one is being heard.
TEST_F(WaveOutTest, PositionCountsWrittenBytesAsTheyAreHeardOrThrownAway)
{
    UseBackend(AudioBackend::Manual);
    Listener listener;
    HWAVEOUT device = nullptr;
    ASSERT_EQ(OpenDevice(&device, listener, Format(1, 8000, 8)), MMSYSERR_NOERROR);
    ManualWaveOut* manual = ManualWaveOut::Current();
    Block blocks[] = {Block(100), Block(200), Block(300), Block(50)};
    EXPECT_EQ(Position(device), 0u);
    ASSERT_TRUE(PrepareAndWrite(device, blocks));
    const uint64_t afterSteps[] = {100, 300};
    for (uint64_t expected : afterSteps) {
        ASSERT_TRUE(manual->Step());
        EXPECT_EQ(Position(device), expected);
    }
    ASSERT_EQ(waveOutReset(device), MMSYSERR_NOERROR);
    EXPECT_EQ(Position(device), 650u) << "the reset passed over 300 + 50 queued bytes";
    uint64_t unused = 0;
    EXPECT_EQ(waveOutGetPosition(nullptr, &unused), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(waveOutGetPosition(device, nullptr), MMSYSERR_INVALPARAM);
    ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);

    // On the paced null device the position moves within a header, at the
    // byte rate: 8000 bytes a second, so 1600 bytes take 200 ms.
    UseBackend(AudioBackend::Null);
    Listener paced;
    ASSERT_EQ(OpenDevice(&device, paced, Format(1, 8000, 8)), MMSYSERR_NOERROR);
    Block long_[] = {Block(1600)};
    ASSERT_TRUE(PrepareAndWrite(device, long_));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const uint64_t midway = Position(device);
    EXPECT_GT(midway, 200u);
    EXPECT_LT(midway, 1600u);
    ASSERT_TRUE(paced.WaitForDone(1));
    EXPECT_EQ(Position(device), 1600u);
    ASSERT_EQ(waveOutClose(device), MMSYSERR_NOERROR);
}
