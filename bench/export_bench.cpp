// The whole export of a 60-minute lecture with 60 slides of 1920x1080, run
// through the quillora host, in both atom layouts. Prints, from one run, the
// export's time as a ratio to the I/O floor (two copies of the recording plus
// vipsthumbnail scaling the slides) and to an ffmpeg remux that adds 60
// chapters and tags without re-encoding, and the export's peak resident
// memory.
//   export_bench [MINUTES=60] [SLIDES=60] [FOLDER=/tmp]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

namespace fs = std::filesystem;
using quillora::bench::run;
using quillora::bench::Run;
using quillora::bench::writeText;

}  // namespace

int main(int argc, char** argv)
{
    const int minutes = argc > 1 ? std::atoi(argv[1]) : 60;
    const int slides = argc > 2 ? std::atoi(argv[2]) : 60;
    const fs::path base = argc > 3 ? argv[3] : fs::temp_directory_path();
    const fs::path folder = base / "quillora-export-bench";
    fs::remove_all(folder);
    fs::create_directories(folder / "slides");
    const std::string quillora = std::string(QUILLORA_BINARY_DIR) + "/quillora";
    const int timeScale = 600;
    const long duration = static_cast<long>(minutes) * 60 * timeScale;

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
                                             "sine=f=220:d=" + length + ":sample_rate=22050",
                                             "-ac",
                                             "1",
                                             "-c:a",
                                             "aac",
                                             "-b:a",
                                             "48k",
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
        transitions += std::string(i ? ",\n" : "\n") + "{\"timeValue\": " + std::to_string(start) +
                       ", \"slideTitle\": \"Slide " + std::to_string(i + 1) + "\", \"imagePath\": \"" +
                       pictures[static_cast<std::size_t>(i)].string() + "\"}";
        chapters += "[CHAPTER]\nTIMEBASE=1/600\nSTART=" + std::to_string(start) + "\nEND=" + std::to_string(end) +
                    "\ntitle=Slide " + std::to_string(i + 1) + "\n";
    }
    writeText(folder / "transitions.json", transitions + "\n]\n");
    writeText(folder / "chapters.txt", chapters);
    writeText(folder / "tags.json", R"({"title": "Benchmark lecture", "author": "Quillora"})");
    writeText(folder / "defaults.json", R"({"supportForURL": false, "videoImageQuality": 0})");

    for (const char* layout : {"moov-first", "moov-last"}) {
        const fs::path recording = folder / (std::string(layout) + ".m4a");
        const double copies = run({"cp", recording.string(), (folder / "copy1.m4a").string()}).seconds +
                              run({"cp", recording.string(), (folder / "copy2.m4a").string()}).seconds;
        fs::remove_all(folder / "thumbs");
        fs::create_directories(folder / "thumbs");
        std::vector<std::string> thumbnail = {"vipsthumbnail", "-s", "1080x1080", "-o",
                                              (folder / "thumbs" / "%s.jpg[Q=10]").string()};
        for (const auto& picture : pictures) thumbnail.push_back(picture.string());
        const double scaling = run(thumbnail).seconds;
        const double remux = run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-i", recording.string(), "-i",
                                  (folder / "chapters.txt").string(), "-map", "0", "-map_metadata", "1",
                                  "-map_chapters", "1", "-c", "copy", (folder / "remux.m4a").string()})
                                 .seconds;
        fs::remove_all(folder / "scratch");
        const Run exported = run({quillora, "export", "--recording", recording.string(), "--transitions",
                                  (folder / "transitions.json").string(), "--tags", (folder / "tags.json").string(),
                                  "--defaults", (folder / "defaults.json").string(), "--scratch",
                                  (folder / "scratch").string(), "--output", (folder / "lecture.m4b").string()});
        const double floor = copies + scaling;
        std::printf("%s: export %.2f s; I/O floor %.2f s (2x cp %.2f s + vipsthumbnail %.2f s): ratio %.2f; "
                    "ffmpeg remux with chapters %.2f s: ratio %.2f; peak resident memory %.1f MiB\n",
                    layout, exported.seconds, floor, copies, scaling, exported.seconds / floor, remux,
                    exported.seconds / remux, exported.peakKiB / 1024.0);
    }
    fs::remove_all(folder);
    return 0;
}
