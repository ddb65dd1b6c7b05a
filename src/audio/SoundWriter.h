// Encodes frames into a new sound file with one of libavcodec's encoders and
// one of libavformat's muxers. The encoder gets whole frames of its frame size
// through a FIFO (the last one shorter), numbered in samples from 0. The file
// is written under a temporary name beside the output and renamed onto it by
// finish(), so a failed or abandoned encoding leaves no partial file and the
// output as it was.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "audio/FFmpegPointers.h"
#include "audio/SampleShape.h"

namespace quillora::audio {

struct EncoderChoice {
    std::string encoder;  // libavcodec's name: "aac", "libmp3lame"
    std::string muxer;    // libavformat's: "mp4", "mp3"
    std::vector<std::pair<std::string, std::string>> muxerOptions;
};

class SoundWriter {
public:
    // The sound is stored with `channels` channels (1 or 2) at the source's
    // rate when the encoder takes it, else at 48000 or 44100 Hz.
    SoundWriter(const std::filesystem::path& output, const EncoderChoice& choice, int channels, int sourceRate,
                std::int64_t bitrate);
    ~SoundWriter() = default;
    SoundWriter(const SoundWriter&) = delete;
    SoundWriter& operator=(const SoundWriter&) = delete;

    // The form write() takes.
    const SampleShape& shape() const { return shape_; }

    void write(const AVFrame& frame);
    // Encodes what is left, completes the file and puts it in place.
    void finish();

private:
    void encodeFromFifo(int samples);
    void encode(const AVFrame* frame);
    [[noreturn]] void failWriting(int status) const;

    // The muxer and the file it writes under its temporary name: closed and
    // removed when the writer goes, unless it was put in place.
    struct PartialFile {
        std::filesystem::path path;
        AVFormatContext* muxer = nullptr;
        bool inPlace = false;
        ~PartialFile();
    };

    std::filesystem::path output_;
    PartialFile partial_;
    SampleShape shape_;
    CodecContextPointer encoder_;
    AVStream* stream_ = nullptr;
    AudioFifoPointer fifo_;
    FramePointer frame_;
    PacketPointer packet_;
    int frameSize_ = 0;
    std::int64_t samplesEncoded_ = 0;
};

}  // namespace quillora::audio
