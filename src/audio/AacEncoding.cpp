#include "audio/AacEncoding.h"

#include "audio/SoundTranscoder.h"

namespace quillora::audio {

void encodeAac(const std::filesystem::path& input, const std::filesystem::path& output, const AacSettings& settings,
               const ProgressCallback& progress)
{
    TranscodeRequest request;
    // The movie time scale the host's own writer uses; it rewrites the file's
    // layout afterwards anyway.
    request.encoding = EncoderChoice{"aac", "mp4", {{"movie_timescale", "600"}}};
    request.streamIndex = settings.streamIndex;
    request.monoBitrate = 64'000;
    request.stereoBitrate = 96'000;
    request.bitrate = settings.bitrate;
    request.targetLoudness = settings.targetLoudness;
    transcodeSound(input, output, request, progress);
}

}  // namespace quillora::audio
