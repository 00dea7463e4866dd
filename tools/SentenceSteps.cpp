#include "tools/SentenceSteps.h"

#include <algorithm>
#include <cstdio>

#include "engine/TempoStage.h"

namespace {

// Further into a sentence than this, b goes back to its start rather than
// to the sentence before.
constexpr int32_t kBackToStartMs = 1000;

}  // namespace

CSentenceSteps::CSentenceSteps(CTempvoxCtrl& control, double shadowFactor)
    : m_control(control), m_shadowFactor(shadowFactor)
{
    m_control.FindSentences(0);
}

int32_t CSentenceSteps::Now() const
{
    return static_cast<int32_t>(m_control.Engine().GetCurrentPlayTime());
}

int32_t CSentenceSteps::Containing(int32_t timeMs) const
{
    return SentenceAt(m_control.Sentences(), timeMs);
}

int32_t CSentenceSteps::LastBegun(int32_t timeMs) const
{
    const std::vector<SentenceTimes>& sentences = m_control.Sentences();
    auto after = std::upper_bound(sentences.begin(), sentences.end(), timeMs,
                                  [](int32_t t, const SentenceTimes& s) { return t < s.startMs; });
    return static_cast<int32_t>(after - sentences.begin()) - 1;
}

int32_t CSentenceSteps::FirstAtOrAfter(int32_t timeMs) const
{
    const int32_t inside = Containing(timeMs);
    if (inside >= 0) return inside;
    const int32_t next = LastBegun(timeMs) + 1;
    return next < Count() ? next : -1;
}

bool CSentenceSteps::Start()
{
    if (!Shadowing()) return m_control.StartPlay() != FALSE;
    if (Count() == 0) return false;
    Go(0);
    return m_control.Engine().GetPlayerState() == 1;
}

void CSentenceSteps::Go(int32_t index)
{
    m_current = index;
    m_waiting = false;
    m_atSentenceEnd = false;
    if (StopsAfterEach()) {
        m_control.PlaySentence(index);
        return;
    }
    if (m_control.Engine().GetPlayerState() == 0) m_control.StartPlay();
    m_control.Engine().SetCurrentPlayTime(static_cast<uint32_t>(m_control.Sentences()[size_t(index)].startMs));
}

// On from a sentence's end (or a shadowing pause): the next sentence, or,
// after the last one, the rest of the file (or the end of shadowing).
void CSentenceSteps::Continue()
{
    const int32_t next = m_current >= 0 ? m_current + 1 : FirstAtOrAfter(Now());
    m_waiting = false;
    m_atSentenceEnd = false;
    if (next >= 0 && next < Count()) {
        Go(next);
    } else if (Shadowing()) {
        m_finished = true;
    } else {
        m_control.ResumePlay();
    }
}

bool CSentenceSteps::HandleKey(platform::Key key)
{
    if (Count() == 0) return false;
    const int32_t now = Now();
    const std::vector<SentenceTimes>& sentences = m_control.Sentences();
    switch (key) {
    case platform::Key::Next: {
        const int32_t inside = Containing(now);
        const int32_t target = inside >= 0 ? inside + 1 : FirstAtOrAfter(now);
        if (target >= 0 && target < Count()) Go(target);
        return true;
    }
    case platform::Key::Back: {
        const int32_t begun = LastBegun(now);
        if (begun < 0) {
            Go(0);
        } else if (now - sentences[size_t(begun)].startMs > kBackToStartMs) {
            Go(begun);
        } else {
            Go(std::max(begun - 1, 0));
        }
        return true;
    }
    case platform::Key::Repeat:
        Go(std::max(LastBegun(now), 0));
        return true;
    case platform::Key::StopEach:
        m_stopEach = !m_stopEach;
        if (Shadowing() || m_control.Engine().GetPlayerState() == 0) return true;
        if (m_stopEach) {
            m_current = FirstAtOrAfter(now);
            m_control.PauseAtEndOfSentence(m_current);
        } else {
            m_control.CancelSentencePause();
        }
        return true;
    case platform::Key::Space:
        if (!StopsAfterEach()) return false;
        if (m_waiting || m_atSentenceEnd) {
            Continue();
        } else if (m_control.Engine().GetPlayerState() == 2) {
            // Paused by hand inside a sentence: on to its end.
            m_control.ResumePlay();
            m_current = FirstAtOrAfter(Now());
            m_control.PauseAtEndOfSentence(m_current);
        } else {
            m_control.PausePlay();
        }
        return true;
    default:
        return false;
    }
}

bool CSentenceSteps::Tick()
{
    if (m_sentenceDone) {
        m_sentenceDone = false;
        if (m_control.Engine().GetPlayerState() == 2) {
            m_atSentenceEnd = true;
            const int32_t index = m_current >= 0 ? m_current : LastBegun(Now());
            if (Shadowing() && index >= 0) {
                // The learner repeats at the pace heard.
                const SentenceTimes& sentence = m_control.Sentences()[size_t(index)];
                const double factor = CTempoStage::FactorForLevel(m_control.Engine().GetChangeSpeedLevel());
                const double heardMs = double(sentence.endMs - sentence.startMs) / std::max(factor, 0.1);
                m_waiting = true;
                m_waitEnd = Clock::now() + std::chrono::milliseconds(static_cast<int64_t>(heardMs * m_shadowFactor));
            }
        }
    }
    if (m_waiting && Clock::now() >= m_waitEnd) Continue();
    return m_finished;
}

std::string CSentenceSteps::Status() const
{
    if (Count() == 0) return "";
    const int32_t now = Now();
    const int32_t inside = Containing(now);
    const int32_t shown = inside >= 0 ? inside : LastBegun(now);
    char text[96];
    if (shown >= 0) {
        std::snprintf(text, sizeof text, "sentence %d/%d", shown + 1, Count());
    } else {
        std::snprintf(text, sizeof text, "sentence -/%d", Count());
    }
    std::string status = text;
    if (m_waiting) {
        const double left = std::chrono::duration<double>(m_waitEnd - Clock::now()).count();
        std::snprintf(text, sizeof text, "  repeat %.1f s", std::max(left, 0.0));
        status += text;
    } else if (m_stopEach && !Shadowing()) {
        status += "  stop each";
    }
    return status;
}
