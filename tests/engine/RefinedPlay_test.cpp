// The refined profile of the engine on the manual device: the tempo delivered
// is the level's factor from the first block, the samples played are the
// data chunk's wherever it stands, and the time told is the time heard.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "engine/WavOut.h"
#include "support/WavOutProbe.h"
#include "support/HostHarness.h"
#include "support/WavFiles.h"

using namespace testwav;

namespace {

// Band-limited noise with a full-scale peak: every few milliseconds of it are
// unlike any other, so a stretch of played sound can be found again in the
// source, and the automatic gain stays at 1.
std::vector<int16_t> Noise(size_t frames, uint16_t channels, uint32_t seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> white(0.0, 1.0);
    std::vector<int16_t> samples(frames * channels);
    for (uint16_t c = 0; c < channels; ++c) {
        double low = 0.0;
        for (size_t i = 0; i < frames; ++i) {
            low = 0.7 * low + 0.3 * white(random);
            samples[i * channels + c] = int16_t(std::clamp(low * 9000.0, -32000.0, 32000.0));
        }
    }
    samples[channels] = 32767;
    return samples;
}

// Where in the mono source the last `window` samples of `played` come
// from, by normalised cross-correlation: the source sample that follows
// the match, i.e. the one being heard at the end of what was played.
size_t LocateHeard(const std::vector<int16_t>& source, const std::vector<int16_t>& played, size_t window)
{
    const int16_t* tail = played.data() + played.size() - window;
    double tailEnergy = 0.0;
    for (size_t k = 0; k < window; ++k) tailEnergy += double(tail[k]) * tail[k];
    double best = -2.0;
    size_t bestAt = 0;
    for (size_t at = 0; at + window <= source.size(); ++at) {
        double dot = 0.0;
        double energy = 0.0;
        for (size_t k = 0; k < window; ++k) {
            dot += double(tail[k]) * source[at + k];
            energy += double(source[at + k]) * source[at + k];
        }
        const double score = dot / std::sqrt(energy * tailEnergy + 1.0);
        if (score > best) {
            best = score;
            bestAt = at;
        }
    }
    return bestAt + window;
}

class RefinedPlay : public ::testing::Test {
protected:
    HostHarness host;
    CWavOut engine;

    void SetUp() override
    {
        engine.m_hNotifyWnd = host.Window();
        engine.SetJustPlay(TRUE);
        engine.SetPlaybackProfile(kProfileRefined);
    }

    // Steps until play has ended and everything queued was heard.
    void PlayToTheEnd()
    {
        for (int guard = 0; guard < 2000 && host.Step(); ++guard) {
        }
    }
};

}  // namespace

TEST_F(RefinedPlay, DeliveredTempoIsTheLevelsFactorForEveryFormat)
{
    struct Case {
        uint16_t channels;
        uint32_t rate;
    };
    const Case formats[] = {{1, 22050}, {2, 44100}, {2, 48000}};
    const int16_t levels[] = {-60, -30, -10, -1, 1, 25, 50};
    const double seconds = 6.0;
    for (const Case& format : formats) {
        const size_t frames = size_t(seconds * format.rate);
        const std::string data = Samples16(Noise(frames, format.channels, 7));
        const std::string path =
            WriteFile("tempo" + std::to_string(format.rate) + ".wav",
                      CanonicalWav(Format{1, format.channels, format.rate, 16}, data));
        for (int16_t level : levels) {
            SCOPED_TRACE(std::to_string(format.rate) + " Hz, level " + std::to_string(level));
            // The level table: above 0 the factor is 1 + level / 50, below 1 + level / 120.
            const double factor = level > 0 ? 1.0 + level / 50.0 : 1.0 + level / 120.0;
            engine.SetChangeSpeedLevel(level);
            ASSERT_TRUE(engine.StartPlay(path.c_str()));
            PlayToTheEnd();
            const double playedFrames = double(host.PlayedBytes().size()) / (2 * format.channels);
            engine.StopPlay();
            EXPECT_NEAR(playedFrames * factor / frames, 1.0, 0.005);
        }
    }
}

TEST_F(RefinedPlay, TheTimeToldIsTheTimeHeardAtEveryLevelAndAfterSeeks)
{
    const uint32_t rate = 22050;
    const std::vector<int16_t> source = Noise(12 * rate, 1, 11);
    const std::string path = WriteFile("heard.wav", CanonicalWav(Format{1, 1, rate, 16}, Samples16(source)));
    const size_t window = rate / 125;  // 8 ms: shorter than one splice of the stretcher
    auto heardMs = [&] {
        const std::vector<int16_t> played = ToSamples16(host.PlayedBytes());
        return double(LocateHeard(source, played, window)) * 1000.0 / rate;
    };
    enum class Seek { None, Playing, Paused };
    struct Case {
        int16_t level;
        Seek seek;
    };
    const Case cases[] = {{-60, Seek::None}, {0, Seek::None},    {50, Seek::None},
                          {-60, Seek::Playing}, {0, Seek::Playing}, {50, Seek::Playing},
                          {-30, Seek::Paused}, {25, Seek::Paused}};
    for (const Case& c : cases) {
        SCOPED_TRACE("level " + std::to_string(c.level) + ", seek " + std::to_string(int(c.seek)));
        engine.SetChangeSpeedLevel(c.level);
        ASSERT_TRUE(engine.StartPlay(path.c_str()));
        ASSERT_TRUE(host.Step(9));
        EXPECT_NEAR(engine.GetCurrentPlayTime(), heardMs(), 20.0);
        const uint32_t target = 7000;
        if (c.seek == Seek::Playing) {
            engine.SetCurrentPlayTime(target);
            EXPECT_NEAR(engine.GetCurrentPlayTime(), target, 20.0) << "at once";
        } else if (c.seek == Seek::Paused) {
            ASSERT_TRUE(engine.PausePlay());
            engine.SetCurrentPlayTime(target);
            EXPECT_NEAR(engine.GetCurrentPlayTime(), target, 20.0) << "at once, while paused";
            ASSERT_TRUE(engine.ResumePlay());
        }
        uint32_t last = engine.GetCurrentPlayTime();
        for (int step = 0; step < 6; ++step) {
            ASSERT_TRUE(host.Step());
            const uint32_t told = engine.GetCurrentPlayTime();
            EXPECT_GE(told, last) << "no jump back";
            EXPECT_NEAR(told, heardMs(), 20.0) << "after step " << step;
            last = told;
        }
        engine.StopPlay();
    }
}

TEST_F(RefinedPlay, SamplesAreTheDataChunksWhereverItStands)
{
    // A stereo file as ffmpeg writes it, a LIST chunk before the data, and
    // one of an odd length, whose pad byte would shift every later frame
    // by one sample if it were taken for sound.
    const Format format{1, 2, 44100, 16};
    std::vector<int16_t> samples(2 * 44100 / 2);
    for (size_t i = 0; i < samples.size(); i += 2) {
        samples[i] = int16_t(8000 * std::sin(double(i) * 0.01));        // left
        samples[i + 1] = int16_t(-3000 * std::sin(double(i) * 0.003));  // right
    }
    // A full-scale true peak keeps the automatic gain at 1.
    samples[500] = 16000;
    samples[501] = 32000;
    samples[502] = 16000;
    const std::string data = Samples16(samples);
    const std::string list = "LIST" + std::string("\x1A\0\0\0", 4) + "INFOISFT" + std::string("\x0E\0\0\0", 4) +
                             std::string("Lavf59.27.100\0", 14);
    const std::string odd = "junk" + std::string("\x03\0\0\0", 4) + "abc" + std::string(1, '\0');
    std::string head = RiffAndFormat(format);
    const std::string chunks = list + odd + "data";
    std::string dataLength;
    PutU32(dataLength, uint32_t(data.size()));
    std::string file = head + chunks + dataLength + data + "LIST" + std::string(4, '\0');
    for (int i = 0; i < 4; ++i) file[4 + size_t(i)] = char(((file.size() - 8) >> (8 * i)) & 0xFF);
    const std::string path = WriteFile("listed.wav", file);

    engine.SetChangeSpeedLevel(0);
    ASSERT_TRUE(engine.StartPlay(path.c_str()));
    EXPECT_EQ(engine.GetTotalPlayTime(), 500u);
    PlayToTheEnd();
    const std::string played = host.PlayedBytes();
    engine.StopPlay();
    size_t firstDiff = 0;
    while (firstDiff < std::min(played.size(), data.size()) && played[firstDiff] == data[firstDiff]) ++firstDiff;
    EXPECT_TRUE(played == data) << "played " << played.size() << " bytes of " << data.size() << ", first difference at "
                                << firstDiff << ", gain " << CWavOutProbe::Gain(engine);
}
