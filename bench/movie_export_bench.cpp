// The chapterized movie (.mov) export of a 20-minute and a 3-hour lecture
// with a few slides, through the quillora host: its time against the
// enhanced-podcast export of the same lecture, and its peak resident memory,
// which should not grow with the recording (its samples are streamed).
//   movie_export_bench [SLIDES=12] [FOLDER=/tmp]
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace fs = std::filesystem;
using quillora::bench::run;
using quillora::bench::writeText;

int main(int argc, char** argv)
{
    const int slides = argc > 1 ? std::atoi(argv[1]) : 12;
    const fs::path base = argc > 2 ? argv[2] : fs::temp_directory_path();
    const fs::path folder = base / "quillora-movie-bench";
    fs::remove_all(folder);
    fs::create_directories(folder / "slides");
    const std::string quillora = std::string(QUILLORA_BINARY_DIR) + "/quillora";
    run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1280x720:rate=1", "-frames:v",
         std::to_string(slides), "-q:v", "3", (folder / "slides" / "slide-%03d.jpg").string()});
    writeText(folder / "tags.json", R"({"title": "Benchmark lecture", "author": "Quillora"})");
    writeText(folder / "defaults.json", R"({"supportForURL": true, "textTrackFontSize": 14, "videoImageQuality": 0})");

    for (int minutes : {20, 180}) {
        const fs::path recording = folder / ("lecture-" + std::to_string(minutes) + ".m4a");
        std::printf("making a %d-minute recording...\n", minutes);
        run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i",
             "sine=f=220:d=" + std::to_string(minutes * 60) + ":sample_rate=22050", "-ac", "1", "-c:a", "aac", "-b:a",
             "32k", "-movie_timescale", "600", recording.string()});
        const long duration = static_cast<long>(minutes) * 60 * 600;
        std::string transitions = "[";
        for (int i = 0; i < slides; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "slide-%03d.jpg", i + 1);
            transitions += std::string(i ? ",\n" : "\n") + "{\"timeValue\": " + std::to_string(duration * i / slides) +
                           ", \"slideTitle\": \"Slide " + std::to_string(i + 1) + "\", \"imagePath\": \"" +
                           (folder / "slides" / name).string() +
                           "\", \"linkURL\": {\"title\": \"Notes\", \"url\": \"https://example.org/\"}}";
        }
        writeText(folder / "transitions.json", transitions + "\n]\n");
        auto exportAs = [&](const std::string& extension) {
            fs::remove_all(folder / "scratch");
            return run({quillora, "export", "--recording", recording.string(), "--transitions",
                        (folder / "transitions.json").string(), "--tags", (folder / "tags.json").string(), "--defaults",
                        (folder / "defaults.json").string(), "--scratch", (folder / "scratch").string(), "--output",
                        (folder / ("lecture" + extension)).string()});
        };
        const auto movie = exportAs(".mov");
        const auto podcast = exportAs(".m4b");
        std::printf("%d minutes (%.1f MiB): .mov export %.2f s, peak resident memory %.1f MiB; "
                    ".m4b export %.2f s, peak %.1f MiB; time ratio .mov/.m4b %.2f\n",
                    minutes, static_cast<double>(fs::file_size(recording)) / (1 << 20), movie.seconds,
                    movie.peakKiB / 1024.0, podcast.seconds, podcast.peakKiB / 1024.0, movie.seconds / podcast.seconds);
    }
    fs::remove_all(folder);
    return 0;
}
