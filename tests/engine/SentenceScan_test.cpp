#include "engine/SentenceScan.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/SentenceSignal.h"
#include "support/WavFiles.h"

using namespace testwav;

namespace {

TEST(SentenceAt, ASentenceHoldsItsStartButNotItsEnd)
{
    const std::vector<SentenceTimes> sentences = {{500, 1500}, {2000, 2600}, {2600, 3000}};
    struct Case {
        int32_t timeMs;
        int32_t expected;
    };
    for (const Case& c : {Case{0, -1}, Case{499, -1}, Case{500, 0}, Case{1499, 0}, Case{1500, -1}, Case{1999, -1},
                          Case{2000, 1}, Case{2599, 1}, Case{2600, 2}, Case{2999, 2}, Case{3000, -1},
                          Case{-5, -1}, Case{INT32_MAX, -1}}) {
        EXPECT_EQ(SentenceAt(sentences, c.timeMs), c.expected) << c.timeMs;
    }
    EXPECT_EQ(SentenceAt({}, 100), -1);
}

std::string LessonData(sentence_signal::RecordingBuilder& recording)
{
    recording.Silence(0.4);
    recording.Sentence(1.5);
    recording.Silence(0.8);
    recording.Sentence(1.2);
    recording.Silence(0.5);
    return Samples16(recording.Samples());
}

TEST(ScanSentences, TheSamplesAreFoundWhereverTheDataChunkStands)
{
    // The same samples in a canonical file, behind a LIST chunk, and with a
    // torn last frame after them: the same sentences, in milliseconds of
    // the samples.
    sentence_signal::RecordingBuilder recording(22050, 2, 8);
    const std::string data = LessonData(recording);
    const Format format{1, 2, 22050, 16};
    const std::string canonical = WriteFile("scan_canonical.wav", CanonicalWav(format, data));

    std::string body = RiffAndFormat(format).substr(12);
    std::string list = "INFOISFT";
    PutU32(list, 6);
    list += "tempvx";
    body += "LIST";
    PutU32(body, uint32_t(list.size()));
    body += list;
    body += "data";
    PutU32(body, uint32_t(data.size() + 3));
    body += data + std::string("\x01\x02\x03", 3);
    std::string file = "RIFF";
    PutU32(file, uint32_t(body.size() + 4));
    file += "WAVE" + body;
    const std::string walked = WriteFile("scan_walked.wav", file);

    const SentenceScan plain = ScanSentences(canonical, {});
    const SentenceScan other = ScanSentences(walked, {});
    ASSERT_EQ(plain.error, SentenceScanError::None);
    ASSERT_EQ(other.error, SentenceScanError::None) << other.message;
    EXPECT_EQ(plain.totalFrames, int64_t(data.size() / 4));
    EXPECT_EQ(other.totalFrames, plain.totalFrames);
    ASSERT_EQ(plain.sentences.size(), 2u);
    ASSERT_EQ(other.sentences.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(other.sentences[i].startMs, plain.sentences[i].startMs);
        EXPECT_EQ(other.sentences[i].endMs, plain.sentences[i].endMs);
        EXPECT_NEAR(plain.sentences[i].startMs, recording.Truth()[i].start * 1000, 100);
        EXPECT_NEAR(plain.sentences[i].endMs, recording.Truth()[i].end * 1000, 100);
    }
}

TEST(ScanSentences, FailuresSayWhy)
{
    sentence_signal::RecordingBuilder recording(16000, 1, 3);
    const std::string data = LessonData(recording);
    const std::string good = WriteFile("scan_good.wav", CanonicalWav(Format{1, 1, 16000, 16}, data));
    const std::string text = WriteFile("scan_text.wav", "plain words, no wave");
    const std::string float32 = WriteFile("scan_float.wav", CanonicalWav(Format{3, 1, 16000, 32}, data));
    SentenceFinderSettings tooShort;
    tooShort.minPauseMs = 10;
    struct Case {
        std::string path;
        SentenceFinderSettings settings;
        SentenceScanError expected;
    };
    const Case cases[] = {
        {"/nonexistent/scan.wav", {}, SentenceScanError::CannotOpen},
        {text, {}, SentenceScanError::NotWave},
        {float32, {}, SentenceScanError::NotPcm},
        {good, tooShort, SentenceScanError::BadSettings},
        {good, {}, SentenceScanError::None},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        const SentenceScan scan = ScanSentences(c.path, c.settings);
        EXPECT_EQ(scan.error, c.expected);
        EXPECT_EQ(scan.message.empty(), c.expected == SentenceScanError::None);
        if (c.expected != SentenceScanError::None) {
            EXPECT_TRUE(scan.sentences.empty());
        }
    }
}

}  // namespace
