// The recording's preparation, in the same run as what it is measured
// against:
//  - a 3-hour mono AAC recording (64 kbit/s) in ffmpeg's layout (movie time
//    scale 1000, movie atom last) prepared for the plug-in (its sound copied
//    into a movie of the podcast's shape), against two `cp` of it; and the
//    peak resident memory of preparing 1 hour and 3 hours of it;
//  - a 60-minute speech-like MP3 lecture (64 kbit/s) exported whole through
//    `quillora export` as an enhanced podcast with 3 slides, against
//    `ffmpeg -i lecture.mp3 -c:a aac -b:a 64k out.m4a`; and the export's peak
//    memory for 20 and 60 minutes.
// Each side runs as a process of its own, timed from start to exit, the
// fastest of RUNS. The recordings are made once in FOLDER/quillora-prepare-bench/
// and kept for the next run.
//   prepare_bench [HOURS=3] [MP3_MINUTES=60] [FOLDER=/tmp] [RUNS=2]
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "foundation/Log.h"
#include "publish/PreparedRecording.h"

namespace fs = std::filesystem;
using quillora::bench::fastest;
using quillora::bench::Run;
using quillora::bench::run;
using quillora::bench::writeText;

namespace {

const std::vector<std::string> kQuietFfmpeg = {"ffmpeg", "-nostdin", "-y", "-v", "error"};

std::vector<std::string> ffmpeg(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), kQuietFfmpeg.begin(), kQuietFfmpeg.end());
    return arguments;
}

// A child: the preparation alone, as the host does it before the plug-in
// runs; the seconds it took, without the process's start (loading the
// libraries), go to scratch's "seconds" file.
int prepareInProcess(const fs::path& recording, const fs::path& scratch)
{
    quillora::setLogSink(nullptr);
    try {
        const auto start = quillora::bench::Clock::now();
        const auto prepared = quillora::publish::prepareRecording(recording, scratch, {});
        const std::chrono::duration<double> took = quillora::bench::Clock::now() - start;
        if (prepared.asGiven) {
            std::fprintf(stderr, "%s was already in shape: nothing was measured\n", recording.c_str());
            return 1;
        }
        writeText(scratch / "seconds", std::to_string(took.count()));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}

double readSeconds(const fs::path& path)
{
    std::ifstream in(path);
    double seconds = 0;
    in >> seconds;
    return seconds;
}

// Speech-like: a low voice and pink noise, swelling and fading four times a second.
void makeSpeech(const fs::path& path, int minutes, const std::vector<std::string>& coding)
{
    const std::string seconds = std::to_string(minutes * 60);
    auto command = ffmpeg({"-f", "lavfi", "-i", "sine=f=180:sample_rate=44100:d=" + seconds, "-f", "lavfi", "-i",
                           "anoisesrc=color=pink:amplitude=0.05:sample_rate=44100:d=" + seconds, "-filter_complex",
                           "[0][1]amix=inputs=2,tremolo=f=4:d=0.7", "-ac", "1"});
    command.insert(command.end(), coding.begin(), coding.end());
    command.push_back(path.string());
    run(command);
}

// HOURS of AAC in ffmpeg's own layout: one hour encoded, then joined to
// itself without encoding again.
void makeLongAac(const fs::path& folder, const fs::path& hour, const fs::path& path, int hours)
{
    std::string list;
    for (int i = 0; i < hours; ++i) list += "file '" + hour.string() + "'\n";
    writeText(folder / "hours.txt", list);
    run(ffmpeg({"-f", "concat", "-safe", "0", "-i", (folder / "hours.txt").string(), "-c", "copy", path.string()}));
}

void report(const char* what, const Run& ours, const char* theirsName, const Run& theirs, double target)
{
    const double ratio = ours.seconds / theirs.seconds;
    std::printf("%s\n  ours   %7.2f s (CPU %7.2f s), peak resident %6.1f MiB\n"
                "  %-6s %7.2f s (CPU %7.2f s)\n"
                "  ratio: time %.2f (target at most %.1f: %s), CPU %.2f\n",
                what, ours.seconds, ours.cpuSeconds, ours.peakKiB / 1024.0, theirsName, theirs.seconds,
                theirs.cpuSeconds, ratio, target, ratio <= target ? "met" : "MISSED",
                ours.cpuSeconds / theirs.cpuSeconds);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::string(argv[1]) == "--prepare") return prepareInProcess(argv[2], argv[3]);

    const int hours = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    const int mp3Minutes = argc > 2 ? std::max(1, std::atoi(argv[2])) : 60;
    const fs::path base = argc > 3 ? argv[3] : fs::temp_directory_path();
    const int runs = argc > 4 ? std::max(1, std::atoi(argv[4])) : 2;
    const fs::path folder = base / "quillora-prepare-bench";
    fs::create_directories(folder);
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    const std::string quillora = std::string(QUILLORA_BINARY_DIR) + "/quillora";
    const fs::path fixtures = fs::path(QUILLORA_SOURCE_DIR) / "tests" / "fixtures";

    const fs::path hour = folder / "aac-1h.m4a";
    const fs::path longAac = folder / fmt::format("aac-{}h.m4a", hours);
    if (!fs::exists(hour)) {
        std::printf("making an hour of AAC...\n");
        makeSpeech(hour, 60, {"-c:a", "aac", "-b:a", "64k"});
    }
    if (!fs::exists(longAac)) makeLongAac(folder, hour, longAac, hours);
    const fs::path mp3 = folder / fmt::format("lecture-{}.mp3", mp3Minutes);
    const fs::path shortMp3 = folder / "lecture-20.mp3";
    for (const auto& [path, minutes] : {std::pair{mp3, mp3Minutes}, std::pair{shortMp3, 20}}) {
        if (fs::exists(path)) continue;
        std::printf("making a %d-minute MP3...\n", minutes);
        makeSpeech(path, minutes, {"-c:a", "libmp3lame", "-b:a", "64k"});
    }
    std::fflush(stdout);

    const fs::path scratch = folder / "scratch";
    // The process, and in inProcess the fastest preparation inside it.
    auto prepare = [&](const fs::path& recording, double& inProcess) {
        inProcess = 0;
        return fastest(runs, [&] {
            fs::remove_all(scratch);
            fs::create_directories(scratch);
            const Run child = run({self, "--prepare", recording.string(), scratch.string()});
            const double seconds = readSeconds(scratch / "seconds");
            inProcess = inProcess == 0 ? seconds : std::min(inProcess, seconds);
            return child;
        });
    };
    auto twoCopies = [&](const fs::path& recording) {
        return fastest(runs, [&] {
            Run first = run({"cp", recording.string(), (folder / "copy1.m4a").string()});
            const Run second = run({"cp", recording.string(), (folder / "copy2.m4a").string()});
            first.seconds += second.seconds;
            first.cpuSeconds += second.cpuSeconds;
            return first;
        });
    };

    // Three slides: the export's own work is the sound's.
    writeText(folder / "transitions.json",
              fmt::format(R"([{{"timeValue": 0, "slideTitle": "One", "imagePath": "{}"}},
                              {{"timeValue": 6000, "slideTitle": "Two", "imagePath": "{}"}},
                              {{"timeValue": 12000, "slideTitle": "Three", "imagePath": "{}"}}])",
                          (fixtures / "slide.jpg").string(), (fixtures / "slide.png").string(),
                          (fixtures / "slide.gif").string()));
    auto exportWhole = [&](const fs::path& recording) {
        return fastest(runs, [&] {
            fs::remove_all(scratch);
            return run({quillora, "export", "--recording", recording.string(), "--transitions",
                        (folder / "transitions.json").string(), "--scratch", scratch.string(), "--output",
                        (folder / "lecture.m4b").string()});
        });
    };
    auto ffmpegAac = [&](const fs::path& recording) {
        return fastest(runs, [&] {
            return run(ffmpeg({"-i", recording.string(), "-c:a", "aac", "-b:a", "64k", (folder / "out.m4a").string()}));
        });
    };

    std::printf("fastest of %d runs each\n", runs);
    double longInProcess = 0, hourInProcess = 0;
    const Run preparedLong = prepare(longAac, longInProcess);
    const Run copies = twoCopies(longAac);
    report(fmt::format("{}-hour AAC in ffmpeg's layout ({:.0f} MiB) prepared, the whole process against two cp", hours,
                       static_cast<double>(fs::file_size(longAac)) / (1 << 20))
               .c_str(),
           preparedLong, "2x cp", copies, 1.5);
    std::printf("  the preparation inside the process (without loading the libraries): %.2f s, ratio %.2f\n",
                longInProcess, longInProcess / copies.seconds);
    const Run preparedHour = prepare(hour, hourInProcess);
    std::printf("preparing 1 hour: peak resident %.1f MiB; %d hours: %.1f MiB\n", preparedHour.peakKiB / 1024.0, hours,
                preparedLong.peakKiB / 1024.0);

    const Run exported = exportWhole(mp3);
    report(fmt::format("{}-minute MP3 lecture, the whole export against ffmpeg -c:a aac -b:a 64k", mp3Minutes).c_str(),
           exported, "ffmpeg", ffmpegAac(mp3), 1.2);
    const Run exportedShort = exportWhole(shortMp3);
    std::printf("exporting 20 minutes of MP3: peak resident %.1f MiB; %d minutes: %.1f MiB\n",
                exportedShort.peakKiB / 1024.0, mp3Minutes, exported.peakKiB / 1024.0);

    fs::remove_all(scratch);
    for (const char* made : {"copy1.m4a", "copy2.m4a", "lecture.m4b", "out.m4a", "hours.txt"})
        fs::remove(folder / made);
    return 0;
}
