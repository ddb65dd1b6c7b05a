// Owners for FFmpeg's objects, so that every path out of a function, thrown
// or returned, frees what it made.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

namespace quillora::audio {

template <typename T, void (*Free)(T**)> struct FreeThroughAddress {
    void operator()(T* object) const { Free(&object); }
};

template <typename T, void (*Free)(T*)> struct FreeThroughPointer {
    void operator()(T* object) const { Free(object); }
};

using InputFormatPointer = std::unique_ptr<AVFormatContext, FreeThroughAddress<AVFormatContext, avformat_close_input>>;
using CodecContextPointer = std::unique_ptr<AVCodecContext, FreeThroughAddress<AVCodecContext, avcodec_free_context>>;
using FramePointer = std::unique_ptr<AVFrame, FreeThroughAddress<AVFrame, av_frame_free>>;
using PacketPointer = std::unique_ptr<AVPacket, FreeThroughAddress<AVPacket, av_packet_free>>;
using ResamplerPointer = std::unique_ptr<SwrContext, FreeThroughAddress<SwrContext, swr_free>>;
using FilterGraphPointer = std::unique_ptr<AVFilterGraph, FreeThroughAddress<AVFilterGraph, avfilter_graph_free>>;
using FilterInOutPointer = std::unique_ptr<AVFilterInOut, FreeThroughAddress<AVFilterInOut, avfilter_inout_free>>;
using AudioFifoPointer = std::unique_ptr<AVAudioFifo, FreeThroughPointer<AVAudioFifo, av_audio_fifo_free>>;

}  // namespace quillora::audio
