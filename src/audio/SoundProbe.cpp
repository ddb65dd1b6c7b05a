#include "audio/SoundProbe.h"

#include "audio/MediaInput.h"

namespace quillora::audio {

namespace {

std::optional<double> streamDuration(const AVStream& stream)
{
    if (stream.duration == AV_NOPTS_VALUE) return std::nullopt;
    return static_cast<double>(stream.duration) * av_q2d(stream.time_base);
}

}  // namespace

SoundInfo probeSound(const std::filesystem::path& path)
{
    InputFormatPointer file = openMediaFile(path);
    // Refuses a file without decodable sound, with the reason.
    chooseSoundStream(*file, path, std::nullopt);
    SoundInfo info;
    if (file->duration != AV_NOPTS_VALUE) info.durationSeconds = static_cast<double>(file->duration) / AV_TIME_BASE;
    for (unsigned i = 0; i < file->nb_streams; ++i) {
        const AVStream& stream = *file->streams[i];
        const AVCodecParameters& parameters = *stream.codecpar;
        if (parameters.codec_type != AVMEDIA_TYPE_AUDIO) continue;
        info.streams.push_back(SoundStreamInfo{
            stream.index, describeCodec(parameters), parameters.ch_layout.nb_channels, parameters.sample_rate,
            streamDuration(stream), avcodec_find_decoder(parameters.codec_id) != nullptr});
    }
    return info;
}

}  // namespace quillora::audio
