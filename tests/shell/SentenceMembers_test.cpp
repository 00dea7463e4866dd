// The sentence members (ids 37 to 41) of the control on the manual device:
// finding the sentences of the named file, reading them, and playing one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "shell/TempvoxCtrl.h"
#include "support/HostHarness.h"
#include "support/SentenceSignal.h"
#include "support/WavFiles.h"

using namespace testwav;
using sentence_signal::RecordingBuilder;
using sentence_signal::TrueSentence;

namespace {

// Four sentences with pauses of 0.6 to 0.9 s.
RecordingBuilder FourSentences(int32_t rate, int32_t channels)
{
    RecordingBuilder recording(rate, channels, 21);
    recording.Silence(0.5);
    recording.Sentence(1.4);
    recording.Silence(0.7);
    recording.Sentence(1.8);
    recording.Silence(0.9);
    recording.Sentence(1.2);
    recording.Silence(0.6);
    recording.Sentence(1.6);
    recording.Silence(0.8);
    return recording;
}

class SentenceMembersTest : public ::testing::Test {
protected:
    HostHarness host;
    CTempvoxCtrl control;
    std::vector<DISPID> events;

    void SetUp() override
    {
        control.SetEventSink([this](DISPID id, const std::vector<Variant>&) { events.push_back(id); });
    }

    std::string WriteRecording(const std::string& name, const RecordingBuilder& recording)
    {
        const Format format{1, uint16_t(recording.Channels()), uint32_t(recording.Rate()), 16};
        return WriteFile(name, CanonicalWav(format, Samples16(recording.Samples())));
    }

    Variant Call(DISPID id, std::vector<Variant> args = {})
    {
        Variant result;
        std::string error;
        EXPECT_EQ(control.Invoke(id, InvokeKind::Method, args, &result, &error), S_OK) << error;
        return result;
    }

    // Steps the device one buffer at a time, delivering the messages after
    // each, until PlayOneSentenceCompleted fires; answers the steps made.
    int StepUntilSentenceDone(int limit = 200)
    {
        for (int steps = 1; steps <= limit; ++steps) {
            if (!host.Step()) return -1;
            host.Pump();
            if (std::find(events.begin(), events.end(), DISPID(4)) != events.end()) return steps;
        }
        return -1;
    }
};

// The mono samples of bytes of interleaved 16-bit audio.
std::vector<double> Mono(const std::string& bytes, int channels)
{
    const std::vector<int16_t> samples = ToSamples16(bytes);
    std::vector<double> mono(samples.size() / size_t(channels));
    for (size_t i = 0; i < mono.size(); ++i) mono[i] = samples[i * size_t(channels)];
    return mono;
}

// Where in `source` the stretch `heard` (any gain) starts: the offset of the
// best normalised correlation within `around` +- `reach` samples.
long BestMatch(const std::vector<double>& heard, const std::vector<double>& source, long around, long reach)
{
    double best = -2.0;
    long bestAt = -1;
    for (long at = std::max(0L, around - reach); at <= around + reach; ++at) {
        if (size_t(at) + heard.size() > source.size()) break;
        double dot = 0.0, a = 0.0, b = 0.0;
        for (size_t i = 0; i < heard.size(); ++i) {
            dot += heard[i] * source[size_t(at) + i];
            a += heard[i] * heard[i];
            b += source[size_t(at) + i] * source[size_t(at) + i];
        }
        const double correlation = dot / std::sqrt(a * b + 1e-9);
        if (correlation > best) {
            best = correlation;
            bestAt = at;
        }
    }
    return best > 0.99 ? bestAt : -1;
}

TEST_F(SentenceMembersTest, FindSentencesAnswersTheCountOrWhyNot)
{
    const std::string lesson = WriteRecording("sentences_lesson.wav", FourSentences(22050, 1));
    std::string floatHead = RiffAndFormat(Format{3, 1, 22050, 32});
    const std::string floatFile = WriteFile("sentences_float.wav", floatHead + "data" + std::string(4, '\0'));
    const std::string lowRate = WriteRecording("sentences_3k.wav", RecordingBuilder(3000, 1));
    const std::string text = WriteFile("sentences_text.wav", "this is no wave file at all, only words");
    RecordingBuilder eightBitSource = FourSentences(16000, 1);
    std::string eightBitData;
    for (int16_t v : eightBitSource.Samples()) eightBitData.push_back(char(uint8_t((v >> 8) + 128)));
    const std::string eightBit = WriteFile("sentences_8bit.wav", CanonicalWav(Format{1, 1, 16000, 8}, eightBitData));

    struct Case {
        const char* what;
        const char* path;  // nullptr: name nothing
        int32_t minPauseMs;
        int32_t expected;
    };
    const Case cases[] = {
        {"no file named", nullptr, 300, kSentencesNoFile},
        {"a missing file", "/nonexistent/sentences.wav", 300, kSentencesCannotRead},
        {"not a wave file", text.c_str(), 300, kSentencesCannotRead},
        {"float samples", floatFile.c_str(), 300, kSentencesNotPcm},
        {"a rate below 4 kHz", lowRate.c_str(), 300, kSentencesNotPcm},
        {"a pause too short", lesson.c_str(), 49, kSentencesBadPause},
        {"a pause too long", lesson.c_str(), 60001, kSentencesBadPause},
        {"a negative pause", lesson.c_str(), -300, kSentencesBadPause},
        {"the lesson", lesson.c_str(), 300, 4},
        {"0 is the default pause", lesson.c_str(), 0, 4},
        // The longest pause is 0.9 s: a minimum of a second joins all.
        {"a pause longer than any", lesson.c_str(), 1000, 1},
        {"8-bit samples", eightBit.c_str(), 300, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CTempvoxCtrl fresh;
        if (c.path != nullptr) fresh.SetPlayFilePath(nullptr, -1, c.path);
        Variant result;
        ASSERT_EQ(fresh.Invoke(37, InvokeKind::Method, {Variant::I4(c.minPauseMs)}, &result), S_OK);
        EXPECT_EQ(result.type, VarType::I4);
        EXPECT_EQ(result.intValue, c.expected);
        // A failure leaves no sentences behind.
        if (c.expected <= 0) {
            EXPECT_TRUE(fresh.Sentences().empty());
        }
    }
}

TEST_F(SentenceMembersTest, TheSentencesReadBackByIndexAndByTime)
{
    const RecordingBuilder recording = FourSentences(44100, 2);
    const std::string path = WriteRecording("sentences_read.wav", recording);
    ASSERT_TRUE(control.SetPlayFilePath(nullptr, -1, path.c_str()));
    ASSERT_EQ(Call(37, {Variant::I4(300)}).intValue, 4);

    const std::vector<TrueSentence>& truth = recording.Truth();
    for (int32_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        const double start = truth[size_t(i)].start * 1000.0;
        const double end = truth[size_t(i)].end * 1000.0;
        EXPECT_NEAR(Call(38, {Variant::I4(i)}).intValue, start, 100.0);
        EXPECT_NEAR(Call(39, {Variant::I4(i)}).intValue, end, 100.0);
        EXPECT_EQ(Call(40, {Variant::I4(int32_t((start + end) / 2))}).intValue, i);
        if (i + 1 < 4) {
            // The middle of the pause after it belongs to no sentence.
            const double next = truth[size_t(i) + 1].start * 1000.0;
            EXPECT_EQ(Call(40, {Variant::I4(int32_t((end + next) / 2))}).intValue, -1);
        }
    }
    struct OutOfRange {
        DISPID id;
        int32_t argument;
    };
    for (const OutOfRange& c : {OutOfRange{38, -1}, OutOfRange{38, 4}, OutOfRange{39, 4}, OutOfRange{39, -7},
                                OutOfRange{40, -5}, OutOfRange{40, 100000}, OutOfRange{40, 0}}) {
        EXPECT_EQ(Call(c.id, {Variant::I4(c.argument)}).intValue, -1) << c.id << " " << c.argument;
    }

    // Naming a file forgets the sentences of the one before.
    ASSERT_TRUE(control.SetPlayFilePath(nullptr, -1, path.c_str()));
    EXPECT_EQ(Call(38, {Variant::I4(0)}).intValue, -1);
    EXPECT_EQ(Call(40, {Variant::I4(int32_t(truth[0].start * 1000 + 300))}).intValue, -1);
}

TEST_F(SentenceMembersTest, PlaySentencePlaysFromItsStartAndPausesAtItsEnd)
{
    struct Case {
        int16_t profile;
        int32_t rate;
        int32_t channels;
        uint16_t stateBefore;  // 0 stopped, 1 playing, 2 paused
        int32_t index;
    };
    const Case cases[] = {
        {kProfileClassic, 22050, 1, 0, 2}, {kProfileClassic, 44100, 2, 0, 1}, {kProfileClassic, 22050, 1, 1, 3},
        {kProfileClassic, 16000, 1, 2, 0}, {kProfileRefined, 22050, 1, 0, 2}, {kProfileRefined, 44100, 2, 1, 3},
        {kProfileRefined, 16000, 2, 2, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.profile) + " " + std::to_string(c.rate) + " state " +
                     std::to_string(c.stateBefore) + " sentence " + std::to_string(c.index));
        const RecordingBuilder recording = FourSentences(c.rate, c.channels);
        const std::string path = WriteRecording("sentences_play.wav", recording);
        CTempvoxCtrl player;
        events.clear();
        player.SetEventSink([this](DISPID id, const std::vector<Variant>&) { events.push_back(id); });
        player.Engine().SetPlaybackProfile(c.profile);
        player.Engine().SetJustPlay(TRUE);
        ASSERT_TRUE(player.SetPlayFilePath(nullptr, -1, path.c_str()));
        ASSERT_EQ(player.FindSentences(300), 4);
        if (c.stateBefore != 0) {
            ASSERT_TRUE(player.StartPlay());
            host.Step(2);
            if (c.stateBefore == 2) player.PausePlay();
        }
        const size_t playedBefore = host.PlayedBytes().size();

        ASSERT_TRUE(player.PlaySentence(c.index));
        EXPECT_EQ(player.Engine().GetPlayerState(), 1);
        const int steps = StepUntilSentenceDone();
        ASSERT_GT(steps, 0) << "PlayOneSentenceCompleted never fired";
        EXPECT_EQ(player.Engine().GetPlayerState(), 2);
        // Paused: the device completes nothing more.
        EXPECT_FALSE(host.Step());

        // What was heard: from the sentence's start (its first 300 ms found
        // in the file there, within 10 ms) to past its end: none of it cut,
        // and no more than a block and the lag of the classic time behind
        // the sound (250 ms at 16 kHz mono) after it.
        const std::vector<double> heard = Mono(host.PlayedBytes().substr(playedBefore), c.channels);
        const std::vector<double> source = Mono(Samples16(recording.Samples()), c.channels);
        const long startMs = player.GetSentenceStart(c.index);
        const long endMs = player.GetSentenceEnd(c.index);
        const long expectedAt = startMs * c.rate / 1000;
        const std::vector<double> opening(heard.begin(), heard.begin() + c.rate * 3 / 10);
        const long foundAt = BestMatch(opening, source, expectedAt, c.rate / 20);
        ASSERT_GE(foundAt, 0) << "the first 300 ms heard are not the file's near the sentence's start";
        EXPECT_NEAR(double(foundAt), double(expectedAt), c.rate * 0.010);
        const double heardMs = double(heard.size()) * 1000.0 / c.rate;
        EXPECT_GE(heardMs, double(endMs - startMs) - 10.0);
        EXPECT_LE(heardMs, double(endMs - startMs) + 360.0);
        player.StopPlay();
    }
}

TEST_F(SentenceMembersTest, PlaySentenceRefusesAnIndexOutOfRange)
{
    const std::string path = WriteRecording("sentences_range.wav", FourSentences(22050, 1));
    ASSERT_TRUE(control.SetPlayFilePath(nullptr, -1, path.c_str()));
    EXPECT_FALSE(Call(41, {Variant::I4(0)}).intValue);  // not found yet
    ASSERT_EQ(control.FindSentences(0), 4);
    for (int32_t index : {-1, 4, 1000}) EXPECT_FALSE(Call(41, {Variant::I4(index)}).intValue) << index;
    EXPECT_EQ(control.Engine().GetPlayerState(), 0);
}

TEST_F(SentenceMembersTest, ASpanTheHostArmsKeepsTheOriginalRule)
{
    // SetOneSentenceTimeSpan fires the event at its end and play goes on,
    // also right after a PlaySentence.
    const RecordingBuilder recording = FourSentences(22050, 1);
    const std::string path = WriteRecording("sentences_span.wav", recording);
    ASSERT_TRUE(control.SetPlayFilePath(nullptr, -1, path.c_str()));
    ASSERT_EQ(control.FindSentences(300), 4);
    control.Engine().SetJustPlay(TRUE);
    ASSERT_TRUE(control.PlaySentence(0));
    Call(32, {Variant::I4(0), Variant::I4(1500)});
    ASSERT_GT(StepUntilSentenceDone(), 0);
    EXPECT_EQ(control.Engine().GetPlayerState(), 1);
    EXPECT_TRUE(host.Step());
    control.StopPlay();
}

TEST_F(SentenceMembersTest, ANoticeFromTheSentenceBeforeDoesNotPauseTheNext)
{
    const RecordingBuilder recording = FourSentences(22050, 1);
    const std::string path = WriteRecording("sentences_stale.wav", recording);
    ASSERT_TRUE(control.SetPlayFilePath(nullptr, -1, path.c_str()));
    ASSERT_EQ(control.FindSentences(300), 4);
    control.Engine().SetJustPlay(TRUE);
    control.Engine().SetPlaybackProfile(kProfileRefined);
    ASSERT_TRUE(control.PlaySentence(0));
    // Past the end of sentence 0 without delivering the engine's notice,
    // then on to sentence 2: the notice arrives late.
    const int blocks = (control.GetSentenceEnd(0) - control.GetSentenceStart(0)) / 100 + 3;
    ASSERT_TRUE(host.Step(blocks));
    ASSERT_TRUE(control.PlaySentence(2));
    host.Pump();
    EXPECT_EQ(events, std::vector<DISPID>{4});
    EXPECT_EQ(control.Engine().GetPlayerState(), 1);
    events.clear();
    ASSERT_GT(StepUntilSentenceDone(), 0);
    EXPECT_EQ(control.Engine().GetPlayerState(), 2);
    EXPECT_NEAR(double(control.Engine().GetCurrentPlayTime()), double(control.GetSentenceEnd(2)), 100.0);
    control.StopPlay();
}

}  // namespace
