// The whole export of a lecture (60 minutes of 64 kbit/s mono AAC, 60 slides
// of 1920x1080, half PNG and half JPEG, links on, JPEG pictures at the
// "videoImageQuality" 512) through the quillora host, in both atom layouts.
// Each run times, one after another on the same inputs: the export; its floor,
// the same slides redrawn by plain libvips on two threads in one process
// (slide_redraw_floor); two `cp` of the recording; and an ffmpeg remux that
// adds the same chapters and tags without re-encoding. For the export it also
// prints the cores it kept busy (CPU time / wall time), the bytes it wrote
// (write calls, and pages sent to the disk) against the output's size, and
// its peak resident memory.
//   export_bench [MINUTES=60] [SLIDES=60] [FOLDER=/tmp] [RUNS=3]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

namespace fs = std::filesystem;
using quillora::bench::Clock;
using quillora::bench::run;
using quillora::bench::Run;
using quillora::bench::writeText;

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv)
{
    const int minutes = argc > 1 ? std::atoi(argv[1]) : 60;
    const int slides = argc > 2 ? std::atoi(argv[2]) : 60;
    const fs::path base = argc > 3 ? argv[3] : fs::temp_directory_path();
    const int runs = argc > 4 ? std::max(1, std::atoi(argv[4])) : 3;
    const fs::path folder = base / "quillora-export-bench";
    fs::remove_all(folder);
    fs::create_directories(folder / "slides");
    const std::string binaries = QUILLORA_BINARY_DIR;
    const int timeScale = 600;
    const long duration = static_cast<long>(minutes) * 60 * timeScale;
    // The frame's side is the larger of the slides' smallest width and
    // smallest height, less the link font size on each side.
    const int fontSize = 14;
    const int side = 1920 - 2 * fontSize;
    const int jpegQuality = 44;  // "videoImageQuality" 512

    std::printf("making a %d-minute recording in both layouts and %d slides of 1920x1080...\n", minutes, slides);
    const std::string length = std::to_string(minutes * 60);
    const std::vector<std::string> encode = {"ffmpeg",
                                             "-nostdin",
                                             "-y",
                                             "-v",
                                             "error",
                                             "-f",
                                             "lavfi",
                                             "-i",
                                             "sine=f=220:d=" + length + ":sample_rate=44100",
                                             "-ac",
                                             "1",
                                             "-c:a",
                                             "aac",
                                             "-b:a",
                                             "64k",
                                             "-movie_timescale",
                                             "600"};
    auto moovLast = encode, moovFirst = encode;
    moovLast.push_back((folder / "moov-last.m4a").string());
    moovFirst.insert(moovFirst.end(), {"-movflags", "+faststart", (folder / "moov-first.m4a").string()});
    run(moovLast);
    run(moovFirst);
    const int half = slides / 2;
    run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=1", "-frames:v",
         std::to_string(half), (folder / "slides" / "slide-%03d.png").string()});
    run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=1", "-frames:v",
         std::to_string(slides - half), "-q:v", "3", (folder / "slides" / "slide-%03d.jpg").string()});

    std::string transitions = "[";
    std::string chapters = ";FFMETADATA1\ntitle=Benchmark lecture\nartist=Quillora\n";
    std::vector<fs::path> pictures;
    for (const auto& entry : fs::directory_iterator(folder / "slides")) pictures.push_back(entry.path());
    std::sort(pictures.begin(), pictures.end());
    for (int i = 0; i < slides; ++i) {
        const long start = duration * i / slides, end = duration * (i + 1) / slides;
        transitions +=
            std::string(i ? ",\n" : "\n") + "{\"timeValue\": " + std::to_string(start) + ", \"slideTitle\": \"Slide " +
            std::to_string(i + 1) + "\", \"imagePath\": \"" + pictures[static_cast<std::size_t>(i)].string() +
            "\", \"linkURL\": {\"title\": \"Notes\", \"url\": \"https://example.org/" + std::to_string(i + 1) + "\"}}";
        chapters += "[CHAPTER]\nTIMEBASE=1/600\nSTART=" + std::to_string(start) + "\nEND=" + std::to_string(end) +
                    "\ntitle=Slide " + std::to_string(i + 1) + "\n";
    }
    writeText(folder / "transitions.json", transitions + "\n]\n");
    writeText(folder / "chapters.txt", chapters);
    writeText(folder / "tags.json", R"({"title": "Benchmark lecture", "author": "Quillora"})");
    writeText(folder / "defaults.json", R"({"supportForURL": true, "textTrackFontSize": )" + std::to_string(fontSize) +
                                            R"(, "videoImageQuality": 512})");

    double picturesMiB = 0;
    for (const auto& picture : pictures) picturesMiB += static_cast<double>(fs::file_size(picture)) / (1 << 20);
    std::map<std::string, std::vector<double>> toFloor, toFloorCPU;
    for (int r = 1; r <= runs; ++r) {
        for (const char* layout : {"moov-first", "moov-last"}) {
            const fs::path recording = folder / (std::string(layout) + ".m4a");
            fs::remove_all(folder / "floor");
            fs::create_directories(folder / "floor");
            std::vector<std::string> floorCommand = {binaries + "/bench/slide_redraw_floor", "2", std::to_string(side),
                                                     std::to_string(jpegQuality), (folder / "floor").string()};
            for (const auto& picture : pictures) floorCommand.push_back(picture.string());
            const Run floor = run(floorCommand);
            const double copies = run({"cp", recording.string(), (folder / "copy1.m4a").string()}).seconds +
                                  run({"cp", recording.string(), (folder / "copy2.m4a").string()}).seconds;
            const double remux = run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-i", recording.string(), "-i",
                                      (folder / "chapters.txt").string(), "-map", "0", "-map_metadata", "1",
                                      "-map_chapters", "1", "-c", "copy", (folder / "remux.m4a").string()})
                                     .seconds;
            fs::remove_all(folder / "scratch");
            const fs::path output = folder / "lecture.m4b";
            const Run exported =
                run({binaries + "/quillora", "export", "--recording", recording.string(), "--transitions",
                     (folder / "transitions.json").string(), "--tags", (folder / "tags.json").string(), "--defaults",
                     (folder / "defaults.json").string(), "--scratch", (folder / "scratch").string(), "--output",
                     output.string()});
            const double outputMiB = static_cast<double>(fs::file_size(output)) / (1 << 20);
            const double ratio = exported.seconds / floor.seconds;
            toFloor[layout].push_back(ratio);
            const double cpuRatio = exported.cpuSeconds / floor.cpuSeconds;
            toFloorCPU[layout].push_back(cpuRatio);
            std::printf("run %d %s: export %.2f s, %.2f cores; two-core redraw floor %.2f s (%.2f cores): ratio %.2f, "
                        "CPU time ratio %.2f; 2x cp %.3f s; ffmpeg remux with chapters %.2f s: ratio %.1f; output "
                        "%.1f MiB, written %.1f MiB by write calls (%.2fx), %.1f MiB of pages (%.2fx), of which the "
                        "host's copies of the pictures %.1f MiB; peak memory %.1f MiB\n",
                        r, layout, exported.seconds, exported.cpuSeconds / exported.seconds, floor.seconds,
                        floor.cpuSeconds / floor.seconds, ratio, cpuRatio, copies, remux, exported.seconds / remux,
                        outputMiB, exported.writeCalls / 1048576.0, exported.writeCalls / 1048576.0 / outputMiB,
                        exported.diskWrites / 1048576.0, exported.diskWrites / 1048576.0 / outputMiB, picturesMiB,
                        exported.peakKiB / 1024.0);
            std::fflush(stdout);
        }
    }
    for (const auto& [layout, ratios] : toFloor) {
        std::printf("%s: median export / floor %.2f (CPU time %.2f) over %d runs\n", layout.c_str(), median(ratios),
                    median(toFloorCPU[layout]), runs);
    }
    fs::remove_all(folder);
    return 0;
}
