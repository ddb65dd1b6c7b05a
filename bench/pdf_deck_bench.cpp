// Drawing a 60-page 16:9 PDF deck (960x540 points: a gradient, a title,
// bullet lines and a chart on every page, made by cairo) as an export draws
// it: every page rendered through libvips at one pixel per point on both
// cores, then redrawn by ImageResizer onto the podcast's frame, as one
// process. Against pdftoppm rendering the same pages at the same size (72
// dpi) as two processes of half the pages each, at the same time, in the
// same run, writing PPM (its default and its fastest: no compression) and
// PNG; our rendering alone is timed too. Each side is timed from start to
// exit, fastest of RUNS.
//   pdf_deck_bench [PAGES=60] [FOLDER=/tmp] [RUNS=3]
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "QuickTimePlugin/ImageResizer.h"
#include "QuickTimePlugin/TransitionKeys.h"
#include "foundation/Log.h"
#include "foundation/UserDefaults.h"
#include "images/ImageLibrary.h"
#include "images/PdfPages.h"

using namespace quillora;
namespace fs = std::filesystem;

namespace {

constexpr const char* kDeckScript = R"(import cairo, math, sys
path, pages = sys.argv[1], int(sys.argv[2])
surface = cairo.PDFSurface(path, 960, 540)
c = cairo.Context(surface)
for n in range(pages):
    g = cairo.LinearGradient(0, 0, 960, 540)
    g.add_color_stop_rgb(0, 0.1, 0.2 + n % 5 * 0.1, 0.4)
    g.add_color_stop_rgb(1, 0.9, 0.9, 0.95)
    c.set_source(g); c.paint()
    c.set_source_rgb(1, 1, 1)
    c.select_font_face("Sans", cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_BOLD)
    c.set_font_size(44); c.move_to(60, 90); c.show_text("Lecture slide %d: optics and waves" % (n + 1))
    c.select_font_face("Serif")
    c.set_font_size(24)
    for line in range(7):
        c.move_to(90, 160 + line * 44)
        c.show_text("- point %d.%d about refraction, lenses and the eye" % (n + 1, line + 1))
    for bar in range(12):
        c.set_source_rgb(0.9, 0.4 + bar * 0.04, 0.2)
        h = 40 + 120 * (0.5 + 0.5 * math.sin(n + bar))
        c.rectangle(640 + bar * 24, 500 - h, 18, h); c.fill()
    c.set_source_rgb(0.2, 0.2, 0.2); c.set_line_width(3)
    c.arc(780, 170, 70, 0, 2 * math.pi); c.stroke()
    surface.show_page()
surface.finish()
)";

// The commands run at the same time; timed until the last has ended.
// Throws when one fails.
bench::Run runTogether(const std::vector<std::vector<std::string>>& commands)
{
    const auto start = bench::Clock::now();
    std::vector<pid_t> children;
    for (const auto& command : commands) children.push_back(bench::spawn(command, true));
    bool succeeded = true;
    for (const pid_t child : children) {
        int status = 0;
        succeeded = waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0 && succeeded;
    }
    if (!succeeded) throw std::runtime_error(commands.front().front() + " failed");
    return {std::chrono::duration<double>(bench::Clock::now() - start).count()};
}

// A child: every page drawn into the folder, and with redraw, the pages
// redrawn onto the frame as the export does next.
int drawDeck(const fs::path& pdf, const fs::path& folder, bool redraw)
{
    if (!startImageLibrary()) return 2;
    setLogSink(nullptr);
    const int pages = pdfPageCount(pdf);
    std::vector<PdfPageRequest> requests;
    for (int page = 1; page <= pages; ++page) {
        requests.push_back({pdf, page, folder / fmt::format("{:03}-page{}.png", page, page)});
    }
    renderPdfPages(requests);
    if (!redraw) return 0;
    UserDefaults::setStandardUserDefaults(UserDefaults());
    Array transitions;
    for (const auto& request : requests) {
        transitions.push_back(Value::dictionary({{QRTransitionImagePathKey, request.picture.string()}}));
    }
    return ImageResizer::resizerWithTransitions(Value::array(transitions))->resizeImages() ? 0 : 1;
}

void freshFolder(const fs::path& folder)
{
    fs::remove_all(folder);
    fs::create_directories(folder);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 5 && std::string(argv[1]) == "--draw") return drawDeck(argv[2], argv[3], std::string(argv[4]) == "1");

    const int pages = argc > 1 ? std::max(2, std::atoi(argv[1])) : 60;
    const fs::path base = argc > 2 ? argv[2] : fs::temp_directory_path().string();
    const int runs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 3;
    const fs::path folder = base / fmt::format("quillora-pdf-deck-bench-{}", getpid());
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    freshFolder(folder);
    const fs::path pdf = folder / "deck.pdf";
    {
        std::FILE* script = std::fopen((folder / "deck.py").c_str(), "w");
        std::fputs(kDeckScript, script);
        std::fclose(script);
    }
    try {
        runTogether({{"/usr/bin/python3", (folder / "deck.py").string(), pdf.string(), std::to_string(pages)}});
    } catch (const std::exception&) {
        std::printf("the deck could not be made (python3-cairo)\n");
        return 1;
    }
    std::printf("%d pages of 960x540 points, %.0f KiB, %u cores, fastest of %d runs\n", pages,
                fs::file_size(pdf) / 1024.0, std::max(1u, std::thread::hardware_concurrency()), runs);

    const fs::path work = folder / "work";
    auto ours = [&](bool redraw) {
        return bench::fastest(runs, [&] {
            freshFolder(work);
            return runTogether({{self, "--draw", pdf.string(), work.string(), redraw ? "1" : "0"}});
        });
    };
    auto pdftoppm = [&](const std::string& format) {
        return bench::fastest(runs, [&] {
            freshFolder(work);
            const int half = pages / 2;
            std::vector<std::vector<std::string>> commands;
            for (const auto& [first, last] : {std::pair{1, half}, std::pair{half + 1, pages}}) {
                std::vector<std::string> command = {"pdftoppm",          "-r", "72", "-f", std::to_string(first), "-l",
                                                    std::to_string(last)};
                if (!format.empty()) command.push_back(format);
                command.push_back(pdf.string());
                command.push_back((work / fmt::format("p{}", first)).string());
                commands.push_back(command);
            }
            return runTogether(commands);
        });
    };
    bench::Run drawn, rendered, ppm, png;
    try {
        drawn = ours(true);
        rendered = ours(false);
        ppm = pdftoppm("");
        png = pdftoppm("-png");
    } catch (const std::exception& failure) {
        fs::remove_all(folder);
        std::printf("a run failed: %s\n", failure.what());
        return 1;
    }
    fs::remove_all(folder);
    std::printf("  pages rendered and redrawn onto the frame: %6.2f s  (%5.1f ms a page)\n", drawn.seconds,
                drawn.seconds / pages * 1000);
    std::printf("  pages rendered only (PNG):                 %6.2f s\n", rendered.seconds);
    std::printf("  pdftoppm -r 72, 2 processes, PPM:          %6.2f s\n", ppm.seconds);
    std::printf("  pdftoppm -r 72, 2 processes, PNG:          %6.2f s\n", png.seconds);
    std::printf("  ratios: drawn / pdftoppm PNG %.2f, drawn / pdftoppm PPM %.2f, rendered / pdftoppm PNG %.2f\n",
                drawn.seconds / png.seconds, drawn.seconds / ppm.seconds, rendered.seconds / png.seconds);
    return 0;
}
