// Redrawing a lecture's slides: 1920x1080 pictures (half JPEG, half PNG, a
// quarter of them RGBA with opaque alpha as slide exports often are) through
// ImageResizer at the default quality, against vipsthumbnail scaling the same
// files to the same box at the same JPEG quality in the same run. Each side
// runs as its own process over fresh copies of the inputs, timed from start to
// exit (start-up and library set-up included on both sides); the peak
// resident memory of each process comes from wait4. The resizer also runs
// over 20 and over twice the slides, to show that its memory does not grow
// with their number.
//   resizer_bench [SLIDES=60] [FOLDER=/tmp] [RUNS=3]
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>
#include <vips/vips8>

#include "QuickTimePlugin/ImageResizer.h"
#include "QuickTimePlugin/TransitionKeys.h"
#include "foundation/Log.h"
#include "foundation/UserDefaults.h"
#include "images/ImageLibrary.h"

extern char** environ;

using namespace quillora;
using vips::VImage;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kDefaultJpegQuality = 10;  // "videoImageQuality" absent: factor 0.1

// Gradients, a moving wave, a little sensor noise and a few bright bars like
// lines of text: enough detail that neither codec has an easy time.
VImage makeSlide(int index)
{
    const VImage xy = VImage::xyz(kWidth, kHeight);
    const VImage x = xy[0];
    const VImage y = xy[1];
    const VImage red = x * (255.0 / kWidth);
    const VImage green = y * (255.0 / kHeight);
    const VImage blue = (x * 3 + index * 17).sin() * (y * 2).cos() * 100 + 128;
    const VImage noise = VImage::gaussnoise(kWidth, kHeight, VImage::option()->set("sigma", 4.0)) - 128;
    VImage slide = (VImage::bandjoin({red, green, blue}) + noise).cast(VIPS_FORMAT_UCHAR).copy_memory();
    for (int line = 0; line < 8; ++line) {
        slide.draw_rect({255, 255, 255}, 160, 200 + line * 90, 600 + ((index * 7 + line * 13) % 900), 40,
                        VImage::option()->set("fill", true));
    }
    const double perMillimetre = 72 / 25.4;
    return slide.copy(VImage::option()
                          ->set("interpretation", VIPS_INTERPRETATION_sRGB)
                          ->set("xres", perMillimetre)
                          ->set("yres", perMillimetre));
}

std::vector<fs::path> makeSlides(const fs::path& folder, int count)
{
    std::vector<fs::path> slides;
    for (int i = 0; i < count; ++i) {
        const VImage slide = makeSlide(i);
        fs::path path = folder / fmt::format("slide-{:03}.{}", i, i % 2 == 0 ? "jpg" : "png");
        if (i % 2 == 0) {
            slide.write_to_file(path.c_str(), VImage::option()->set("Q", 90));
        } else if (i % 4 == 1) {
            slide.write_to_file(path.c_str());
        } else {
            slide.bandjoin_const({255}).write_to_file(path.c_str());
        }
        slides.push_back(std::move(path));
    }
    return slides;
}

// The first `count` slides, going round again when there are fewer.
std::vector<fs::path> freshCopies(const std::vector<fs::path>& slides, const fs::path& folder, int count)
{
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::vector<fs::path> copies;
    for (int i = 0; i < count; ++i) {
        const fs::path& slide = slides[static_cast<std::size_t>(i) % slides.size()];
        copies.push_back(folder / fmt::format("{:04}-{}", i, slide.filename().string()));
        fs::copy_file(slide, copies.back());
    }
    return copies;
}

struct ProcessRun {
    double seconds = 0;
    long peakResidentKiB = 0;
    bool succeeded = false;
};

ProcessRun runProcess(const std::vector<std::string>& arguments, const std::string& extraEnvironment = "")
{
    std::vector<char*> argv;
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (char** variable = environ; *variable; ++variable) envp.push_back(*variable);
    std::string extra = extraEnvironment;
    if (!extra.empty()) envp.push_back(extra.data());
    envp.push_back(nullptr);
    ProcessRun run;
    const auto start = Clock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), envp.data()) != 0) return run;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) return run;
    run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    run.peakResidentKiB = usage.ru_maxrss;
    run.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return run;
}

// A child: the input slides, made outside the measuring process so that its
// own resident size (which a spawned child's peak starts from) stays small.
int makeSlidesInFolder(const fs::path& folder, int count)
{
    if (!startImageLibrary()) return 2;
    fs::create_directories(folder);
    makeSlides(folder, count);
    return 0;
}

// A child: one ImageResizer over every picture in the folder, as the export
// pipeline would run it.
int resizeFolder(const fs::path& folder, double sizeRatio)
{
    if (!startImageLibrary()) return 2;
    setLogSink(nullptr);
    UserDefaults defaults;
    if (sizeRatio > 0) defaults.set("imageSizeRation", sizeRatio);
    UserDefaults::setStandardUserDefaults(defaults);

    std::vector<fs::path> pictures;
    for (const auto& entry : fs::directory_iterator(folder)) pictures.push_back(entry.path());
    std::sort(pictures.begin(), pictures.end());
    Array transitions;
    for (const auto& picture : pictures) {
        transitions.push_back(Value::dictionary({{QRTransitionImagePathKey, picture.string()}}));
    }
    return ImageResizer::resizerWithTransitions(Value::array(transitions))->resizeImages() ? 0 : 1;
}

ProcessRun fastest(int runs, const std::function<ProcessRun()>& once)
{
    ProcessRun best;
    for (int i = 0; i < runs; ++i) {
        ProcessRun run = once();
        if (!run.succeeded) return run;
        if (i == 0 || run.seconds < best.seconds) best = run;
        best.peakResidentKiB = std::max(best.peakResidentKiB, run.peakResidentKiB);
    }
    return best;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::string(argv[1]) == "--resize-folder") return resizeFolder(argv[2], std::atof(argv[3]));
    if (argc == 4 && std::string(argv[1]) == "--make-slides") return makeSlidesInFolder(argv[2], std::atoi(argv[3]));

    const int count = argc > 1 ? std::max(20, std::atoi(argv[1])) : 60;
    const fs::path base = argc > 2 ? argv[2] : fs::temp_directory_path().string();
    const int runs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 3;
    const fs::path folder = base / fmt::format("quillora-resizer-bench-{}", getpid());
    const std::string self = fs::read_symlink("/proc/self/exe").string();

    std::printf("making %d slides of %dx%d in %s\n", count, kWidth, kHeight, folder.c_str());
    if (!runProcess({self, "--make-slides", (folder / "inputs").string(), std::to_string(count)}).succeeded) return 1;
    std::vector<fs::path> slides;
    for (const auto& entry : fs::directory_iterator(folder / "inputs")) slides.push_back(entry.path());
    std::sort(slides.begin(), slides.end());
    rusage ownUsage{};
    getrusage(RUSAGE_SELF, &ownUsage);
    std::printf("peak resident of this measuring process: %.1f MiB (a child's peak cannot be below it)\n",
                ownUsage.ru_maxrss / 1024.0);

    auto resizer = [&](int slideCount, double ratio, int times, const std::string& environment = "") {
        return fastest(times, [&] {
            const fs::path work = folder / "resizer";
            freshCopies(slides, work, slideCount);
            return runProcess({self, "--resize-folder", work.string(), fmt::format("{}", ratio)}, environment);
        });
    };
    auto thumbnailer = [&](int slideCount, int side) {
        return fastest(runs, [&] {
            const fs::path work = folder / "vipsthumbnail";
            std::vector<std::string> command = {"vipsthumbnail", "-s", std::to_string(side)};
            for (const auto& copy : freshCopies(slides, work, slideCount)) command.push_back(copy.string());
            command.push_back("-o");
            command.push_back((work / fmt::format("%s-thumbnail.jpg[Q={}]", kDefaultJpegQuality)).string());
            return runProcess(command);
        });
    };

    // Without "imageSizeRation" the frame is the slides' width: they are
    // only placed on the square canvas. With 2 they are also halved.
    struct Scenario {
        const char* name;
        double ratio;
        int side;
    };
    const Scenario scenarios[] = {{"no size ratio (frame 1920, no scaling)", 0, kWidth},
                                  {"imageSizeRation 2 (frame 960, scaled by 0.5)", 2, kWidth / 2}};
    bool ok = true;
    for (const auto& scenario : scenarios) {
        const ProcessRun all = resizer(count, scenario.ratio, runs);
        const ProcessRun reference = thumbnailer(count, scenario.side);
        const ProcessRun few = resizer(20, scenario.ratio, 1);
        const ProcessRun twice = resizer(2 * count, scenario.ratio, 1);
        // glibc gives each of libvips' worker threads its own heap, which
        // fill up over the first slides; with one heap the peak shows what
        // the resizer itself keeps.
        const std::string oneHeap = "MALLOC_ARENA_MAX=1";
        const ProcessRun fewOneHeap = resizer(20, scenario.ratio, 1, oneHeap);
        const ProcessRun twiceOneHeap = resizer(2 * count, scenario.ratio, 1, oneHeap);
        if (!few.succeeded || !all.succeeded || !twice.succeeded || !reference.succeeded || !fewOneHeap.succeeded ||
            !twiceOneHeap.succeeded) {
            std::printf("%s: a run failed\n", scenario.name);
            ok = false;
            continue;
        }
        const double perSlide = all.seconds / count * 1000;
        const double referencePerSlide = reference.seconds / count * 1000;
        std::printf("\n%s, fastest of %d runs, JPEG quality %d:\n", scenario.name, runs, kDefaultJpegQuality);
        std::printf("  ImageResizer:  %7.1f ms a slide  (ratio to vipsthumbnail %.2f)\n", perSlide,
                    perSlide / referencePerSlide);
        std::printf("  vipsthumbnail: %7.1f ms a slide\n", referencePerSlide);
        std::printf("  peak resident: ImageResizer %.1f MiB for 20 slides, %.1f MiB for %d, %.1f MiB for %d;"
                    " vipsthumbnail %.1f MiB for %d\n",
                    few.peakResidentKiB / 1024.0, all.peakResidentKiB / 1024.0, count, twice.peakResidentKiB / 1024.0,
                    2 * count, reference.peakResidentKiB / 1024.0, count);
        std::printf("  peak resident with %s: ImageResizer %.1f MiB for 20 slides, %.1f MiB for %d\n", oneHeap.c_str(),
                    fewOneHeap.peakResidentKiB / 1024.0, twiceOneHeap.peakResidentKiB / 1024.0, 2 * count);
    }
    fs::remove_all(folder);
    return ok ? 0 : 1;
}
