#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

// Tempo change with the pitch kept, for a stream of 16-bit audio.
//
// Waveform-similarity overlap-add that keeps its state from one call to the
// next. The output is laid down in hops of about 12.5 ms; each hop takes a
// segment of input within 12 ms of its nominal place, chosen so that its
// start matches what the previous segment would have gone on to play, and
// crossfades into it with a raised-cosine fade. The match is found on a
// copy of the input averaged down to about 4 kHz, refined at the full rate
// and placed to a fraction of a sample. The nominal place moves on by
// factor x hop for every hop, whatever the search picked, so the delivered
// tempo is exact over any stretch longer than a hop and does not drift.
//
// All lengths are times turned into frames at the stream's sample rate, so
// 8 kHz and 48 kHz sound alike. The search runs on the sum of the channels;
// every channel is then cut and faded at the same place, so channels never
// mix: a silent channel stays exactly silent and the balance is untouched.
// A signal whose channels cancel in the sum (one the negative of the other)
// is cut at its nominal places without a search.
//
// Formats and units
//   Samples are signed 16-bit, interleaved, in host byte order; a frame is
//   one sample for every channel. 1 to 8 channels, 8000 to 96000 frames per
//   second. Work inside is in float.
//   The factor is input duration consumed per output duration: 2.0 plays
//   twice as fast, 0.5 half as fast; 0.5 to 2.0, clamped.
//   Input and output positions are frame counts since the last Reset() (or
//   Configure()).
//
// Memory and threads
//   Configure() allocates everything the stretcher will ever use; Process(),
//   Drain(), Reset(), SetFactor() and the queries never allocate, lock or
//   block, so they may run on an audio thread. The caller owns the buffers it
//   passes and keeps nothing of them after a call. One object is used by one
//   thread at a time; calls from different threads need the caller's own
//   ordering (e.g. a lock held around both).
//
// Latency
//   The stretcher holds back up to about 40 ms of input (the search reach
//   ahead of the next hop, plus that hop's advance); the output needs no
//   more than that. Drain() plays it out at the end of a stream.
class CTempoStretcher {
public:
    static constexpr int kMinRate = 8000;
    static constexpr int kMaxRate = 96000;
    static constexpr int kMaxChannels = 8;
    static constexpr double kMinFactor = 0.5;
    static constexpr double kMaxFactor = 2.0;
    // How many hops back InputPositionAt() can look: about 12 s of output.
    static constexpr int kMarkCount = 1024;
    // At most this many coarse peaks are looked at again at the full rate.
    static constexpr int kRefinedPeaks = 5;
    // Frames read around a segment beyond its ends: the interpolation
    // between samples and the scores either side of the best match.
    static constexpr int kReadMargin = 4;

    CTempoStretcher() = default;
    CTempoStretcher(const CTempoStretcher&) = delete;
    CTempoStretcher& operator=(const CTempoStretcher&) = delete;

    // Sizes every buffer for calls of at most maxBlockFrames input frames and
    // starts afresh (as Reset()). The factor set before is kept (1.0 on a new
    // object). False, with the object unusable, for a rate, channel count or
    // block size out of range. May be called again to change the format.
    bool Configure(int sampleRate, int channels, int maxBlockFrames);
    bool IsConfigured() const { return m_channels > 0; }

    // Takes effect at the next hop, so within one hop of output (about
    // 12.5 ms) of the samples already returned; the splice is crossfaded like
    // any other, so the change makes no click.
    void SetFactor(double factor);
    double Factor() const { return m_factor; }

    // Forgets all input, output and position marks: the next input frame is
    // frame 0 and is played from its start, faded in over one overlap. For a
    // seek or a loop back.
    void Reset();

    // Takes all inFrames frames of `in` (at most maxBlockFrames), runs as many
    // hops as the input allows, and copies up to outCapacityFrames finished
    // frames to `out`. Returns the number of frames written. Frames that did
    // not fit wait for the next call; with outCapacityFrames of at least
    // MaxOutputFrames(inFrames) nothing is ever left waiting. Input that finds
    // no room (only possible when the caller keeps leaving output behind) is
    // dropped and counted by DroppedInputFrames(). `in` may be null when
    // inFrames is 0.
    int Process(const int16_t* in, int inFrames, int16_t* out, int outCapacityFrames);

    // Ends the stream: plays out the input held back, as if silence followed,
    // and stops the output where the last input frame falls at the present
    // factor, so total output = total input / factor. Call it until it returns
    // 0; then Reset() before the next stream.
    int Drain(int16_t* out, int outCapacityFrames);

    // The most frames one Process() call of inFrames can produce at any
    // factor, provided the previous call left nothing waiting.
    int MaxOutputFrames(int inFrames) const;

    // Where output frame `outputFrame` (counted since Reset, over every frame
    // produced, returned or still waiting) comes from in the input, in input
    // frames since Reset, with a fraction. Marks are kept at every hop, where
    // the output plays one input frame unmixed; between marks the position is
    // interpolated. Older than the oldest kept mark, or beyond the last
    // produced frame, it is extrapolated at the present factor.
    double InputPositionAt(int64_t outputFrame) const;

    int64_t InputFramesReceived() const { return m_received; }
    int64_t OutputFramesProduced() const { return m_produced; }
    int OutputFramesWaiting() const { return int(m_outEnd - m_outBegin); }
    int64_t DroppedInputFrames() const { return m_dropped; }

    int SampleRate() const { return m_rate; }
    int Channels() const { return m_channels; }
    // Frames of output per hop, of crossfade at the start of each hop, and
    // of search on each side of the nominal place.
    int HopFrames() const { return m_hop; }
    int OverlapFrames() const { return m_overlap; }
    int SearchFrames() const { return m_search; }

private:
    struct Mark {
        int64_t output;   // output frame count at the mark
        double input;     // input frame played there, since Reset
    };

    void AppendInput(const int16_t* in, int frames);
    void AppendSilence(int frames);
    void UpdateCoarse();
    void Compact();
    int RunHops();
    int64_t Search(int64_t base, int64_t reference, float referenceFraction, float* fraction);
    int64_t SearchWhole(int64_t base, int64_t reference, const float* target);
    void Emit(int64_t reference, float referenceFraction, int64_t start, float fraction);
    void AddMark(int64_t output, double input);
    int Pull(int16_t* out, int capacity);
    int64_t InputRoom() const { return m_inCapacity - (m_inEnd - m_inBegin); }

    // Format and lengths, fixed by Configure().
    int m_rate = 0;
    int m_channels = 0;
    int m_maxBlock = 0;
    int m_hop = 0;
    int m_overlap = 0;
    int m_search = 0;
    int m_decimation = 1;
    int m_lead = 0;            // silent frames before input frame 0
    int64_t m_inCapacity = 0;
    int64_t m_outCapacity = 0;
    double m_factor = 1.0;
    double m_hopFactor = 1.0;     // the factor the last hop was laid at

    // Buffers, sized by Configure(). Input is held per channel and as the
    // channel sum, with a decimated copy of the sum for the coarse search.
    // Input indices count frames from the start of the silent lead; the
    // buffers hold [m_inBegin, m_inEnd), m_inBegin a multiple of the
    // decimation.
    std::vector<float> m_input;    // channel c at m_input[c * m_inCapacity]
    std::vector<float> m_sum;
    std::vector<float> m_coarse;
    std::vector<float> m_fade;     // weight of the new segment, rising
    std::vector<int16_t> m_output; // interleaved, [m_outBegin, m_outEnd)
    std::vector<Mark> m_marks;     // ring
    std::vector<float> m_scores;   // search scratch
    std::vector<float> m_scratch;  // segments read between samples

    // Stream state.
    int64_t m_inBegin = 0;
    int64_t m_inEnd = 0;
    int64_t m_coarseEnd = 0;       // coarse values computed, in coarse units
    int64_t m_previous = 0;        // start of the segment laid last,
    float m_previousFraction = 0;  // plus this part of a frame
    double m_nominal = 0.0;        // its nominal start
    int64_t m_outBegin = 0;
    int64_t m_outEnd = 0;
    int64_t m_received = 0;
    int64_t m_produced = 0;
    int64_t m_dropped = 0;
    int m_markFirst = 0;
    int m_markCount = 0;
    bool m_draining = false;
    bool m_drained = false;
};

// 8-bit audio goes through the stretcher as 16-bit. Unsigned 8-bit sample v
// stands for (v - 128) / 128 of full scale.
void WidenU8ToS16(const uint8_t* in, int16_t* out, size_t count);
// Back to 8 bits: nearest value, halves upwards, held at 0 and 255.
void NarrowS16ToU8(const int16_t* in, uint8_t* out, size_t count);
