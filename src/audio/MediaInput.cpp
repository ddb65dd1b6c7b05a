#include "audio/MediaInput.h"

#include <fmt/format.h>

#include <cerrno>
#include <vector>

#include "audio/AudioError.h"
#include "audio/FFmpegLog.h"

namespace quillora::audio {

namespace {

constexpr const char* kConvertAdvice = "convert it to WAV, MP3 or AAC first";

bool isSound(const AVStream& stream)
{
    return stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

bool isDecodable(const AVStream& stream)
{
    return avcodec_find_decoder(stream.codecpar->codec_id) != nullptr;
}

std::string streamList(const std::vector<int>& indexes)
{
    std::string list;
    for (int index : indexes) list += (list.empty() ? "" : ", ") + std::to_string(index);
    return list.empty() ? "none" : list;
}

}  // namespace

InputFormatPointer openMediaFile(const std::filesystem::path& path)
{
    sendFFmpegMessagesToLog();
    AVFormatContext* opened = nullptr;
    int status = avformat_open_input(&opened, path.c_str(), nullptr, nullptr);
    if (status == AVERROR(ENOENT)) throw AudioError(fmt::format("{} does not exist; check the path", path.string()));
    if (status < 0) {
        throw AudioError(fmt::format("{} cannot be read as sound ({}); choose a recording FFmpeg can read, or {}",
                                     path.string(), ffmpegErrorText(status), kConvertAdvice));
    }
    InputFormatPointer file(opened);
    status = avformat_find_stream_info(file.get(), nullptr);
    if (status < 0) {
        throw AudioError(fmt::format("{} cannot be read as sound: its streams cannot be read ({}); {}", path.string(),
                                     ffmpegErrorText(status), kConvertAdvice));
    }
    return file;
}

std::string describeCodec(const AVCodecParameters& parameters)
{
    if (parameters.codec_id != AV_CODEC_ID_NONE) return avcodec_get_name(parameters.codec_id);
    return fmt::format("unknown, tag 0x{:x}", parameters.codec_tag);
}

AVStream* chooseSoundStream(const AVFormatContext& file, const std::filesystem::path& path,
                            std::optional<int> streamIndex)
{
    std::vector<int> soundStreams;
    for (unsigned i = 0; i < file.nb_streams; ++i) {
        if (isSound(*file.streams[i])) soundStreams.push_back(file.streams[i]->index);
    }
    auto refuseUndecodable = [&](const AVStream& stream) {
        return AudioError(fmt::format("{} has no sound FFmpeg can decode (codec '{}'); {}", path.string(),
                                      describeCodec(*stream.codecpar), kConvertAdvice));
    };
    if (streamIndex) {
        const bool exists = *streamIndex >= 0 && static_cast<unsigned>(*streamIndex) < file.nb_streams;
        if (!exists || !isSound(*file.streams[*streamIndex])) {
            throw AudioError(fmt::format("{} has no sound stream {} (its sound streams: {}); choose one of those",
                                         path.string(), *streamIndex, streamList(soundStreams)));
        }
        AVStream* asked = file.streams[*streamIndex];
        if (!isDecodable(*asked)) throw refuseUndecodable(*asked);
        return asked;
    }
    for (int index : soundStreams) {
        if (isDecodable(*file.streams[index])) return file.streams[index];
    }
    if (!soundStreams.empty()) throw refuseUndecodable(*file.streams[soundStreams.front()]);
    throw AudioError(fmt::format("{} has no sound stream; choose the recording's sound file", path.string()));
}

}  // namespace quillora::audio
