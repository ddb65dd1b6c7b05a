// A semester published as one feed: 10 lectures of 60 minutes (64 kbit/s
// mono AAC) with 60 slides of 1920x1080 each (half PNG, half JPEG, links
// on), the JSON chapters beside each. Times, in the same run: the ten
// `quillora export` one after another, as by hand; `quillora course publish`
// of the same lectures (its default jobs, then --jobs 2 into a fresh folder
// when asked); and the second `course publish`, with nothing changed.
//   course_bench [LECTURES=10] [MINUTES=60] [SLIDES=60] [FOLDER=/tmp] [ALSO_JOBS_2=0]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

namespace fs = std::filesystem;
using quillora::bench::run;
using quillora::bench::writeText;

}  // namespace

int main(int argc, char** argv)
{
    const int lectures = argc > 1 ? std::atoi(argv[1]) : 10;
    const int minutes = argc > 2 ? std::atoi(argv[2]) : 60;
    const int slides = argc > 3 ? std::atoi(argv[3]) : 60;
    const fs::path base = argc > 4 ? argv[4] : fs::temp_directory_path();
    const bool alsoTwoJobs = argc > 5 && std::atoi(argv[5]) != 0;
    const fs::path folder = base / "quillora-course-bench";
    fs::remove_all(folder);
    fs::create_directories(folder / "slides");
    const std::string quillora = std::string(QUILLORA_BINARY_DIR) + "/quillora";
    const long duration = static_cast<long>(minutes) * 60 * 600;

    std::printf("making a %d-minute recording and %d slides of 1920x1080 for %d lectures...\n", minutes, slides,
                lectures);
    run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i",
         "sine=f=220:d=" + std::to_string(minutes * 60) + ":sample_rate=44100", "-ac", "1", "-c:a", "aac", "-b:a",
         "64k", "-movie_timescale", "600", (folder / "lecture.m4a").string()});
    const int half = slides / 2;
    run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=1", "-frames:v",
         std::to_string(half), (folder / "slides" / "slide-%03d.png").string()});
    run({"ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=1", "-frames:v",
         std::to_string(slides - half), "-q:v", "3", (folder / "slides" / "slide-%03d.jpg").string()});
    std::vector<fs::path> pictures;
    for (const auto& entry : fs::directory_iterator(folder / "slides")) pictures.push_back(entry.path());
    std::sort(pictures.begin(), pictures.end());
    std::string transitions = "[";
    for (int i = 0; i < slides; ++i) {
        transitions += std::string(i ? ",\n" : "\n") + "{\"timeValue\": " + std::to_string(duration * i / slides) +
                       ", \"slideTitle\": \"Slide " + std::to_string(i + 1) + "\", \"imagePath\": \"" +
                       pictures[static_cast<std::size_t>(i)].string() +
                       "\", \"linkURL\": {\"title\": \"Notes\", \"url\": \"https://example.org/" +
                       std::to_string(i + 1) + "\"}}";
    }
    writeText(folder / "transitions.json", transitions + "\n]\n");
    writeText(folder / "defaults.json",
              R"({"supportForURL": true, "textTrackFontSize": 14, "videoImageQuality": 512})");
    const std::string baseUrl = "https://lectures.example.org/bench/";
    std::string manifestLectures;
    for (int i = 1; i <= lectures; ++i) {
        const std::string tags = "tags-" + std::to_string(i) + ".json";
        writeText(folder / tags, "{\"title\": \"Lecture " + std::to_string(i) + "\", \"author\": \"Quillora\"}");
        manifestLectures += std::string(i > 1 ? ",\n" : "\n") + "{\"slug\": \"lecture-" + std::to_string(i) +
                            "\", \"recording\": \"lecture.m4a\", \"transitions\": \"transitions.json\", \"tags\": \"" +
                            tags + "\", \"date\": \"2024-09-" + (i < 10 ? "0" : "") + std::to_string(i) + "\"}";
    }
    writeText(folder / "course.json",
              "{\"title\": \"Benchmark course\", \"author\": \"Quillora\", \"description\": \"A semester\", "
              "\"artwork\": \"" +
                  pictures.front().string() + "\", \"baseUrl\": \"" + baseUrl +
                  "\", \"defaults\": \"defaults.json\", \"lectures\": [" + manifestLectures + "\n]}\n");

    // By hand: the same exports the course runs, one after another.
    fs::create_directories(folder / "by-hand");
    double byHand = 0;
    for (int i = 1; i <= lectures; ++i) {
        const std::string slug = "lecture-" + std::to_string(i);
        byHand += run({quillora, "export", "--recording", (folder / "lecture.m4a").string(), "--transitions",
                       (folder / "transitions.json").string(), "--tags",
                       (folder / ("tags-" + std::to_string(i) + ".json")).string(), "--defaults",
                       (folder / "defaults.json").string(), "--also", "chapters-json", "--base-url", baseUrl,
                       "--output", (folder / "by-hand" / (slug + ".m4a")).string()})
                      .seconds;
    }
    const auto publish = [&](const std::string& site, const std::vector<std::string>& extra) {
        std::vector<std::string> command = {
            quillora, "course", "publish", (folder / "course.json").string(), "--output", (folder / site).string()};
        command.insert(command.end(), extra.begin(), extra.end());
        return run(command);
    };
    const auto first = publish("site", {});
    const auto second = publish("site", {});
    std::printf("%d lectures of %d min, %d slides: %d exports one after another %.1f s; course publish %.1f s "
                "(%.2f cores, ratio %.3f); second course publish, nothing changed, %.3f s\n",
                lectures, minutes, slides, lectures, byHand, first.seconds, first.cpuSeconds / first.seconds,
                first.seconds / byHand, second.seconds);
    if (alsoTwoJobs) {
        const auto twoJobs = publish("site-2-jobs", {"--jobs", "2"});
        std::printf("course publish --jobs 2: %.1f s (%.2f cores, ratio %.3f)\n", twoJobs.seconds,
                    twoJobs.cpuSeconds / twoJobs.seconds, twoJobs.seconds / byHand);
    }
    std::fflush(stdout);
    fs::remove_all(folder);
    return 0;
}
