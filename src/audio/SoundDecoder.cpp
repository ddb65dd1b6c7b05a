#include "audio/SoundDecoder.h"

#include <fmt/format.h>

#include <algorithm>

#include "audio/AudioError.h"
#include "audio/MediaInput.h"
#include "foundation/Log.h"

namespace quillora::audio {

SoundDecoder::SoundDecoder(const std::filesystem::path& input, std::optional<int> streamIndex)
    : path_(input), file_(openMediaFile(input)), frame_(av_frame_alloc())
{
    stream_ = chooseSoundStream(*file_, path_, streamIndex);
    // The demuxer then drops the other streams' packets without handing them over.
    for (unsigned i = 0; i < file_->nb_streams; ++i) {
        if (file_->streams[i] != stream_) file_->streams[i]->discard = AVDISCARD_ALL;
    }
    const AVCodec* codec = avcodec_find_decoder(stream_->codecpar->codec_id);
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_ || !frame_) throw AudioError("out of memory opening " + path_.string());
    int status = avcodec_parameters_to_context(decoder_.get(), stream_->codecpar);
    decoder_->pkt_timebase = stream_->time_base;
    if (status >= 0) status = avcodec_open2(decoder_.get(), codec, nullptr);
    if (status < 0) {
        throw AudioError(fmt::format("the sound of {} (codec '{}') cannot be decoded ({}); convert it to WAV, MP3 or "
                                     "AAC first",
                                     path_.string(), describeCodec(*stream_->codecpar), ffmpegErrorText(status)));
    }
    if (stream_->start_time != AV_NOPTS_VALUE) startSeconds_ = stream_->start_time * av_q2d(stream_->time_base);
    if (stream_->duration != AV_NOPTS_VALUE && stream_->duration > 0) {
        durationSeconds_ = stream_->duration * av_q2d(stream_->time_base);
    } else if (file_->duration != AV_NOPTS_VALUE && file_->duration > 0) {
        durationSeconds_ = static_cast<double>(file_->duration) / AV_TIME_BASE;
    }
}

void SoundDecoder::decodeAll(const FrameTaker& take, const std::function<void(double fraction)>& progress)
{
    PacketPointer packet(av_packet_alloc());
    if (!packet) throw AudioError("out of memory reading " + path_.string());
    bool reading = true;
    while (reading) {
        int status = av_read_frame(file_.get(), packet.get());
        if (status == AVERROR_EOF) {
            reading = false;
            status = avcodec_send_packet(decoder_.get(), nullptr);
        } else if (status < 0) {
            throw AudioError(fmt::format("{} cannot be read on ({}); check the file and the disk it is on",
                                         path_.string(), ffmpegErrorText(status)));
        } else if (packet->stream_index != stream_->index) {
            av_packet_unref(packet.get());
            continue;
        } else {
            status = avcodec_send_packet(decoder_.get(), packet.get());
            av_packet_unref(packet.get());
        }
        if (status == AVERROR_INVALIDDATA) {
            ++damagedPackets_;
            continue;
        }
        if (status < 0 && status != AVERROR(EAGAIN)) {
            throw AudioError(fmt::format("the sound of {} cannot be decoded ({}); convert it to WAV, MP3 or AAC first",
                                         path_.string(), ffmpegErrorText(status)));
        }
        receiveFrames(take, progress);
    }
    if (damagedPackets_ > 0) logf("{}: {} damaged sound packets skipped", path_.string(), damagedPackets_);
    if (framesDecoded_ == 0) {
        throw AudioError(
            fmt::format("no sound could be decoded from {}; convert it to WAV, MP3 or AAC first", path_.string()));
    }
}

void SoundDecoder::receiveFrames(const FrameTaker& take, const std::function<void(double fraction)>& progress)
{
    for (;;) {
        const int status = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return;
        // A frame the decoder could not rebuild is as good as a damaged packet.
        if (status == AVERROR_INVALIDDATA) {
            ++damagedPackets_;
            continue;
        }
        if (status < 0) {
            throw AudioError(fmt::format("the sound of {} cannot be decoded ({}); convert it to WAV, MP3 or AAC first",
                                         path_.string(), ffmpegErrorText(status)));
        }
        ++framesDecoded_;
        take(*frame_);
        progress(fractionRead(*frame_));
        av_frame_unref(frame_.get());
    }
}

double SoundDecoder::fractionRead(const AVFrame& frame) const
{
    if (durationSeconds_ > 0 && frame.best_effort_timestamp != AV_NOPTS_VALUE) {
        const double end = frame.best_effort_timestamp * av_q2d(stream_->time_base) +
                           static_cast<double>(frame.nb_samples) / std::max(frame.sample_rate, 1);
        return std::clamp((end - startSeconds_) / durationSeconds_, 0.0, 1.0);
    }
    const std::int64_t size = file_->pb ? avio_size(file_->pb) : -1;
    if (size <= 0) return 0;
    return std::clamp(static_cast<double>(avio_tell(file_->pb)) / static_cast<double>(size), 0.0, 1.0);
}

}  // namespace quillora::audio
