// The speaking-rate estimate: a stretch of the file read on the host's
// thread and estimated on a worker thread of its own.
#include "engine/WavOut.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <vector>

#include "dsp/SyllableRate.h"
#include "dsp/WordSpeed.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/Thread.h"

namespace {

// What the worker thread owns: the stretch as stored in the file and the
// numbers the estimate needs.
struct WordSpeedJob {
    std::vector<uint8_t> samples;
    uint16_t channels = 0;
    uint16_t bitsPerSample = 0;
    float wordsPerSegment = 0.0f;
    int32_t timeSpan = 0;
    HWND notifyWnd = nullptr;
    // Refined: words per minute by the syllables, over the stretch's speech.
    bool bySyllables = false;
    uint32_t samplesPerSec = 0;
    double syllablesPerWord = kDefaultSyllablesPerWord;
};

int32_t EstimateBySyllables(const WordSpeedJob& job)
{
    const SpeakingRate rate = MeasureSpeakingRate(job.samples.data(), job.samples.size(), job.samplesPerSec,
                                                  job.channels, job.bitsPerSample);
    return int32_t(std::lround(rate.WordsPerMinute(job.syllablesPerWord)));
}

void WordSpeedWorker(std::unique_ptr<WordSpeedJob> job)
{
    int32_t estimate = job->bySyllables
                           ? EstimateBySyllables(*job)
                           : EstimateWordSpeed(job->samples.data(), static_cast<uint32_t>(job->samples.size()),
                                               job->channels, job->bitsPerSample, job->wordsPerSegment, job->timeSpan);
    // A window destroyed in the meantime is a stale handle: the post fails.
    if (job->notifyWnd != nullptr) PostMessageA(job->notifyWnd, WM_WORDSPEEDDONE, static_cast<WPARAM>(estimate), 0);
}

}  // namespace

int32_t CWavOut::GetWordSpeedByAsyn(float fEpWordNum, int32_t timeSpan)
{
    CFile stretchFile;
    if (!stretchFile.Open(m_filePath.c_str(), CFile::modeRead | CFile::typeBinary | CFile::shareDenyNone)) {
        throw CFileException(m_filePath.empty() ? "(no file has been played yet)" : m_filePath);
    }
    // The engine's own file may be closed after a stop; the second file
    // object is the same file and gives the length for both uses.
    WordSpeedStretchRequest request;
    request.playTimeMs = GetCurrentPlayTime();
    request.avgBytesPerSec = m_format.avgBytesPerSec;
    request.blockAlign = m_format.blockAlign;
    request.dataChunkLength = DataLength();
    request.formatLength = m_format.length;
    request.factExtra = m_factExtra;
    request.fileLength = static_cast<int64_t>(stretchFile.GetLength());
    request.timeSpan = timeSpan;
    WordSpeedStretch stretch = PlanWordSpeedStretch(request);
    if (IsRefined()) {
        // The same stretch, n seconds into the samples, found by the data
        // chunk's own place rather than from the end of the file, which a
        // chunk after the samples would move.
        const uint64_t start = std::min<uint64_t>(MsToDataByte(stretch.n * 1000u), m_dataEnd);
        const uint64_t wanted = timeSpan > 0 ? uint64_t(timeSpan) * m_format.avgBytesPerSec : 0;
        stretch.seekFromEnd = int64_t(start) - request.fileLength;
        stretch.size = uint32_t(std::min<uint64_t>(wanted, m_dataEnd - start));
    } else {
        std::atomic_ref<uint32_t>(m_dataChunk.length).store(stretch.dataChunkLength);
    }

    std::vector<uint8_t> samples;
    try {
        samples.resize(stretch.size);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    stretchFile.Seek(stretch.seekFromEnd, CFile::end);
    samples.resize(stretchFile.Read(samples.data(), stretch.size));
    stretchFile.Close();

    // A job that can't be made, or a thread that can't start, still
    // answers the host, with an estimate of 0.
    HWND notify = m_hNotifyWnd.load();
    std::unique_ptr<WordSpeedJob> job(new (std::nothrow) WordSpeedJob);
    if (job == nullptr) {
        if (notify != nullptr) PostMessageA(notify, WM_WORDSPEEDDONE, 0, 0);
        return static_cast<int32_t>(stretch.n);
    }
    job->samples = std::move(samples);
    job->channels = m_format.channels;
    job->bitsPerSample = m_format.bitsPerSample;
    job->wordsPerSegment = fEpWordNum;
    job->timeSpan = timeSpan;
    job->notifyWnd = notify;
    job->bySyllables = IsRefined();
    job->samplesPerSec = m_format.samplesPerSec;
    job->syllablesPerWord = m_syllablesPerWord.load();
    auto shared = std::make_shared<std::unique_ptr<WordSpeedJob>>(std::move(job));
    if (!platform::StartDetachedThread([shared] { WordSpeedWorker(std::move(*shared)); })) {
        if (notify != nullptr) PostMessageA(notify, WM_WORDSPEEDDONE, 0, 0);
    }
    return static_cast<int32_t>(stretch.n);
}
