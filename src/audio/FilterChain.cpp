#include "audio/FilterChain.h"

#include <fmt/format.h>

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include "audio/AudioError.h"

namespace quillora::audio {

FilterChain::FilterChain(const SampleShape& shape, const std::string& filters, std::string source)
    : filters_(filters), source_(std::move(source)), graph_(avfilter_graph_alloc()), filtered_(av_frame_alloc())
{
    if (!graph_ || !filtered_) fail("setting up", AVERROR(ENOMEM));
    const AVChannelLayout layout = shape.layout();
    char layoutName[64] = {};
    av_channel_layout_describe(&layout, layoutName, sizeof(layoutName));
    const char* formatName = av_get_sample_fmt_name(shape.format);
    const std::string bufferArguments = fmt::format("time_base=1/{0}:sample_rate={0}:sample_fmt={1}:channel_layout={2}",
                                                    shape.sampleRate, formatName, layoutName);
    int status = avfilter_graph_create_filter(&input_, avfilter_get_by_name("abuffer"), "in", bufferArguments.c_str(),
                                              nullptr, graph_.get());
    if (status >= 0) {
        status = avfilter_graph_create_filter(&output_, avfilter_get_by_name("abuffersink"), "out", nullptr, nullptr,
                                              graph_.get());
    }
    if (status < 0) fail("setting up", status);

    // The chain ends in the shape it began with, whatever its filters work in.
    const std::string description = fmt::format("{},aformat=sample_fmts={}:sample_rates={}:channel_layouts={}", filters,
                                                formatName, shape.sampleRate, layoutName);
    FilterInOutPointer chainInput(avfilter_inout_alloc());
    FilterInOutPointer chainOutput(avfilter_inout_alloc());
    if (!chainInput || !chainOutput) fail("setting up", AVERROR(ENOMEM));
    chainInput->name = av_strdup("in");
    chainInput->filter_ctx = input_;
    chainOutput->name = av_strdup("out");
    chainOutput->filter_ctx = output_;
    AVFilterInOut* open = chainInput.release();
    AVFilterInOut* closing = chainOutput.release();
    status = avfilter_graph_parse_ptr(graph_.get(), description.c_str(), &closing, &open, nullptr);
    chainInput.reset(open);
    chainOutput.reset(closing);
    if (status >= 0) status = avfilter_graph_config(graph_.get(), nullptr);
    if (status < 0) fail("setting up", status);
}

void FilterChain::push(AVFrame& frame, const FrameTaker& take)
{
    const int status = av_buffersrc_add_frame_flags(input_, &frame, AV_BUFFERSRC_FLAG_KEEP_REF);
    if (status < 0) fail("filtering", status);
    pull(take);
}

void FilterChain::finish(const FrameTaker& take)
{
    const int status = av_buffersrc_add_frame_flags(input_, nullptr, 0);
    if (status < 0) fail("finishing", status);
    pull(take);
}

void FilterChain::pull(const FrameTaker& take)
{
    for (;;) {
        const int status = av_buffersink_get_frame(output_, filtered_.get());
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return;
        if (status < 0) fail("filtering", status);
        take(*filtered_);
        av_frame_unref(filtered_.get());
    }
}

void FilterChain::fail(const char* doing, int status) const
{
    throw AudioError(
        fmt::format("{} the sound filters '{}' for {} failed ({})", doing, filters_, source_, ffmpegErrorText(status)));
}

}  // namespace quillora::audio
