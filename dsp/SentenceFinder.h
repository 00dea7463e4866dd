#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/SentenceFinderDetail.h"

// One sentence of a recording: sample frames [startFrame, endFrame) of the
// input, where a frame holds one sample of every channel.
struct SentenceSpan {
    int64_t startFrame = 0;
    int64_t endFrame = 0;
    bool operator==(const SentenceSpan&) const = default;
};

struct SentenceFinderSettings {
    // A stretch without speech at least this long ends a sentence; shorter
    // ones (the pause at a comma, a breath between words) stay inside it.
    int32_t minPauseMs = 300;
    // A sound shorter than this between two pauses (a click, a cough, a
    // word cut off) is no sentence.
    int32_t minSentenceMs = 250;
    // The inner thresholds; see SentenceFinderDetail.h.
    sentence_detail::FinderTuning tuning{};
};

// Finds the sentences of a recording by the pauses between them, in one
// streaming pass over its samples.
//
// The samples are mixed to one channel and cut into 10 ms frames; each
// frame's spectrum from 150 Hz to 7.6 kHz (what speech needs; mains hum and
// rumble lie below) is split into 20 bands. Each band is compared with what
// is expected there without speech: the band's own noise floor (a low
// percentile of its level over the two seconds around the frame) or, where
// higher, the spectral lines that hold their power for half a second on one
// side of the frame (the notes of a music bed, a hum). Room noise, hum and a
// music bed sit at what is expected whatever their level; speech rises above
// it in many bands at once. A frame's score is how far, on average, its
// bands stand above it. Speech is where the score passes a high threshold,
// extended to where it falls back under a low one, so that the quiet start
// and end of a sentence stay with it. Sounds far quieter than the speech
// before them (breaths, clicks) are dropped; stretches closer together than
// the minimum pause are one sentence; sounds shorter than the minimum
// sentence are dropped.
//
// Decisions lag the input by about a second (the floor looks ahead); the
// state is bounded whatever the length of the recording. Not thread-safe:
// one thread feeds one finder.
class CSentenceFinder {
public:
    // Rates below this carry too little of speech's spectrum to judge.
    static constexpr uint32_t kLowestRate = 4000;

    // Throws std::invalid_argument for a rate below kLowestRate, no
    // channels, or settings out of range (a pause below 50 ms or above a
    // minute, a negative sentence length).
    CSentenceFinder(uint32_t samplesPerSec, uint16_t channels, const SentenceFinderSettings& settings = {});
    ~CSentenceFinder();
    CSentenceFinder(const CSentenceFinder&) = delete;
    CSentenceFinder& operator=(const CSentenceFinder&) = delete;

    // `frameCount` frames of interleaved signed 16-bit samples, in the order
    // of the recording; any block size, including 0.
    void Feed(const int16_t* samples, size_t frameCount);

    // Ends the input and answers every sentence, in order. Feeding after
    // Finish starts nothing new: the answer stays.
    const std::vector<SentenceSpan>& Finish();

    // The sentences decided so far.
    const std::vector<SentenceSpan>& Sentences() const;

    // The input frames fed so far.
    int64_t FramesFed() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
