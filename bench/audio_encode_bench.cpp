// Encoding a lecture's sound in process against the ffmpeg program doing the
// same in the same run: a 60-minute mono speech-like MP3 (64 kbit/s) to AAC
// at 64 kbit/s with encodeAac, and a 60-minute AAC .m4a to MP3 at 64 kbit/s
// with encodeMp3. Each side runs as its own process, this program calling
// the library in one, timed from start to exit; the peak resident memory of
// each comes from wait4. A 10-minute encoding shows that memory does not
// grow with the recording.
//   audio_encode_bench [MINUTES=60] [FOLDER=/tmp] [RUNS=2]
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "audio/AacEncoding.h"
#include "audio/Mp3Encoding.h"
#include "foundation/Log.h"

namespace fs = std::filesystem;
using quillora::bench::fastest;
using quillora::bench::Run;
using quillora::bench::run;

namespace {

// A child: one encoding through the library.
int encodeInProcess(const std::string& kind, const fs::path& input, const fs::path& output)
{
    quillora::setLogSink(nullptr);
    try {
        if (kind == "aac") {
            quillora::audio::AacSettings settings;
            settings.bitrate = 64000;
            quillora::audio::encodeAac(input, output, settings);
        } else {
            quillora::audio::Mp3Settings settings;
            settings.bitrate = 64000;
            quillora::audio::encodeMp3(input, output, settings);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}

// Speech-like: a low voice and pink noise, swelling and fading four times a second.
void makeLecture(const fs::path& path, int minutes)
{
    const std::string seconds = std::to_string(minutes * 60);
    const std::string voice = "sine=f=180:sample_rate=44100:d=" + seconds;
    const std::string breath = "anoisesrc=color=pink:amplitude=0.05:sample_rate=44100:d=" + seconds;
    const std::string mix = "[0][1]amix=inputs=2,tremolo=f=4:d=0.7";
    std::vector<std::string> command = {"ffmpeg", "-nostdin", "-y", "-v", "error"};
    for (const std::string& source : {voice, breath}) command.insert(command.end(), {"-f", "lavfi", "-i", source});
    command.insert(command.end(), {"-filter_complex", mix, "-ac", "1", "-c:a", "libmp3lame", "-b:a", "64k"});
    command.push_back(path.string());
    run(command);
}

void report(const char* what, const Run& ours, const Run& ffmpeg)
{
    std::printf("%s\n  ours   %7.2f s (CPU %7.2f s), peak resident %6.1f MiB\n"
                "  ffmpeg %7.2f s (CPU %7.2f s), peak resident %6.1f MiB\n"
                "  ratio ours/ffmpeg: time %.2f, CPU %.2f\n",
                what, ours.seconds, ours.cpuSeconds, ours.peakKiB / 1024.0, ffmpeg.seconds, ffmpeg.cpuSeconds,
                ffmpeg.peakKiB / 1024.0, ours.seconds / ffmpeg.seconds, ours.cpuSeconds / ffmpeg.cpuSeconds);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 5 && std::string(argv[1]) == "--encode") return encodeInProcess(argv[2], argv[3], argv[4]);

    const int minutes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
    const fs::path base = argc > 2 ? argv[2] : fs::temp_directory_path();
    const int runs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 2;
    const fs::path folder = base / "quillora-audio-bench";
    fs::create_directories(folder);
    const std::string self = fs::read_symlink("/proc/self/exe").string();

    // Made once and kept for the next run of the benchmark.
    const fs::path mp3 = folder / fmt::format("lecture-{}.mp3", minutes);
    const fs::path m4a = folder / fmt::format("lecture-{}.m4a", minutes);
    const fs::path shortMp3 = folder / "lecture-10.mp3";
    if (!fs::exists(mp3)) {
        std::printf("making a %d-minute MP3...\n", minutes);
        makeLecture(mp3, minutes);
    }
    if (!fs::exists(m4a)) {
        std::printf("making a %d-minute AAC file...\n", minutes);
        run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-i", mp3.string(), "-c:a", "aac", "-b:a", "64k",
             m4a.string()});
    }
    if (!fs::exists(shortMp3)) makeLecture(shortMp3, 10);

    const fs::path out = folder / "out";
    auto ours = [&](const char* kind, const fs::path& input, const char* extension) {
        return fastest(runs, [&] { return run({self, "--encode", kind, input.string(), out.string() + extension}); });
    };
    auto ffmpeg = [&](const fs::path& input, const char* codec, const char* extension) {
        return fastest(runs, [&] {
            return run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-i", input.string(), "-c:a", codec, "-b:a", "64k",
                        out.string() + extension});
        });
    };

    std::printf("fastest of %d runs each\n", runs);
    report(fmt::format("{}-minute MP3 to AAC 64 kbit/s (encodeAac against ffmpeg -c:a aac)", minutes).c_str(),
           ours("aac", mp3, ".m4a"), ffmpeg(mp3, "aac", ".m4a"));
    report(fmt::format("{}-minute AAC to MP3 64 kbit/s (encodeMp3 against ffmpeg -c:a libmp3lame)", minutes).c_str(),
           ours("mp3", m4a, ".mp3"), ffmpeg(m4a, "libmp3lame", ".mp3"));
    const Run shortRun = ours("aac", shortMp3, ".m4a");
    std::printf("10-minute MP3 to AAC: peak resident %.1f MiB (memory against the recording's length)\n",
                shortRun.peakKiB / 1024.0);
    fs::remove(out.string() + ".m4a");
    fs::remove(out.string() + ".mp3");
    return 0;
}
