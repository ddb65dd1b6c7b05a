#include "audio/Mp3Encoding.h"

#include "audio/SoundTranscoder.h"

namespace quillora::audio {

void encodeMp3(const std::filesystem::path& input, const std::filesystem::path& output, const Mp3Settings& settings,
               const ProgressCallback& progress)
{
    TranscodeRequest request;
    request.encoding = EncoderChoice{"libmp3lame", "mp3", {{"id3v2_version", "0"}, {"write_xing", "1"}}};
    request.streamIndex = settings.streamIndex;
    request.monoBitrate = 64'000;
    request.stereoBitrate = 128'000;
    request.bitrate = settings.bitrate;
    transcodeSound(input, output, request, progress);
}

}  // namespace quillora::audio
