#pragma once
#include <chrono>
#include <cstdint>
#include <string>

#include "platform/Terminal.h"
#include "shell/TempvoxCtrl.h"

// Play by sentence for `tempvox play`, on the sentences the control finds in
// the file: n goes to the next sentence, b back to the previous one (or to
// the start of this one when more than a second into it), r repeats this
// one, s toggles a pause after each sentence. Shadowing plays each sentence,
// then pauses for `shadowFactor` times its heard length for the learner to
// repeat it, then goes on; it ends after the last sentence's pause.
// Called on the control's thread only.
class CSentenceSteps {
public:
    // Finds the sentences of the control's file (named already). A factor of
    // 0 shadows nothing.
    CSentenceSteps(CTempvoxCtrl& control, double shadowFactor);

    int32_t Count() const { return static_cast<int32_t>(m_control.Sentences().size()); }
    bool Shadowing() const { return m_shadowFactor > 0.0; }

    // Starts play: at the first sentence when shadowing, else from the start.
    bool Start();
    // Takes the keys of sentence play, and space while pausing after
    // sentences; false for any other key.
    bool HandleKey(platform::Key key);
    // The control fired PlayOneSentenceCompleted.
    void OnSentenceDone() { m_sentenceDone = true; }
    // Each turn of the play loop: starts the next sentence once a shadowing
    // pause is over. True once shadowing is complete.
    bool Tick();
    // "sentence 4/37" (the sentence playing, or the last one begun), and
    // "repeat 2.1 s" or "stop each" when those apply.
    std::string Status() const;

private:
    using Clock = std::chrono::steady_clock;

    int32_t Now() const;
    int32_t Containing(int32_t timeMs) const;
    int32_t LastBegun(int32_t timeMs) const;
    int32_t FirstAtOrAfter(int32_t timeMs) const;
    bool StopsAfterEach() const { return m_stopEach || Shadowing(); }
    void Go(int32_t index);
    void Continue();

    CTempvoxCtrl& m_control;
    double m_shadowFactor;
    bool m_stopEach = false;
    bool m_sentenceDone = false;
    bool m_finished = false;
    // The sentence last asked for, and the end of a shadowing pause.
    int32_t m_current = -1;
    bool m_waiting = false;
    bool m_atSentenceEnd = false;  // paused by the end of a sentence
    Clock::time_point m_waitEnd{};
};
