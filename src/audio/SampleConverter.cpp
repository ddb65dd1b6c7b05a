#include "audio/SampleConverter.h"

#include <fmt/format.h>

#include <algorithm>

#include "audio/AudioError.h"

namespace quillora::audio {

namespace {

// Some files leave the channels' meaning open (a WAV without a channel mask);
// the resampler needs a layout, so they get the usual one for their count.
AVChannelLayout decodedLayout(const AVFrame& frame)
{
    AVChannelLayout layout{};
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&layout, frame.ch_layout.nb_channels);
    } else {
        av_channel_layout_copy(&layout, &frame.ch_layout);
    }
    return layout;
}

}  // namespace

SampleConverter::SampleConverter(const SampleShape& target, std::string source)
    : target_(target), source_(std::move(source)), converted_(av_frame_alloc())
{
    if (!converted_) throw AudioError("out of memory converting the sound of " + source_);
}

SampleConverter::~SampleConverter()
{
    av_channel_layout_uninit(&sourceLayout_);
}

void SampleConverter::convert(const AVFrame& decoded, const FrameTaker& take)
{
    AVChannelLayout layout = decodedLayout(decoded);
    const bool sameSource = resampler_ && decoded.sample_rate == sourceRate_ && decoded.format == sourceFormat_ &&
                            av_channel_layout_compare(&layout, &sourceLayout_) == 0;
    if (!sameSource) {
        if (resampler_) finish(take);
        start(decoded, layout);
    }
    av_channel_layout_uninit(&layout);
    run(const_cast<const std::uint8_t**>(decoded.extended_data), decoded.nb_samples, take);
}

void SampleConverter::finish(const FrameTaker& take)
{
    if (!resampler_) return;
    while (run(nullptr, 0, take) > 0) {}
}

void SampleConverter::start(const AVFrame& decoded, const AVChannelLayout& layout)
{
    resampler_.reset();
    av_channel_layout_uninit(&sourceLayout_);
    av_channel_layout_copy(&sourceLayout_, &layout);
    sourceRate_ = decoded.sample_rate;
    sourceFormat_ = decoded.format;
    AVChannelLayout targetLayout = target_.layout();
    SwrContext* made = nullptr;
    int status = swr_alloc_set_opts2(&made, &targetLayout, target_.format, target_.sampleRate, &sourceLayout_,
                                     static_cast<AVSampleFormat>(sourceFormat_), sourceRate_, 0, nullptr);
    resampler_.reset(made);
    if (status >= 0) status = swr_init(resampler_.get());
    if (status < 0) {
        char layoutName[64] = {};
        av_channel_layout_describe(&sourceLayout_, layoutName, sizeof(layoutName));
        throw AudioError(fmt::format("the sound of {} ({} Hz, {}) cannot be converted for encoding ({}); {}", source_,
                                     sourceRate_, layoutName, ffmpegErrorText(status),
                                     "convert it to WAV, MP3 or AAC first"));
    }
}

int SampleConverter::run(const std::uint8_t** input, int count, const FrameTaker& take)
{
    const int room = swr_get_out_samples(resampler_.get(), count);
    if (room <= 0) return 0;
    reserve(room);
    const int made = swr_convert(resampler_.get(), converted_->data, room, input, count);
    if (made < 0) {
        throw AudioError(
            fmt::format("the sound of {} cannot be converted for encoding ({})", source_, ffmpegErrorText(made)));
    }
    if (made > 0) {
        converted_->nb_samples = made;
        converted_->pts = nextPts_;
        nextPts_ += made;
        take(*converted_);
    }
    return made;
}

// A taker that kept a reference to the last frame's buffer keeps it: the
// next samples go to a new one.
void SampleConverter::reserve(int samples)
{
    if (capacity_ >= samples && av_frame_is_writable(converted_.get())) return;
    av_frame_unref(converted_.get());
    capacity_ = std::max(samples, capacity_);
    converted_->format = target_.format;
    converted_->sample_rate = target_.sampleRate;
    converted_->ch_layout = target_.layout();
    converted_->nb_samples = capacity_;
    if (const int status = av_frame_get_buffer(converted_.get(), 0); status < 0) {
        throw AudioError(fmt::format("cannot convert the sound of {} ({})", source_, ffmpegErrorText(status)));
    }
}

}  // namespace quillora::audio
