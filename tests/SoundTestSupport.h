// Sound made with the ffmpeg program for the sound layer's tests, and
// ffprobe's and ffmpeg's reading of what the layer writes.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace quillora::test {

// Runs `ffmpeg -y <arguments> <folder/name>` (arguments already quoted) and
// returns the made file's path; the test fails when ffmpeg does.
std::filesystem::path makeWithFfmpeg(const TemporaryFolder& folder, const std::string& name,
                                     const std::string& arguments);

// Whether this ffmpeg has the encoder (e.g. libopencore_amrnb).
bool ffmpegCanEncode(const std::string& encoder);

// Six seconds of tone and noise in a format a lecture's sound may come in:
// the ffmpeg arguments that make it, and what it holds.
struct SoundSample {
    std::string name;
    std::string arguments;
    std::string codec;  // as ffprobe names it
    int channels = 0;
    int sampleRate = 0;
};
// MP3, WAV, FLAC, Ogg Opus, WebM Vorbis, AAC and PCM in MPEG-4 and QuickTime
// files, 5.1 WAV, 192 kHz WAV, and AMR-NB when this ffmpeg can make it.
std::vector<SoundSample> commonSoundSamples();
// `channels` tones at `rate` (about -20 LUFS), as ffmpeg input arguments.
std::string toneInput(int channels, int rate, double seconds = 6);

// The first sound stream as ffprobe reads it.
struct ProbedSound {
    std::string codec;
    std::string profile;
    int channels = 0;
    int sampleRate = 0;
    double startSeconds = 0;
    double durationSeconds = 0;  // the stream's
    double bitrate = 0;          // the stream's, bits per second
};
ProbedSound ffprobeSound(const std::filesystem::path& path);

// How long the first sound stream lasts when ffmpeg decodes all of it.
double decodedSeconds(const std::filesystem::path& path);

// ffmpeg's ebur128 measurement of the whole file.
struct MeasuredLoudness {
    double integratedLufs = 0;
    double truePeakDbtp = 0;
};
MeasuredLoudness ffmpegLoudness(const std::filesystem::path& path);

// Checks progress reports: each within 0..1, none going backwards, the last at least 0.99.
void expectProgressComplete(const std::vector<double>& reports);

}  // namespace quillora::test
