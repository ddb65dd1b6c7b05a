#include "audio/SoundWriter.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <system_error>

#include "audio/AudioError.h"
#include "audio/FFmpegLog.h"

namespace quillora::audio {

namespace {

// Encoders that take frames of any length get this many samples at a time.
constexpr int kVariableFrameSize = 1024;

bool takesSampleRate(const AVCodec& codec, int rate)
{
    if (!codec.supported_samplerates) return true;
    for (const int* supported = codec.supported_samplerates; *supported != 0; ++supported) {
        if (*supported == rate) return true;
    }
    return false;
}

// The source's rate when the encoder takes it; else 44100 for the rates of
// that family (88200, 176400...) and 48000 for the others.
int storedSampleRate(const AVCodec& codec, int sourceRate)
{
    if (takesSampleRate(codec, sourceRate)) return sourceRate;
    const int preferred = sourceRate % 11025 == 0 ? 44100 : 48000;
    if (takesSampleRate(codec, preferred)) return preferred;
    return codec.supported_samplerates[0];
}

// Planar float when the encoder takes it: what most decoders give, so the
// conversion before it is a copy.
AVSampleFormat storedSampleFormat(const AVCodec& codec)
{
    if (!codec.sample_fmts) return AV_SAMPLE_FMT_FLTP;
    for (const AVSampleFormat* format = codec.sample_fmts; *format != AV_SAMPLE_FMT_NONE; ++format) {
        if (*format == AV_SAMPLE_FMT_FLTP) return *format;
    }
    return codec.sample_fmts[0];
}

std::filesystem::path partialPath(const std::filesystem::path& output)
{
    static std::atomic<unsigned> made{0};
    return output.parent_path() /
           fmt::format(".{}.partial-{}-{}", output.filename().string(), static_cast<long>(getpid()), made++);
}

}  // namespace

SoundWriter::SoundWriter(const std::filesystem::path& output, const EncoderChoice& choice, int channels, int sourceRate,
                         std::int64_t bitrate)
    : output_(output), partial_{partialPath(output)}, frame_(av_frame_alloc()), packet_(av_packet_alloc())
{
    sendFFmpegMessagesToLog();
    const AVCodec* codec = avcodec_find_encoder_by_name(choice.encoder.c_str());
    if (!codec) {
        throw AudioError(fmt::format("cannot write {}: this FFmpeg has no '{}' encoder; install Debian's libavcodec59",
                                     output_.string(), choice.encoder));
    }
    shape_ = SampleShape{storedSampleFormat(*codec), storedSampleRate(*codec, sourceRate), channels};

    int status = avformat_alloc_output_context2(&partial_.muxer, nullptr, choice.muxer.c_str(), partial_.path.c_str());
    if (status < 0) failWriting(status);
    encoder_.reset(avcodec_alloc_context3(codec));
    if (!encoder_ || !frame_ || !packet_) failWriting(AVERROR(ENOMEM));
    encoder_->sample_fmt = shape_.format;
    encoder_->sample_rate = shape_.sampleRate;
    encoder_->ch_layout = shape_.layout();
    encoder_->bit_rate = bitrate;
    encoder_->time_base = AVRational{1, shape_.sampleRate};
    if (partial_.muxer->oformat->flags & AVFMT_GLOBALHEADER) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    status = avcodec_open2(encoder_.get(), codec, nullptr);
    if (status < 0) {
        throw AudioError(fmt::format("cannot write {}: the {} encoder refuses {} channel(s) at {} Hz and {} bit/s ({})",
                                     output_.string(), choice.encoder, channels, shape_.sampleRate, bitrate,
                                     ffmpegErrorText(status)));
    }
    stream_ = avformat_new_stream(partial_.muxer, nullptr);
    if (!stream_) failWriting(AVERROR(ENOMEM));
    status = avcodec_parameters_from_context(stream_->codecpar, encoder_.get());
    if (status < 0) failWriting(status);
    stream_->time_base = encoder_->time_base;

    status = avio_open(&partial_.muxer->pb, partial_.path.c_str(), AVIO_FLAG_WRITE);
    if (status < 0) failWriting(status);
    AVDictionary* options = nullptr;
    for (const auto& [key, value] : choice.muxerOptions) av_dict_set(&options, key.c_str(), value.c_str(), 0);
    status = avformat_write_header(partial_.muxer, &options);
    const AVDictionaryEntry* unused = av_dict_get(options, "", nullptr, AV_DICT_IGNORE_SUFFIX);
    const std::string unusedKey = unused ? unused->key : "";
    av_dict_free(&options);
    if (status < 0) failWriting(status);
    if (!unusedKey.empty()) {
        throw AudioError(fmt::format("cannot write {}: FFmpeg's {} writer has no option '{}'", output_.string(),
                                     choice.muxer, unusedKey));
    }

    frameSize_ = encoder_->frame_size > 0 ? encoder_->frame_size : kVariableFrameSize;
    fifo_.reset(av_audio_fifo_alloc(shape_.format, channels, frameSize_ * 4));
    frame_->format = shape_.format;
    frame_->sample_rate = shape_.sampleRate;
    frame_->ch_layout = shape_.layout();
    frame_->nb_samples = frameSize_;
    status = fifo_ ? av_frame_get_buffer(frame_.get(), 0) : AVERROR(ENOMEM);
    if (status < 0) failWriting(status);
}

SoundWriter::PartialFile::~PartialFile()
{
    if (muxer) {
        if (muxer->pb) avio_closep(&muxer->pb);
        avformat_free_context(muxer);
    }
    if (!inPlace) {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
}

void SoundWriter::write(const AVFrame& frame)
{
    // The FIFO only reads the frame's samples; its declaration predates const.
    void** samples = reinterpret_cast<void**>(const_cast<std::uint8_t**>(frame.extended_data));
    if (av_audio_fifo_write(fifo_.get(), samples, frame.nb_samples) < frame.nb_samples) {
        failWriting(AVERROR(ENOMEM));
    }
    while (av_audio_fifo_size(fifo_.get()) >= frameSize_) encodeFromFifo(frameSize_);
}

void SoundWriter::finish()
{
    if (const int left = av_audio_fifo_size(fifo_.get()); left > 0) encodeFromFifo(left);
    encode(nullptr);
    int status = av_write_trailer(partial_.muxer);
    if (status < 0) failWriting(status);
    status = avio_closep(&partial_.muxer->pb);
    if (status < 0) failWriting(status);
    std::error_code renaming;
    std::filesystem::rename(partial_.path, output_, renaming);
    if (renaming) {
        throw AudioError(fmt::format("cannot put {} in place ({}); check that it is not a folder and that its folder "
                                     "takes new files",
                                     output_.string(), renaming.message()));
    }
    partial_.inPlace = true;
}

void SoundWriter::encodeFromFifo(int samples)
{
    // The encoder may still hold the last frame's buffer.
    int status = av_frame_make_writable(frame_.get());
    if (status < 0) failWriting(status);
    frame_->nb_samples = samples;
    if (av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(frame_->data), samples) < samples) {
        failWriting(AVERROR_BUG);
    }
    frame_->pts = samplesEncoded_;
    samplesEncoded_ += samples;
    encode(frame_.get());
}

void SoundWriter::encode(const AVFrame* frame)
{
    int status = avcodec_send_frame(encoder_.get(), frame);
    if (status < 0) {
        throw AudioError(
            fmt::format("cannot write {}: encoding failed ({})", output_.string(), ffmpegErrorText(status)));
    }
    for (;;) {
        status = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return;
        if (status < 0) {
            throw AudioError(
                fmt::format("cannot write {}: encoding failed ({})", output_.string(), ffmpegErrorText(status)));
        }
        av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
        packet_->stream_index = stream_->index;
        status = av_interleaved_write_frame(partial_.muxer, packet_.get());
        if (status < 0) failWriting(status);
    }
}

void SoundWriter::failWriting(int status) const
{
    throw AudioError(fmt::format("cannot write {} ({}); check that its folder exists, takes new files and has room",
                                 output_.string(), ffmpegErrorText(status)));
}

}  // namespace quillora::audio
