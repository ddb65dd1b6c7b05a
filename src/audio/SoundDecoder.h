// Decodes one sound stream of a media file from start to end, frame by frame,
// so that memory stays the same however long the recording is.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "audio/FFmpegPointers.h"
#include "audio/SampleShape.h"

namespace quillora::audio {

class SoundDecoder {
public:
    // Opens the file and the stream's decoder (FFmpeg's stream numbering; none:
    // the first decodable sound stream). Throws AudioError with the reason.
    SoundDecoder(const std::filesystem::path& input, std::optional<int> streamIndex);

    int channels() const { return decoder_->ch_layout.nb_channels; }
    int sampleRate() const { return decoder_->sample_rate; }

    // Hands every decoded frame to `take` and the fraction of the stream read
    // so far (from the frames' times) to `progress`. A damaged packet is
    // skipped and logged, as players do; a stream of which nothing decodes,
    // or a file that cannot be read on, throws AudioError.
    void decodeAll(const FrameTaker& take, const std::function<void(double fraction)>& progress);

private:
    void receiveFrames(const FrameTaker& take, const std::function<void(double fraction)>& progress);
    double fractionRead(const AVFrame& frame) const;

    std::filesystem::path path_;
    InputFormatPointer file_;
    AVStream* stream_ = nullptr;
    CodecContextPointer decoder_;
    FramePointer frame_;
    double startSeconds_ = 0;
    double durationSeconds_ = 0;  // 0 when unknown: progress then follows the bytes read
    std::int64_t framesDecoded_ = 0;
    std::int64_t damagedPackets_ = 0;
};

}  // namespace quillora::audio
