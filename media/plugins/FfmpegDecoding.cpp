// The FFmpeg plugin's decoding: FfmpegDecoder's work, behind the plugin
// table so that only a run that decodes maps FFmpeg's libraries.
#include "media/FfmpegPluginTable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libswresample/swresample.h>
}


namespace media {
namespace {

constexpr int kIoBufferBytes = 64 * 1024;
// How far the recognition looks past a leading ID3v2 tag before it gives up.
constexpr unsigned kProbeBytes = 1u << 20;
// A guess weaker than this is no recognition: some formats answer a low
// score for a few bytes that happen to look like a frame head, and decoding
// such a file would only turn noise into a lesson.
constexpr int kWeakestAcceptedScore = AVPROBE_SCORE_RETRY + 1;
// Damaged packets in a row after which the stream is taken as unreadable.
constexpr int kMostDamagedInARow = 200;

std::string ErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    if (av_strerror(code, text, sizeof text) < 0) std::snprintf(text, sizeof text, "error %d", code);
    return text;
}

int ReadFromSource(void* opaque, uint8_t* into, int size)
{
    const int64_t got = static_cast<ByteSource*>(opaque)->Read(into, static_cast<uint32_t>(std::max(size, 0)));
    if (got < 0) return AVERROR(EIO);
    if (got == 0) return AVERROR_EOF;
    return static_cast<int>(got);
}

int64_t SeekInSource(void* opaque, int64_t offset, int whence)
{
    ByteSource& source = *static_cast<ByteSource*>(opaque);
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE) return static_cast<int64_t>(source.Size());
    int64_t base;
    switch (whence) {
    case SEEK_SET: base = 0; break;
    case SEEK_CUR: base = static_cast<int64_t>(source.Position()); break;
    case SEEK_END: base = static_cast<int64_t>(source.Size()); break;
    default: return AVERROR(EINVAL);
    }
    const int64_t target = base + offset;
    if (target < 0) return AVERROR(EINVAL);
    return source.Seek(static_cast<uint64_t>(target)) ? target : AVERROR(EIO);
}

// The libraries write their warnings to standard error, which in a host's
// process is not ours to fill; a host that chose a level of its own keeps it.
void QuietLibraryLogOnce()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (av_log_get_level() == AV_LOG_INFO) av_log_set_level(AV_LOG_QUIET);
    });
}

// The bytes of an ID3v2 tag at the start of the source (its ten-byte head,
// the body and a footer when the flags say there is one), or 0. Such a tag
// may hold pictures of several megabytes; the recognition must look past it.
uint64_t LeadingId3Bytes(ByteSource& source)
{
    uint8_t head[10] = {};
    const int64_t got = source.Read(head, sizeof head);
    source.Seek(0);
    if (got != static_cast<int64_t>(sizeof head) || head[0] != 'I' || head[1] != 'D' || head[2] != '3') return 0;
    if ((head[6] | head[7] | head[8] | head[9]) & 0x80) return 0;  // not a synchsafe size
    const uint64_t body = uint64_t(head[6]) << 21 | uint64_t(head[7]) << 14 | uint64_t(head[8]) << 7 | head[9];
    return 10 + body + ((head[5] & 0x10) ? 10 : 0);
}

bool SameLayout(const AVChannelLayout& a, const AVChannelLayout& b)
{
    return av_channel_layout_compare(&a, &b) == 0;
}

}  // namespace

struct DecodingState {
    ByteSource* source = nullptr;  // the caller's
    AVIOContext* io = nullptr;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    SwrContext* resampler = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
    int streamIndex = -1;
    DecodedStream stream;
    AVChannelLayout outLayout{};
    // What the resampler was set up for; a stream may change it midway
    // (chained Ogg streams, an MP3 that switches rate).
    int inFormat = -1;
    int inRate = 0;
    AVChannelLayout inLayout{};
    std::vector<int16_t> out;
    bool draining = false;
    bool finished = false;
    std::string failure;
    uint64_t damaged = 0;
    int damagedInARow = 0;
    uint64_t frames = 0;

    ~DecodingState()
    {
        av_frame_free(&frame);
        av_packet_free(&packet);
        swr_free(&resampler);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
        if (io != nullptr) {
            // The context may have replaced the buffer it was given.
            av_freep(&io->buffer);
            avio_context_free(&io);
        }
        av_channel_layout_uninit(&outLayout);
        av_channel_layout_uninit(&inLayout);
    }

    bool SetUpResampler(const AVFrame& input)
    {
        AVChannelLayout layout{};
        if (input.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || input.ch_layout.nb_channels <= 0) {
            const int channels = input.ch_layout.nb_channels > 0 ? input.ch_layout.nb_channels : codec->ch_layout.nb_channels;
            av_channel_layout_default(&layout, channels);
        } else if (av_channel_layout_copy(&layout, &input.ch_layout) < 0) {
            return false;
        }
        const int rate = input.sample_rate > 0 ? input.sample_rate : codec->sample_rate;
        if (resampler != nullptr && input.format == inFormat && rate == inRate && SameLayout(layout, inLayout)) {
            av_channel_layout_uninit(&layout);
            return true;
        }
        swr_free(&resampler);
        av_channel_layout_uninit(&inLayout);
        inLayout = layout;
        inFormat = input.format;
        inRate = rate;
        // The default matrix folds surround channels into two at levels that
        // keep the sum from clipping, as FFmpeg's own tool does with -ac 2.
        if (swr_alloc_set_opts2(&resampler, &outLayout, AV_SAMPLE_FMT_S16, static_cast<int>(stream.sampleRate),
                                &inLayout, static_cast<AVSampleFormat>(inFormat), inRate, 0, nullptr) < 0 ||
            swr_init(resampler) < 0) {
            swr_free(&resampler);
            return false;
        }
        return true;
    }

    // Converts and hands on; false when the sink asked to stop.
    bool Deliver(const uint8_t** planes, int inputFrames, const FfmpegDecoder::Sink& sink)
    {
        const int capacity = swr_get_out_samples(resampler, inputFrames);
        if (capacity <= 0) return true;
        const size_t wanted = size_t(capacity) * stream.channels;
        if (out.size() < wanted) out.resize(wanted);
        uint8_t* planesOut[1] = {reinterpret_cast<uint8_t*>(out.data())};
        const int got = swr_convert(resampler, planesOut, capacity, planes, inputFrames);
        if (got <= 0) return true;
        frames += uint64_t(got);
        return sink(out.data(), size_t(got));
    }

    FfmpegDecoder::Step DeliverFrame(const FfmpegDecoder::Sink& sink)
    {
        const bool ready = SetUpResampler(*frame);
        const bool keepGoing =
            !ready || Deliver(const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples, sink);
        av_frame_unref(frame);
        if (!ready) ++damaged;
        return keepGoing ? FfmpegDecoder::Step::More : FfmpegDecoder::Step::Stopped;
    }

    void CountDamaged()
    {
        ++damaged;
        if (++damagedInARow > kMostDamagedInARow && failure.empty()) {
            failure = std::to_string(kMostDamagedInARow) + " damaged packets in a row";
            StartDraining();
        }
    }

    void StartDraining()
    {
        draining = true;
        avcodec_send_packet(codec, nullptr);
    }
};

class LibavDecoder final : public DecoderBackend {
public:
    explicit LibavDecoder(ByteSource* source) { m_state.source = source; }
    bool Open(std::string& reason) override;
    const DecodedStream& Stream() const override { return m_state.stream; }
    FfmpegDecoder::Step DecodeNext(const FfmpegDecoder::Sink& sink) override;
    const std::string& Failure() const override { return m_state.failure; }
    uint64_t DamagedPackets() const override { return m_state.damaged; }
    uint64_t FramesDecoded() const override { return m_state.frames; }

private:
    DecodingState m_state;
};

namespace {

// The container, found by content alone: no name is given, so no
// extension can lift a weak guess. A tag too long to be looked past is
// beyond any MP3 we'd play.
bool OpenContainer(DecodingState& s, std::string& reason)
{
    const uint64_t tagBytes = LeadingId3Bytes(*s.source);
    auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
    s.io = buffer != nullptr ? avio_alloc_context(buffer, kIoBufferBytes, 0, s.source, ReadFromSource, nullptr,
                                                  SeekInSource)
                             : nullptr;
    if (s.io == nullptr) {
        av_free(buffer);
        reason = ErrorText(AVERROR(ENOMEM));
        return false;
    }

    const AVInputFormat* input = nullptr;
    const unsigned offset = static_cast<unsigned>(std::min<uint64_t>(tagBytes, 1u << 26));
    const int score = av_probe_input_buffer2(s.io, &input, "", nullptr, offset, offset + kProbeBytes);
    if (score < 0 || input == nullptr || score < kWeakestAcceptedScore) {
        reason = ErrorText(score < 0 ? score : AVERROR_INVALIDDATA);
        return false;
    }

    s.format = avformat_alloc_context();
    if (s.format == nullptr) {
        reason = ErrorText(AVERROR(ENOMEM));
        return false;
    }
    s.format->pb = s.io;
    s.format->flags |= AVFMT_FLAG_CUSTOM_IO;
    int result = avformat_open_input(&s.format, "", input, nullptr);
    if (result < 0) {
        reason = ErrorText(result);  // the context is freed by the failed open
        return false;
    }
    result = avformat_find_stream_info(s.format, nullptr);
    if (result < 0) {
        reason = ErrorText(result);
        return false;
    }
    return true;
}

// The best audio stream and its decoder; every other stream is dropped.
const AVCodec* ChooseAudioStream(DecodingState& s, std::string& reason)
{
    const AVCodec* decoder = nullptr;
    s.streamIndex = av_find_best_stream(s.format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (s.streamIndex == AVERROR_STREAM_NOT_FOUND) {
        reason = "no audio stream in it";
        return nullptr;
    }
    if (s.streamIndex < 0 || decoder == nullptr) {
        const AVStream* audio = nullptr;
        for (unsigned i = 0; i < s.format->nb_streams && audio == nullptr; ++i)
            if (s.format->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) audio = s.format->streams[i];
        reason = std::string("no decoder for its ") +
                 (audio != nullptr ? avcodec_get_name(audio->codecpar->codec_id) : "audio");
        return nullptr;
    }
    // Cover art and other streams are never read into a packet.
    for (unsigned i = 0; i < s.format->nb_streams; ++i)
        if (int(i) != s.streamIndex) s.format->streams[i]->discard = AVDISCARD_ALL;
    return decoder;
}

bool OpenCodec(DecodingState& s, const AVCodec* decoder, std::string& reason)
{
    AVStream* audio = s.format->streams[s.streamIndex];
    s.codec = avcodec_alloc_context3(decoder);
    if (s.codec == nullptr || avcodec_parameters_to_context(s.codec, audio->codecpar) < 0) {
        reason = ErrorText(AVERROR(ENOMEM));
        return false;
    }
    // One thread: a decoder that spreads audio over several gains nothing
    // and holds several frames in memory.
    s.codec->thread_count = 1;
    s.codec->pkt_timebase = audio->time_base;
    const int result = avcodec_open2(s.codec, decoder, nullptr);
    if (result < 0) {
        reason = ErrorText(result);
        return false;
    }
    if (s.codec->sample_rate <= 0 || s.codec->ch_layout.nb_channels <= 0) {
        reason = "the audio stream states no sample rate or no channels";
        return false;
    }
    return true;
}

// What the caller learns of the stream before the first sample.
void DescribeStream(DecodingState& s, const AVCodec* decoder)
{
    const AVStream* audio = s.format->streams[s.streamIndex];
    s.stream.sourceChannels = static_cast<uint16_t>(std::min(s.codec->ch_layout.nb_channels, 65535));
    s.stream.channels = static_cast<uint16_t>(std::min(s.codec->ch_layout.nb_channels, 2));
    s.stream.sampleRate = static_cast<uint32_t>(s.codec->sample_rate);
    if (s.format->duration != AV_NOPTS_VALUE && s.format->duration > 0)
        s.stream.announcedSeconds = double(s.format->duration) / AV_TIME_BASE;
    else if (audio->duration != AV_NOPTS_VALUE && audio->duration > 0)
        s.stream.announcedSeconds = double(audio->duration) * av_q2d(audio->time_base);
    s.stream.announcedByBitrate = s.format->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
    s.stream.container = s.format->iformat->name;
    s.stream.codec = decoder->name;
    av_channel_layout_default(&s.outLayout, s.stream.channels);
}

}  // namespace

bool LibavDecoder::Open(std::string& reason)
{
    DecodingState& s = m_state;
    if (s.source == nullptr) {
        reason = "cannot open the file";
        return false;
    }
    if (s.io != nullptr) {
        reason = "already open";
        return false;
    }
    QuietLibraryLogOnce();
    if (!OpenContainer(s, reason)) return false;
    const AVCodec* decoder = ChooseAudioStream(s, reason);
    if (decoder == nullptr || !OpenCodec(s, decoder, reason)) return false;
    DescribeStream(s, decoder);
    s.packet = av_packet_alloc();
    s.frame = av_frame_alloc();
    if (s.packet == nullptr || s.frame == nullptr) {
        reason = ErrorText(AVERROR(ENOMEM));
        return false;
    }
    return true;
}

FfmpegDecoder::Step LibavDecoder::DecodeNext(const FfmpegDecoder::Sink& sink)
{
    DecodingState& s = m_state;
    if (s.codec == nullptr || s.packet == nullptr) {
        if (s.failure.empty()) s.failure = "not open";
        return FfmpegDecoder::Step::Failed;
    }
    if (s.finished) return s.failure.empty() ? FfmpegDecoder::Step::Finished : FfmpegDecoder::Step::Failed;

    if (!s.draining) {
        const int result = av_read_frame(s.format, s.packet);
        if (result == AVERROR_EOF) {
            s.StartDraining();
        } else if (result < 0) {
            // As FFmpeg's own tool does: a read error ends the input, and
            // the decoder still gives up the frames it holds.
            s.failure = ErrorText(result);
            s.StartDraining();
        } else {
            const bool ours = s.packet->stream_index == s.streamIndex;
            const int sent = ours ? avcodec_send_packet(s.codec, s.packet) : 0;
            av_packet_unref(s.packet);
            if (sent < 0 && sent != AVERROR(EAGAIN)) s.CountDamaged();
        }
    }

    for (;;) {
        const int result = avcodec_receive_frame(s.codec, s.frame);
        if (result == AVERROR(EAGAIN) && !s.draining) return FfmpegDecoder::Step::More;
        if (result == AVERROR_EOF || (result < 0 && s.draining)) {
            // What the resampler still holds (only when it changes the rate).
            if (s.resampler != nullptr && !s.Deliver(nullptr, 0, sink)) return FfmpegDecoder::Step::Stopped;
            s.finished = true;
            return s.failure.empty() ? FfmpegDecoder::Step::Finished : FfmpegDecoder::Step::Failed;
        }
        if (result < 0) {
            s.CountDamaged();
            return FfmpegDecoder::Step::More;
        }
        s.damagedInARow = 0;
        if (s.DeliverFrame(sink) == FfmpegDecoder::Step::Stopped) return FfmpegDecoder::Step::Stopped;
    }
}

DecoderBackend* CreateLibavDecoder(ByteSource* source)
{
    return new LibavDecoder(source);
}

}  // namespace media
