#include <gtest/gtest.h>

#include <random>

#include "dsp/WordCounter.h"
#include "engine/WavOut.h"
#include "support/WavOutProbe.h"
#include "platform/Messages.h"
#include "support/HostHarness.h"
#include "support/WavFiles.h"

using namespace testwav;
using Message = HostHarness::Message;

namespace {

// 16-bit mono at 22050 Hz: 44100 bytes a second, blocks of 4410 bytes.
const Format kSpeechFormat{1, 1, 22050, 16};

std::string PatternData(size_t bytes)
{
    std::string data(bytes, '\0');
    for (size_t i = 0; i < bytes; ++i) data[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return data;
}

std::string MakeWav(const std::string& name, size_t dataBytes)
{
    return WriteFile(name, CanonicalWav(kSpeechFormat, PatternData(dataBytes)));
}

class EngineTest : public ::testing::Test {
protected:
    HostHarness host;
    CWavOut engine;

    void SetUp() override { engine.m_hNotifyWnd = host.Window(); }
    void TearDown() override { engine.StopPlay(); }

    size_t Count(UINT message)
    {
        host.Pump();
        return host.Received(message).size();
    }
};

}  // namespace

TEST_F(EngineTest, EndOfFileRowByRow)
{
    // Ten blocks of 4410 bytes and a last one of 100: 44244 bytes, 1002 ms.
    std::string path = MakeWav("eof.wav", 44200);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    EXPECT_EQ(engine.GetTotalPlayTime(), 1002u);
    EXPECT_EQ(host.Queued(), 4u);

    struct Row {
        int block;
        uint64_t position;
        uint32_t history3;
        uint32_t time;
        size_t queuedAfter;
    };
    const Row rows[] = {
        {6, 44144, 26504, 600, 4}, {7, 44244, 30914, 699, 4}, {8, 44244, 35324, 800, 3},
        {9, 44244, 39734, 899, 2}, {10, 44244, 44144, 1000, 1}, {11, 44244, 44244, 1002, 0},
    };
    int returned = 0;
    for (const Row& row : rows) {
        while (returned < row.block) {
            ASSERT_TRUE(host.Step());
            ++returned;
        }
        SCOPED_TRACE(row.block);
        EXPECT_EQ(engine.FilePosition(), row.position);
        EXPECT_EQ(CWavOutProbe::PositionHistory(engine, 3), row.history3);
        EXPECT_EQ(engine.GetCurrentPlayTime(), row.time);
        EXPECT_EQ(host.Queued(), row.queuedAfter);
        EXPECT_EQ(Count(WM_PLAYCOMPLETE), row.block >= 8 ? 1u : 0u);
    }
    EXPECT_EQ(engine.GetPlayerState(), 1);
    EXPECT_TRUE(CWavOutProbe::IsEnded(engine));
    // The end leaves the device open; a new start waits for the stop.
    EXPECT_FALSE(engine.StartPlay(path.c_str()));
    EXPECT_TRUE(engine.StopPlay());
    EXPECT_EQ(Count(WM_PLAYCLOSED), 0u);
}

TEST_F(EngineTest, ShortFileEndsOnFirstReturnedBuffer)
{
    // Three short blocks: the fourth buffer is queued with 0 bytes.
    std::string path = MakeWav("short.wav", 3 * 4410 - 200);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(host.Step());
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 1u);
    // The history passes through its starting values before it holds the end.
    std::vector<uint32_t> history3;
    history3.push_back(CWavOutProbe::PositionHistory(engine, 3));
    while (host.Step()) history3.push_back(CWavOutProbe::PositionHistory(engine, 3));
    EXPECT_EQ(history3, (std::vector<uint32_t>{4410, 8820, 13230, 44 + 3 * 4410 - 200}));
}

TEST_F(EngineTest, SeeksLandOnTheByteGridAndLagTheHeardTime)
{
    std::string path = MakeWav("seek.wav", 5 * 44100);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));

    engine.SetCurrentPlayTime(1000);
    EXPECT_EQ(engine.FilePosition(), 44144u);
    EXPECT_EQ(engine.GetCurrentPlayTime(), 600u);

    // The first 17640 bytes are not lagged: 100, 200, 300, then 0.
    engine.SetCurrentPlayTime(100);
    std::vector<uint32_t> times{engine.GetCurrentPlayTime()};
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(host.Step());
        times.push_back(engine.GetCurrentPlayTime());
    }
    EXPECT_EQ(times, (std::vector<uint32_t>{100, 200, 300, 0, 100}));

    struct SeekCase {
        uint32_t target;
        uint64_t position;  // expected file position afterwards; 0: unchanged
    };
    const SeekCase seeks[] = {
        // 10 ms is 441 bytes, moved forward onto the sample grid.
        {0, 44}, {5000, 44 + 5 * 44100}, {5001, 0}, {4294967295u, 0}, {1, 44 + 44}, {10, 44 + 442},
    };
    for (const SeekCase& seek : seeks) {
        SCOPED_TRACE(seek.target);
        uint64_t before = engine.FilePosition();
        engine.SetCurrentPlayTime(seek.target);
        EXPECT_EQ(engine.FilePosition(), seek.position != 0 ? seek.position : before);
    }

    // Jumps start from what is heard and stop at both ends.
    engine.SetCurrentPlayTime(3000);
    uint32_t heard = engine.GetCurrentPlayTime();
    engine.SpeedBack(heard + 10000);
    EXPECT_EQ(engine.FilePosition(), 44u);
    engine.SpeedUp(60000);
    EXPECT_EQ(engine.FilePosition(), 44u + 5 * 44100);
}

TEST_F(EngineTest, TimeIsZeroWhenClosed)
{
    std::string path = MakeWav("closed.wav", 44100);
    EXPECT_EQ(engine.GetTotalPlayTime(), 0u);
    engine.SetCurrentPlayTime(0);
    engine.SpeedUp(100);
    engine.SpeedBack(100);
    EXPECT_EQ(engine.GetCurrentPlayTime(), 0u);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(engine.StopPlay());
    EXPECT_EQ(engine.GetTotalPlayTime(), 0u);
    EXPECT_EQ(engine.GetCurrentPlayTime(), 0u);
    engine.ResetToPlayFromCurPos();
    EXPECT_EQ(host.Queued(), 0u);
}

TEST_F(EngineTest, DerivedDataLengthAndTimeConversion)
{
    struct Case {
        const char* name;
        std::string bytes;
        uint32_t dataStart;
        uint32_t totalMs;
    };
    std::string data = PatternData(3 * 44100 + 13230);  // 3.3 s
    std::string fmt16 = RiffAndFormat(kSpeechFormat);
    std::string fact = "fact";
    PutU32(fact, 4);
    PutU32(fact, 0);
    std::string zeroData = "data";
    PutU32(zeroData, 0);
    const Case cases[] = {
        // The float of 3.3 s decides: 3299 ms.
        {"canonical", CanonicalWav(kSpeechFormat, data), 44, 3299},
        // Length 0 in the head: derived as file length - 36, 8 bytes more.
        {"stated_zero", fmt16 + zeroData + data, 44, static_cast<uint32_t>(float((data.size() + 8) / 44100.0) * 1000.0)},
        {"fact", fmt16 + fact + zeroData + data, 56, static_cast<uint32_t>(float((data.size() + 8) / 44100.0) * 1000.0)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CWavOut local;
        std::string path = WriteFile(std::string(c.name) + ".wav", c.bytes);
        ASSERT_TRUE(local.StartPlay(path.c_str()));
        EXPECT_EQ(CWavOutProbe::DataStart(local), c.dataStart);
        EXPECT_EQ(local.GetTotalPlayTime(), c.totalMs);
        local.StopPlay();
    }
}

TEST_F(EngineTest, FailuresReportInOrderAndLeaveTheirState)
{
    std::string good = MakeWav("good.wav", 10 * 4410);
    std::string notRiff = WriteFile("not_riff.wav", "RIFX" + std::string(60, '\0'));
    Format wide{1, 1, 22050, 24};
    std::string wide24 = WriteFile("wide.wav", CanonicalWav(wide, PatternData(6000)));

    struct Case {
        const char* name;
        const char* path;
        const char* failOperation;
        int failAfter;
        std::vector<int> boxes;
        uint16_t stateAfter;
        size_t queuedAfter;
        bool totalKnown;
    };
    const Case cases[] = {
        {"absent_path", nullptr, nullptr, 0, {205, 208}, 0, 0, false},
        {"empty_path", "", nullptr, 0, {208}, 0, 0, false},
        {"missing_file", "/nonexistent/dir/x.wav", nullptr, 0, {208}, 0, 0, false},
        {"not_riff", notRiff.c_str(), nullptr, 0, {206, 208}, 0, 0, false},
        {"24_bit", wide24.c_str(), nullptr, 0, {208}, 0, 0, false},
        {"device_open", good.c_str(), "open", 0, {209}, 0, 0, true},
        {"third_prepare", good.c_str(), "prepare", 2, {210}, 0, 0, true},
        {"first_write", good.c_str(), "write", 0, {211}, 0, 0, true},
        {"second_write", good.c_str(), "write", 1, {211}, 1, 1, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HostHarness local;
        CWavOut failing;
        failing.m_hNotifyWnd = local.Window();
        if (c.failOperation != nullptr) platform::ManualWaveOut::FailNext(c.failOperation, c.failAfter);
        EXPECT_FALSE(failing.StartPlay(c.path));
        EXPECT_EQ(local.BoxIds(), c.boxes);
        EXPECT_EQ(failing.GetPlayerState(), c.stateAfter);
        EXPECT_EQ(local.Queued(), c.queuedAfter);
        EXPECT_EQ(failing.GetTotalPlayTime() != 0, c.totalKnown);
        EXPECT_EQ(failing.GetCurrentPlayTime() != 0, false);
        failing.StopPlay();
    }
}

TEST_F(EngineTest, DirectBoxesOfPauseResumeAndStop)
{
    std::string path = MakeWav("direct.wav", 20 * 4410);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));

    platform::ManualWaveOut::FailNext("pause");
    EXPECT_FALSE(engine.PausePlay());
    EXPECT_EQ(engine.GetPlayerState(), 1);
    ASSERT_TRUE(engine.PausePlay());
    platform::ManualWaveOut::FailNext("restart");
    EXPECT_FALSE(engine.ResumePlay());
    EXPECT_EQ(engine.GetPlayerState(), 2);
    platform::ManualWaveOut::FailNext("reset");
    EXPECT_FALSE(engine.StopPlay());
    platform::ManualWaveOut::FailNext("close");
    EXPECT_FALSE(engine.StopPlay());
    EXPECT_EQ(engine.GetPlayerState(), 2);

    std::vector<std::string> texts;
    for (const auto& box : host.Boxes()) {
        EXPECT_EQ(box.catalogueId, -1);
        EXPECT_EQ(box.caption, "提示");
        texts.push_back(box.text);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"音频暂停播放失败!", "音频重新播放失败!", "停止音频播放失败!",
                                               "停止音频播放失败!"}));
    EXPECT_TRUE(engine.StopPlay());
    EXPECT_EQ(engine.GetPlayerState(), 0);
}

TEST_F(EngineTest, StopBeforeTheEndTellsClosedOnce)
{
    std::string path = MakeWav("stop.wav", 20 * 4410);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(host.Step(2));
    EXPECT_TRUE(engine.StopPlay());
    EXPECT_EQ(Count(WM_PLAYCLOSED), 1u);
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 0u);
    EXPECT_EQ(engine.GetPlayerState(), 0);
    EXPECT_FALSE(engine.StopPlay());

    // A stop after the end tells nothing more.
    host.Take();
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    while (host.Step()) {
    }
    EXPECT_TRUE(engine.StopPlay());
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 1u);
    EXPECT_EQ(Count(WM_PLAYCLOSED), 0u);
}

TEST_F(EngineTest, PauseAndResumeWithAndWithoutSeek)
{
    std::string data = PatternData(40 * 4410);
    std::string path = WriteFile("pause.wav", CanonicalWav(kSpeechFormat, data));
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(host.Step(2));
    size_t playedBefore = host.PlayedBytes().size();

    // Without a seek the queue stays as it was.
    ASSERT_TRUE(engine.PausePlay());
    ASSERT_TRUE(engine.PausePlay());
    EXPECT_FALSE(host.Step());
    EXPECT_TRUE(engine.ResumePlay());
    EXPECT_FALSE(engine.ResumePlay());
    EXPECT_EQ(host.Queued(), 4u);
    ASSERT_TRUE(host.Step());
    EXPECT_EQ(host.PlayedBytes().size(), playedBefore + 4410);
    EXPECT_EQ(host.PlayedBytes().substr(playedBefore), data.substr(2 * 4410, 4410));

    // With a seek the queue is thrown away and the new place is heard next.
    ASSERT_TRUE(engine.PausePlay());
    engine.SetCurrentPlayTime(2000);
    EXPECT_TRUE(engine.ResumePlay());
    EXPECT_EQ(engine.GetPlayerState(), 1);
    EXPECT_EQ(host.Queued(), 4u);
    size_t mark = host.PlayedBytes().size();
    ASSERT_TRUE(host.Step());
    EXPECT_EQ(host.PlayedBytes().substr(mark), data.substr(2 * 44100, 4410));
}

TEST_F(EngineTest, LoopAndSentenceChecks)
{
    std::string path = MakeWav("loop.wav", 5 * 44100);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));

    // A sentence span fires once, when the heard time reaches its end.
    engine.SetOneSentenceTimeSpan(0, 300);
    int stepsToSentence = 0;
    while (Count(WM_ONESENTENCEDONE) == 0 && stepsToSentence < 30) {
        ASSERT_TRUE(host.Step());
        ++stepsToSentence;
    }
    EXPECT_GE(engine.GetCurrentPlayTime(), 300u);
    ASSERT_TRUE(host.Step(10));
    EXPECT_EQ(Count(WM_ONESENTENCEDONE), 1u);
    // A span whose start is not below its end never fires.
    engine.SetOneSentenceTimeSpan(900, 900);
    ASSERT_TRUE(host.Step(10));
    EXPECT_EQ(Count(WM_ONESENTENCEDONE), 1u);

    // A loop of 1000..1500 keeps play inside it and never reaches the end.
    engine.SetLoopPlaySection(TRUE, 1000, 1500);
    uint32_t latest = 0;
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(host.Step());
        latest = std::max(latest, engine.GetCurrentPlayTime());
    }
    EXPECT_GE(latest, 1400u);
    EXPECT_LE(latest, 1500u);
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 0u);

    // A loop whose end is not above its start never wraps, and the end of
    // the file is not detected while the loop flag stands.
    engine.SetLoopPlaySection(TRUE, 1500, 1500);
    for (int i = 0; i < 80; ++i) ASSERT_TRUE(host.Step());
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 0u);
    engine.SetLoopPlaySection(FALSE, 0, 0);
    while (host.Step()) {
    }
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 1u);
}

TEST_F(EngineTest, LoopEndBeyondTheFileStillWraps)
{
    std::string path = MakeWav("loop_past_end.wav", 2 * 44100);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    engine.SetLoopPlaySection(TRUE, 500, 60000);
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(host.Step());
    // Play keeps cycling with full buffers instead of empty ones.
    size_t before = host.PlayedBytes().size();
    ASSERT_TRUE(host.Step(4));
    EXPECT_GT(host.PlayedBytes().size(), before + 3 * 4410);
}

TEST_F(EngineTest, WordCountCadenceAndSpanTime)
{
    // A voiced signal (a 150 Hz triangle) so that every block counts frames.
    std::vector<int16_t> samples(60 * 2205);
    for (size_t i = 0; i < samples.size(); ++i) {
        int phase = static_cast<int>(i % 147);
        samples[i] = static_cast<int16_t>(((phase < 74 ? phase : 147 - phase) - 37) * 400);
    }
    std::string data = Samples16(samples);
    std::string path = WriteFile("cadence.wav", CanonicalWav(kSpeechFormat, data));
    auto countOf = [&](size_t firstBlock, size_t blocks) {
        int32_t total = 0;
        for (size_t b = firstBlock; b < firstBlock + blocks; ++b) {
            total += CountVoicedFrames(reinterpret_cast<const uint8_t*>(data.data()) + b * 4410, 4410, 22050, 16);
        }
        return total;
    };
    ASSERT_GT(countOf(0, 1), 0);

    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    // The first ten seconds are reported inside the start, by a sent message.
    std::vector<Message> atStart = host.Received(WM_WORDCOUNT);
    ASSERT_EQ(atStart.size(), 1u);
    EXPECT_EQ(atStart[0].wParam, static_cast<WPARAM>(CountVoicedFrames(
                                     reinterpret_cast<const uint8_t*>(data.data()), static_cast<uint32_t>(data.size()), 22050, 16)));
    EXPECT_EQ(atStart[0].lParam, 10000);

    host.Take();
    std::vector<int> reportSteps;
    std::vector<LPARAM> spans;
    std::vector<WPARAM> counts;
    for (int refill = 1; refill <= 26; ++refill) {
        host.Clock().Advance(100);
        if (refill == 20) {
            // Two pauses in one span: only the second is taken off.
            ASSERT_TRUE(engine.PausePlay());
            host.Clock().Advance(1000);
            ASSERT_TRUE(engine.ResumePlay());
            ASSERT_TRUE(engine.PausePlay());
            host.Clock().Advance(250);
            ASSERT_TRUE(engine.ResumePlay());
        }
        ASSERT_TRUE(host.Step());
        for (const Message& m : host.Take()) {
            if (m.message == WM_WORDCOUNT) {
                reportSteps.push_back(refill);
                spans.push_back(m.lParam);
                counts.push_back(m.wParam);
            }
        }
    }
    EXPECT_EQ(reportSteps, (std::vector<int>{6, 16, 26}));
    EXPECT_EQ(spans, (std::vector<LPARAM>{600, 1000, 1000 + 1000}));
    // The first span covers nine blocks (four from the start, five refills);
    // the block that fills a span is counted into the next one.
    ASSERT_EQ(counts.size(), 3u);
    EXPECT_EQ(counts[0], static_cast<WPARAM>(countOf(0, 9)));
    EXPECT_EQ(counts[1], static_cast<WPARAM>(countOf(9, 10)));
}

TEST_F(EngineTest, JustPlayCountsNothing)
{
    std::string path = MakeWav("just.wav", 30 * 4410);
    engine.SetJustPlay(TRUE);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(host.Step(20));
    EXPECT_EQ(Count(WM_WORDCOUNT), 0u);
}

TEST_F(EngineTest, SecondStartWhilePlayingChangesNothing)
{
    std::string path = MakeWav("second.wav", 30 * 4410);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(host.Step(3));
    uint64_t position = engine.FilePosition();
    EXPECT_FALSE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(engine.PausePlay());
    EXPECT_FALSE(engine.StartPlay(path.c_str()));
    EXPECT_TRUE(host.Boxes().empty());
    EXPECT_EQ(engine.FilePosition(), position);
    EXPECT_EQ(host.Queued(), 4u);
}

TEST_F(EngineTest, ReplayFromCurrentPositionAfterTheEnd)
{
    std::string data = PatternData(12 * 4410);
    std::string path = WriteFile("replay.wav", CanonicalWav(kSpeechFormat, data));
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    while (host.Step()) {
    }
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 1u);
    EXPECT_EQ(host.Queued(), 0u);
    engine.SetCurrentPlayTime(0);
    engine.ResetToPlayFromCurPos();
    EXPECT_EQ(host.Queued(), 4u);
    EXPECT_EQ(engine.GetPlayerState(), 1);
    EXPECT_FALSE(CWavOutProbe::IsEnded(engine));
    size_t mark = host.PlayedBytes().size();
    ASSERT_TRUE(host.Step());
    EXPECT_EQ(host.PlayedBytes().substr(mark), data.substr(0, 4410));
    while (host.Step()) {
    }
    // The replay's end goes untold within the same opening.
    EXPECT_EQ(Count(WM_PLAYCOMPLETE), 1u);
}

TEST_F(EngineTest, ByteRatesThatCannotTimeTheFileAreRefusedAtOpen)
{
    // A fifth of a second of 16-bit mono at 22050 Hz: 8820 bytes of data in
    // a file of 8864, and the byte rate the format implies is 22050 x 2.
    const std::string data = PatternData(8820);
    struct Case {
        const char* name;
        uint32_t samplesPerSec;
        uint32_t avgBytesPerSec;
        std::vector<int> boxes;
        bool started;
    };
    const Case cases[] = {
        {"as the format implies", 22050, 44100, {}, true},
        // A writer's rounding, and a rate off by less than the file holds.
        {"one byte more", 22050, 44101, {}, true},
        {"off by the data length", 22050, 44100 + 8820, {}, true},
        // A tenth of these is 0 bytes: a read size that never reaches the end.
        {"zero", 22050, 0, {206, 208}, false},
        {"nine", 22050, 9, {206, 208}, false},
        {"ten, with a format to match", 5, 10, {}, true},
        // Four buffers of ten times a tenth of it: 16 GiB.
        {"four gibibytes", 22050, 0xFFFFFFFFu, {206, 208}, false},
        {"off by more than the file holds", 22050, 44100 + 8864 + 1, {206, 208}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string bytes = CanonicalWav(kSpeechFormat, data);
        for (int i = 0; i < 4; ++i) {
            bytes[24 + size_t(i)] = char(c.samplesPerSec >> (8 * i));
            bytes[28 + size_t(i)] = char(c.avgBytesPerSec >> (8 * i));
        }
        const std::string path = WriteFile("rate.wav", bytes);
        HostHarness local;
        CWavOut rated;
        rated.m_hNotifyWnd = local.Window();
        EXPECT_EQ(rated.StartPlay(path.c_str()) != FALSE, c.started);
        EXPECT_EQ(local.BoxIds(), c.boxes);
        if (c.started) {
            // Blocks of a tenth of the rate reach the end of the file.
            EXPECT_EQ(rated.ReadSize(), c.avgBytesPerSec / 10);
            for (int i = 0; i < 100000 && local.Step(); ++i) {
            }
            EXPECT_EQ(local.Queued(), 0u) << "play ran dry";
            const std::string played = local.PlayedBytes();
            EXPECT_GT(played.size(), 0u);
            EXPECT_EQ(played, data.substr(0, played.size()));
            local.Pump();
            EXPECT_EQ(local.Received(WM_PLAYCOMPLETE).size(), 1u);
        }
        rated.StopPlay();
    }
}

TEST_F(EngineTest, ARateNoDeviceTakesNeverSizesBuffersPastOneItWould)
{
    // 0x7FFFFFFF samples a second of two bytes: the head agrees with itself,
    // the device refuses the rate, and no block was sized from it beyond a
    // tenth of a second of 768 kHz, eight channels, 16 bits.
    std::string bytes = CanonicalWav(kSpeechFormat, PatternData(4410));
    const uint32_t samplesPerSec = 0x7FFFFFFFu;
    const uint32_t avgBytesPerSec = 0xFFFFFFFEu;
    for (int i = 0; i < 4; ++i) {
        bytes[24 + size_t(i)] = char(samplesPerSec >> (8 * i));
        bytes[28 + size_t(i)] = char(avgBytesPerSec >> (8 * i));
    }
    const std::string path = WriteFile("fast.wav", bytes);
    EXPECT_FALSE(engine.StartPlay(path.c_str()));
    EXPECT_EQ(host.BoxIds(), std::vector<int>{209});
    EXPECT_LE(engine.ReadSize(), 768000u * 8 * 2 / 10);
}

TEST_F(EngineTest, NoiseWhoseByteRateCannotTimeItIsRefusedLikeAForeignFile)
{
    const std::string noise = CanonicalWav(kSpeechFormat, PatternData(2000));
    struct Case {
        const char* name;
        uint32_t avgBytesPerSec;
        std::vector<int> boxes;
    };
    const Case cases[] = {
        {"as the format implies", 44100, {}},
        {"three", 3, {215}},
        {"four gibibytes", 0xFFFFFFFFu, {215}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string bytes = noise;
        for (int i = 0; i < 4; ++i) bytes[28 + size_t(i)] = char(c.avgBytesPerSec >> (8 * i));
        host.Boxes().clear();
        engine.LoadMixSound(WriteFile("noise_rate.wav", bytes).c_str());
        EXPECT_EQ(host.BoxIds(), c.boxes);
    }
}

TEST_F(EngineTest, ReplayWhileBuffersAreQueuedLeavesThemAlone)
{
    // Replay asked for while the device still holds buffers: the device
    // refuses the first queued header, so nothing new plays, and what it
    // holds must play as it was read, every block once and in order.
    const std::string data = PatternData(20 * 4410);
    const std::string path = WriteFile("replay_busy.wav", CanonicalWav(kSpeechFormat, data));
    engine.SetJustPlay(TRUE);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    ASSERT_TRUE(host.Step(2));
    struct Moment {
        const char* name;
        int stepsBefore;
    };
    // While playing all four buffers are queued, and the first is refused.
    const Moment moments[] = {{"while playing", 0}, {"after a few more blocks", 5}};
    for (const Moment& moment : moments) {
        SCOPED_TRACE(moment.name);
        ASSERT_TRUE(host.Step(moment.stepsBefore));
        const uint64_t position = engine.FilePosition();
        ASSERT_EQ(host.Queued(), 4u);
        engine.ResetToPlayFromCurPos();
        EXPECT_EQ(engine.FilePosition(), position);
        EXPECT_EQ(host.Queued(), 4u);
    }
    // After the end only some are still queued; whatever goes out then holds
    // what is left to read, which is nothing.
    ASSERT_TRUE(host.Step(12));
    ASSERT_GT(host.Queued(), 0u);
    engine.ResetToPlayFromCurPos();
    while (host.Step()) {
    }
    EXPECT_EQ(host.PlayedBytes(), data) << "a queued buffer was written into";
}
