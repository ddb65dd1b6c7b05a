// The sample lecture published from the files a lecturer has: chapter marks
// in each format, slides as a PDF, a folder or none, read back by ffprobe
// and ffmpeg.
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "TestSupport.h"

namespace quillora {
namespace {

using test::runCommand;
using test::runQuillora;
using test::shellQuote;
using test::TemporaryFolder;
using test::writeText;

std::filesystem::path sampleFile(const std::string& name)
{
    return std::filesystem::path(QUILLORA_SOURCE_DIR) / "sample" / name;
}

struct Mark {
    double start;
    std::string title;
};
// Exact in the podcast's 1/600 s, so a transitions file can give them too.
const std::vector<Mark> kMarks = {{0, "Light"}, {5.25, "Mirrors"}, {12.5, "Refraction"}, {20.125, "Summary"}};

// One solid colour per slide, told apart in the decoded pictures.
const std::vector<std::string> kColourNames = {"red", "lime", "blue", "yellow"};
const std::vector<std::array<int, 3>> kColours = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 0}};

std::string clock(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%06.3f", static_cast<int>(seconds) / 60, std::fmod(seconds, 60.0));
    return text;
}

// Every chapter format, each written from kMarks as its own tools write it.
std::filesystem::path writeChapters(const std::string& format, const TemporaryFolder& folder)
{
    const auto file = folder.path() / ("chapters-" + format);
    std::ostringstream text;
    if (format == "audacity") {
        for (const auto& mark : kMarks) text << mark.start << "\t" << mark.start << "\t" << mark.title << "\n";
    } else if (format == "timestamps") {
        for (const auto& mark : kMarks)
            text << (mark.start > 10 ? "[" + clock(mark.start) + "]" : clock(mark.start)) << " " << mark.title << "\n";
    } else if (format == "webvtt") {
        text << "WEBVTT\n";
        for (std::size_t i = 0; i < kMarks.size(); ++i) {
            const double end = i + 1 < kMarks.size() ? kMarks[i + 1].start : 39.0;
            text << "\n00:" << clock(kMarks[i].start) << " --> 00:" << clock(end) << "\n" << kMarks[i].title << "\n";
        }
    } else if (format == "json") {
        // Pictures in reverse order, so the chapters' own pictures are seen to be used.
        const std::vector<std::string> reversed = {"slide10", "slide4", "slide3", "slide2"};
        text << R"({"version": "1.2.0", "chapters": [)";
        for (std::size_t i = 0; i < kMarks.size(); ++i) {
            text << (i ? ", " : "") << R"({"startTime": )" << kMarks[i].start << R"(, "title": ")" << kMarks[i].title
                 << R"(", "img": "folder/)" << reversed[i] << R"(.png")"
                 << (i == 1 ? R"(, "url": "https://example.org/mirrors")" : "") << "}";
        }
        text << "]}";
    } else if (format == "ffmetadata" || format == "m4b") {
        text << ";FFMETADATA1\n";
        for (std::size_t i = 0; i < kMarks.size(); ++i) {
            const double end = i + 1 < kMarks.size() ? kMarks[i + 1].start : 39.0;
            text << "[CHAPTER]\nTIMEBASE=1/1000\nSTART=" << std::lround(kMarks[i].start * 1000)
                 << "\nEND=" << std::lround(end * 1000) << "\ntitle=" << kMarks[i].title << "\n";
        }
    } else if (format == "transitions") {
        // Pages named in the records themselves: the deck's pages 4, 3, 2, 1.
        text << "[";
        for (std::size_t i = 0; i < kMarks.size(); ++i) {
            text << (i ? ", " : "") << R"({"timeValue": )" << std::lround(kMarks[i].start * 600)
                 << R"(, "slideTitle": ")" << kMarks[i].title << R"(", "imagePath": "deck.pdf#page=)" << 4 - i
                 << R"("})";
        }
        text << "]";
    }
    writeText(file, text.str());
    if (format != "m4b") return file;
    // Another program's MPEG-4 file with these chapters.
    const auto movie = folder.path() / "published.m4b";
    const auto made = runCommand("ffmpeg -v error -y -i " + shellQuote(sampleFile("lecture.m4a")) + " -i " +
                                 shellQuote(file) + " -map 0 -map_chapters 1 -c copy " + shellQuote(movie));
    EXPECT_EQ(made.status, 0) << made.output;
    return movie;
}

// The deck as PDF (16:9 pages, one colour each, drawn by cairo) and as a
// folder whose names sort wrongly as plain text (slide10 is the first colour).
void writeSlides(const TemporaryFolder& folder)
{
    std::string script = "import cairo, sys\n"
                         "s = cairo.PDFSurface(sys.argv[1], 640, 360)\n"
                         "c = cairo.Context(s)\n";
    for (const auto& colour : kColours) {
        script += "c.set_source_rgb(" + std::to_string(colour[0] / 255) + ", " + std::to_string(colour[1] / 255) +
                  ", " + std::to_string(colour[2] / 255) + "); c.paint(); s.show_page()\n";
    }
    writeText(folder.path() / "deck.py", script);
    const auto pdf = runCommand("/usr/bin/python3 " + shellQuote(folder.path() / "deck.py") + " " +
                                shellQuote(folder.path() / "deck.pdf"));
    ASSERT_EQ(pdf.status, 0) << pdf.output;
    std::filesystem::create_directories(folder.path() / "folder");
    const std::vector<std::string> order = {"slide2.png", "slide3.png", "slide4.png", "slide10.png"};
    for (std::size_t i = 0; i < order.size(); ++i) {
        const auto made = runCommand("ffmpeg -v error -y -f lavfi -i color=c=" + kColourNames[i] +
                                     ":s=400x300 -frames:v 1 " + shellQuote(folder.path() / "folder" / order[i]));
        ASSERT_EQ(made.status, 0) << made.output;
    }
}

// The colour of each picture in the picture track, by its centre. ffmpeg's
// demuxer hands over the first picture of the track twice, at the same
// time; a picture at the time of the one before is that one again.
std::vector<int> slideColours(const std::filesystem::path& file)
{
    const auto decoded = runCommand("ffmpeg -v error -i " + shellQuote(file) +
                                    " -map 0:v:0 -fps_mode passthrough -vf crop=16:16,scale=1:1 -f rawvideo "
                                    "-pix_fmt rgb24 -");
    const auto times =
        runCommand("ffprobe -v error -select_streams v:0 -show_entries packet=pts -of csv=p=0 " + shellQuote(file));
    std::istringstream lines(times.output);
    std::vector<std::string> pts;
    for (std::string line; std::getline(lines, line);) pts.push_back(line);
    EXPECT_EQ(pts.size() * 3, decoded.output.size()) << times.output;
    std::vector<int> colours;
    for (std::size_t at = 0, frame = 0; at + 3 <= decoded.output.size(); at += 3, ++frame) {
        if (frame > 0 && frame < pts.size() && pts[frame] == pts[frame - 1]) continue;
        int nearest = -1;
        int distance = 3 * 256 * 256;
        for (std::size_t c = 0; c < kColours.size(); ++c) {
            int d = 0;
            for (int k = 0; k < 3; ++k) {
                const int delta = static_cast<unsigned char>(decoded.output[at + k]) - kColours[c][k];
                d += delta * delta;
            }
            if (d < distance) {
                distance = d;
                nearest = static_cast<int>(c);
            }
        }
        colours.push_back(nearest);
    }
    return colours;
}

TEST(LecturerInputs, ChapterFormatsAndDecksPublishWithTheirMarksAndSlides)
{
    TemporaryFolder folder;
    writeSlides(folder);
    struct Case {
        std::string chapters;
        std::string slides;  // a deck below the folder, or nothing
        std::string slidesFor;
        std::vector<int> colours;  // the slide of each picture; none without a picture track
    };
    const std::vector<Case> cases = {
        {"audacity", "deck.pdf", "", {0, 1, 2, 3}},
        {"timestamps", "folder", "", {0, 1, 2, 3}},
        {"webvtt", "", "", {}},
        {"json", "", "", {3, 2, 1, 0}},
        {"ffmetadata", "deck.pdf", "4,1-2,2", {3, 0, 1, 1}},
        {"m4b", "folder", "3-,4,4", {2, 3, 3, 3}},
        {"m4b", "", "", {}},
        {"transitions", "", "", {3, 2, 1, 0}},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.chapters + " with slides " + (c.slides.empty() ? "none" : c.slides) + " " + c.slidesFor);
        const auto chapters = writeChapters(c.chapters, folder);
        const auto output = folder.path() / ("lecture" + std::to_string(i) + ".m4b");
        std::string arguments = "export --recording " + shellQuote(sampleFile("lecture.m4a")) + " --tags " +
                                shellQuote(sampleFile("tags.json")) + " --defaults " +
                                shellQuote(sampleFile("defaults.json")) +
                                (c.chapters == "transitions" ? " --transitions " : " --chapters ") +
                                shellQuote(chapters) + " --output " + shellQuote(output);
        if (!c.slides.empty()) arguments += " --slides " + shellQuote(folder.path() / c.slides);
        if (!c.slidesFor.empty()) arguments += " --slides-for " + shellQuote(c.slidesFor);
        const auto result = runQuillora(arguments);
        ASSERT_EQ(result.status, 0) << result.output;

        // Without a picture track ffmpeg complains, as an error, that the chapter reference's track 3 is missing.
        const auto probed = runCommand("ffprobe -v fatal -show_entries chapter=start_time:chapter_tags=title -of "
                                       "csv=p=0 " +
                                       shellQuote(output));
        std::istringstream lines(probed.output);
        std::string line;
        std::size_t count = 0;
        for (; std::getline(lines, line); ++count) {
            ASSERT_LT(count, kMarks.size()) << probed.output;
            const auto comma = line.find(',');
            ASSERT_TRUE(comma != std::string::npos && comma > 0 && std::isdigit(line[0])) << probed.output;
            EXPECT_NEAR(std::stod(line.substr(0, comma)), kMarks[count].start, 0.010) << line;
            EXPECT_EQ(line.substr(comma + 1), kMarks[count].title);
        }
        EXPECT_EQ(count, kMarks.size()) << probed.output;
        if (!c.colours.empty()) {
            EXPECT_EQ(slideColours(output), c.colours);
        }
        const auto frames = runCommand(
            "ffprobe -v fatal -select_streams v -show_entries stream=nb_frames -of csv=p=0 " + shellQuote(output));
        EXPECT_EQ(frames.output, c.colours.empty() ? "" : std::to_string(c.colours.size()) + "\n");
    }
}

TEST(LecturerInputs, RefusesDecksAndMarksThatDoNotFitWithBothSidesNamed)
{
    TemporaryFolder folder;
    writeSlides(folder);
    const auto chapters = writeChapters("audacity", folder);
    writeText(folder.path() / "close.txt", "1.0000\t1.0000\tFirst\n1.0005\t1.0005\tSecond\n");
    writeText(folder.path() / "two.txt", "0\t0\tFirst\n3\t3\tSecond\n");
    writeText(folder.path() / "pages.json", R"([{"timeValue": 0, "imagePath": "deck.pdf#page=9"}])");
    std::filesystem::create_directories(folder.path() / "empty");
    struct Case {
        std::string arguments;
        std::string expected;
    };
    const std::string deck = " --slides " + shellQuote(folder.path() / "deck.pdf");
    const std::vector<Case> cases = {
        {" --chapters " + shellQuote(chapters) + " --transitions " + shellQuote(folder.path() / "pages.json"),
         "excludes"},
        {" --chapters " + shellQuote(folder.path() / "close.txt"), "\"First\" at 1.0000 s and \"Second\" at 1.0005 s"},
        {" --chapters " + shellQuote(folder.path() / "two.txt") + deck, "4 slides for 2 chapters"},
        {" --chapters " + shellQuote(chapters) + deck + " --slides-for 1-3", "names 3 slides for the 4 chapters"},
        {" --chapters " + shellQuote(chapters) + deck + " --slides-for 1,2,9-", "it has slides 1 to 4"},
        {" --chapters " + shellQuote(chapters) + deck + " --slides-for 1,x,3,4", "\"x\" is not a slide number"},
        {" --transitions " + shellQuote(folder.path() / "pages.json"), "has pages 1 to 4; there is no page 9"},
        {" --chapters " + shellQuote(chapters) + " --slides " + shellQuote(folder.path() / "empty"),
         "holds no pictures"},
        {" --chapters " + shellQuote(chapters) + " --slides " + shellQuote(chapters), "cannot be read as a PDF"},
        {" --chapters " + shellQuote(chapters) + " --format .mov", "give --slides"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const auto result = runQuillora("export --recording " + shellQuote(sampleFile("lecture.m4a")) + c.arguments +
                                        " --output " + shellQuote(folder.path() / "refused.mov"));
        EXPECT_EQ(result.status, 2) << result.output;
        EXPECT_NE(result.output.find(c.expected), std::string::npos) << result.output;
        EXPECT_FALSE(std::filesystem::exists(folder.path() / "refused.mov"));
    }
}

}  // namespace
}  // namespace quillora
