// The FFmpeg plugin's encoding: EncodeFile's work, behind the plugin table.
#include "media/FfmpegPluginTable.h"

#include <algorithm>
#include <cctype>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}


namespace media {
namespace {

struct KindInfo {
    EncodedKind kind;
    const char* extension;
    const char* muxer;
    // Encoders in the order they are preferred; FFmpeg's own Vorbis and Opus
    // encoders are experimental and left out.
    std::vector<const char*> encoders;
    int64_t defaultBitRatePerChannel;  // 0: lossless
};

const std::vector<KindInfo>& Kinds()
{
    static const std::vector<KindInfo> kinds = {
        {EncodedKind::Mp3, "mp3", "mp3", {"libmp3lame"}, 64000},
        {EncodedKind::M4a, "m4a", "ipod", {"aac", "libfdk_aac"}, 64000},
        {EncodedKind::Ogg, "ogg", "ogg", {"libvorbis"}, 64000},
        {EncodedKind::Opus, "opus", "opus", {"libopus"}, 32000},
        {EncodedKind::Flac, "flac", "flac", {"flac"}, 0},
    };
    return kinds;
}

const KindInfo& InfoFor(EncodedKind kind)
{
    for (const KindInfo& info : Kinds())
        if (info.kind == kind) return info;
    return Kinds().front();
}

std::string ErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

// The source's rate when the encoder takes it, else the lowest higher rate
// it takes, else its highest: never lose bandwidth to the encoder.
int ChooseRate(const AVCodec& codec, int rate)
{
    if (codec.supported_samplerates == nullptr) return rate;
    int higher = 0;
    int highest = 0;
    for (const int* r = codec.supported_samplerates; *r != 0; ++r) {
        if (*r == rate) return rate;
        if (*r > rate && (higher == 0 || *r < higher)) higher = *r;
        highest = std::max(highest, *r);
    }
    return higher != 0 ? higher : highest;
}

// 16-bit samples where the encoder takes them (no conversion), else the
// encoder's first format.
AVSampleFormat ChooseFormat(const AVCodec& codec)
{
    if (codec.sample_fmts == nullptr) return AV_SAMPLE_FMT_S16;
    for (const AVSampleFormat* f = codec.sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
        if (*f == AV_SAMPLE_FMT_S16 || *f == AV_SAMPLE_FMT_S16P) return *f;
    return codec.sample_fmts[0];
}

// One encoding from open to trailer; every FFmpeg object it holds is freed
// with it, whatever step failed.
class Encoding {
public:
    ~Encoding()
    {
        av_frame_free(&m_frame);
        av_packet_free(&m_packet);
        av_audio_fifo_free(m_fifo);
        swr_free(&m_resampler);
        if (m_converted != nullptr) av_freep(&m_converted[0]);
        av_freep(&m_converted);
        avcodec_free_context(&m_codec);
        if (m_output != nullptr) {
            if (m_output->pb != nullptr) avio_closep(&m_output->pb);
            avformat_free_context(m_output);
        }
        av_channel_layout_uninit(&m_inLayout);
    }

    bool Open(const KindInfo& info, const std::string& path, int channels, int rate, int64_t bitRate,
              std::string& error)
    {
        const AVCodec* codec = nullptr;
        for (const char* name : info.encoders)
            if ((codec = avcodec_find_encoder_by_name(name)) != nullptr) break;
        if (codec == nullptr) {
            error = std::string("this FFmpeg has no encoder for .") + info.extension + " (" + info.encoders[0] + ")";
            return false;
        }
        int result = avformat_alloc_output_context2(&m_output, nullptr, info.muxer, path.c_str());
        if (result < 0 || m_output == nullptr) return Fail(error, "no " + std::string(info.muxer) + " muxer", result);
        AVStream* stream = avformat_new_stream(m_output, nullptr);
        m_codec = avcodec_alloc_context3(codec);
        if (stream == nullptr || m_codec == nullptr) return Fail(error, "out of memory", AVERROR(ENOMEM));
        m_codec->sample_fmt = ChooseFormat(*codec);
        m_codec->sample_rate = ChooseRate(*codec, rate);
        av_channel_layout_default(&m_codec->ch_layout, channels);
        if (info.defaultBitRatePerChannel > 0)
            m_codec->bit_rate = bitRate > 0 ? bitRate : info.defaultBitRatePerChannel * channels;
        m_codec->time_base = AVRational{1, m_codec->sample_rate};
        if (m_output->oformat->flags & AVFMT_GLOBALHEADER) m_codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        m_codec->thread_count = 1;
        result = avcodec_open2(m_codec, codec, nullptr);
        if (result < 0) return Fail(error, std::string("the ") + codec->name + " encoder refused the settings", result);
        result = avcodec_parameters_from_context(stream->codecpar, m_codec);
        if (result < 0) return Fail(error, "the stream", result);
        stream->time_base = m_codec->time_base;
        m_stream = stream;

        result = avio_open(&m_output->pb, path.c_str(), AVIO_FLAG_WRITE);
        if (result < 0) return Fail(error, "cannot write '" + path + "'", result);
        result = avformat_write_header(m_output, nullptr);
        if (result < 0) return Fail(error, "cannot write the head", result);

        av_channel_layout_default(&m_inLayout, channels);
        if (swr_alloc_set_opts2(&m_resampler, &m_codec->ch_layout, m_codec->sample_fmt, m_codec->sample_rate,
                                &m_inLayout, AV_SAMPLE_FMT_S16, rate, 0, nullptr) < 0 ||
            swr_init(m_resampler) < 0)
            return Fail(error, "cannot convert the samples", AVERROR(EINVAL));

        const bool anySize = (codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) || m_codec->frame_size <= 0;
        m_frameSize = anySize ? 1024 : m_codec->frame_size;
        m_shortLastFrame = anySize || (codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME);
        m_fifo = av_audio_fifo_alloc(m_codec->sample_fmt, channels, m_frameSize * 2);
        m_frame = av_frame_alloc();
        m_packet = av_packet_alloc();
        if (m_fifo == nullptr || m_frame == nullptr || m_packet == nullptr)
            return Fail(error, "out of memory", AVERROR(ENOMEM));
        m_frame->nb_samples = m_frameSize;
        m_frame->format = m_codec->sample_fmt;
        m_frame->sample_rate = m_codec->sample_rate;
        if (av_channel_layout_copy(&m_frame->ch_layout, &m_codec->ch_layout) < 0 || av_frame_get_buffer(m_frame, 0) < 0)
            return Fail(error, "out of memory", AVERROR(ENOMEM));
        return true;
    }

    // Takes interleaved 16-bit samples at the input's rate.
    bool Write(const int16_t* samples, size_t frames, std::string& error)
    {
        const uint8_t* planes[1] = {reinterpret_cast<const uint8_t*>(samples)};
        return Convert(planes, static_cast<int>(frames), error) && EncodeWholeFrames(false, error);
    }

    bool Finish(std::string& error)
    {
        if (!Convert(nullptr, 0, error) || !EncodeWholeFrames(true, error)) return false;
        int result = avcodec_send_frame(m_codec, nullptr);
        if (result < 0) return Fail(error, "cannot end the stream", result);
        if (!WritePackets(error)) return false;
        result = av_write_trailer(m_output);
        if (result < 0) return Fail(error, "cannot write the end", result);
        result = avio_closep(&m_output->pb);
        if (result < 0) return Fail(error, "cannot close the output", result);
        return true;
    }

private:
    static bool Fail(std::string& error, const std::string& what, int code)
    {
        error = what + " (" + ErrorText(code) + ")";
        return false;
    }

    bool Convert(const uint8_t** planes, int frames, std::string& error)
    {
        const int capacity = swr_get_out_samples(m_resampler, frames);
        if (capacity <= 0) return true;
        if (capacity > m_convertedCapacity) {
            if (m_converted != nullptr) av_freep(&m_converted[0]);
            av_freep(&m_converted);
            if (av_samples_alloc_array_and_samples(&m_converted, nullptr, m_codec->ch_layout.nb_channels, capacity,
                                                   m_codec->sample_fmt, 0) < 0)
                return Fail(error, "out of memory", AVERROR(ENOMEM));
            m_convertedCapacity = capacity;
        }
        const int got = swr_convert(m_resampler, m_converted, capacity, planes, frames);
        if (got < 0) return Fail(error, "cannot convert the samples", got);
        if (got > 0 && av_audio_fifo_write(m_fifo, reinterpret_cast<void**>(m_converted), got) < got)
            return Fail(error, "out of memory", AVERROR(ENOMEM));
        return true;
    }

    // Every whole frame in the queue; at the end also the rest, as a short
    // frame where the encoder takes one, else padded with silence.
    bool EncodeWholeFrames(bool atEnd, std::string& error)
    {
        while (av_audio_fifo_size(m_fifo) >= m_frameSize || (atEnd && av_audio_fifo_size(m_fifo) > 0)) {
            const int available = std::min(av_audio_fifo_size(m_fifo), m_frameSize);
            int result = av_frame_make_writable(m_frame);
            if (result < 0) return Fail(error, "out of memory", result);
            const int count = available < m_frameSize && !m_shortLastFrame ? m_frameSize : available;
            m_frame->nb_samples = count;
            if (count > available)
                av_samples_set_silence(m_frame->extended_data, available, count - available,
                                       m_codec->ch_layout.nb_channels, m_codec->sample_fmt);
            if (av_audio_fifo_read(m_fifo, reinterpret_cast<void**>(m_frame->extended_data), available) < available)
                return Fail(error, "cannot take the samples", AVERROR(EIO));
            m_frame->pts = m_nextPts;
            m_nextPts += count;
            result = avcodec_send_frame(m_codec, m_frame);
            if (result < 0) return Fail(error, "the encoder refused the samples", result);
            if (!WritePackets(error)) return false;
        }
        return true;
    }

    bool WritePackets(std::string& error)
    {
        for (;;) {
            int result = avcodec_receive_packet(m_codec, m_packet);
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return true;
            if (result < 0) return Fail(error, "the encoder failed", result);
            av_packet_rescale_ts(m_packet, m_codec->time_base, m_stream->time_base);
            m_packet->stream_index = m_stream->index;
            result = av_interleaved_write_frame(m_output, m_packet);
            if (result < 0) return Fail(error, "cannot write", result);
        }
    }

    AVFormatContext* m_output = nullptr;
    AVStream* m_stream = nullptr;
    AVCodecContext* m_codec = nullptr;
    SwrContext* m_resampler = nullptr;
    AVChannelLayout m_inLayout{};
    uint8_t** m_converted = nullptr;
    int m_convertedCapacity = 0;
    AVAudioFifo* m_fifo = nullptr;
    AVFrame* m_frame = nullptr;
    AVPacket* m_packet = nullptr;
    int m_frameSize = 0;
    bool m_shortLastFrame = false;
    int64_t m_nextPts = 0;
};

}  // namespace

DecoderBackend* CreateLibavDecoder(ByteSource* source);

bool EncodeFromSource(ByteSource& input, const std::string& inputPath, const std::string& outputPath,
                      const EncodeSettings& settings, std::string& error, const std::function<bool()>& keepGoing)
{
    std::unique_ptr<DecoderBackend> decoding(CreateLibavDecoder(&input));
    DecoderBackend& decoder = *decoding;
    std::string why;
    if (!decoder.Open(why)) {
        error = "cannot read '" + inputPath + "': " + why;
        return false;
    }
    const DecodedStream& stream = decoder.Stream();
    Encoding encoding;
    if (!encoding.Open(InfoFor(settings.kind), outputPath, stream.channels, static_cast<int>(stream.sampleRate),
                       settings.bitRate, error))
        return false;

    bool stopped = false;
    bool failed = false;
    const auto sink = [&](const int16_t* samples, size_t frames) {
        if (keepGoing && !keepGoing()) {
            stopped = true;
            return false;
        }
        failed = !encoding.Write(samples, frames, error);
        return !failed;
    };
    FfmpegDecoder::Step step;
    do {
        step = decoder.DecodeNext(sink);
    } while (step == FfmpegDecoder::Step::More);
    if (stopped) {
        error = "stopped";
        return false;
    }
    if (failed) return false;
    if (step == FfmpegDecoder::Step::Failed) {
        error = "cannot read '" + inputPath + "': " + decoder.Failure();
        return false;
    }
    return encoding.Finish(error);
}

}  // namespace media
