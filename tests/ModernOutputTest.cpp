// `quillora export --modern`: the plug-in's result repaired for listeners,
// checked with readers we did not write (mutagen, ffprobe, ffmpeg); and
// without it, the file left as the plug-in wrote it and its limits named.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "TestSupport.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"

namespace quillora {
namespace {

using test::runCommand;
using test::runQuillora;
using test::shellQuote;
using test::writeText;

// Five minutes of recording; slides of 120, 130 and 50 s, the first two with
// links, and a screen shot 22.3 s in. Tags beyond ASCII.
struct LongLecture {
    test::TemporaryFolder folder;
    std::filesystem::path recording = folder.path() / "lecture.m4a";
    std::vector<std::int64_t> slideTimes = {0, 13390, 72000, 150000};  // the screen shot merged in
    std::vector<std::string> titles = {"Лінзи", "Ray tracing simulation", "Mirrors", "Questions"};

    LongLecture()
    {
        const auto made = runCommand("ffmpeg -nostdin -y -v error -f lavfi -i sine=f=440:d=300:sample_rate=8000 -ac 1 "
                                     "-c:a aac -b:a 16k -movie_timescale 600 " +
                                     shellQuote(recording));
        if (made.status != 0) throw std::runtime_error(made.output);
        for (const char* picture : {"slide.png", "slide.jpg", "slide.gif", "slide.tif"})
            test::copyFixture(picture, folder);
        writeText(folder.path() / "transitions.json", R"([
  {"timeValue": 0, "slideTitle": "Лінзи", "imagePath": "slide.png",
   "linkURL": {"title": "Notes", "url": "https://example.org/lenses"}},
  {"timeValue": 72000, "slideTitle": "Mirrors", "imagePath": "slide.jpg",
   "linkURL": {"title": "Reading", "url": "https://example.org/mirrors"}},
  {"timeValue": 150000, "slideTitle": "Questions", "imagePath": "slide.gif"}])");
        writeText(folder.path() / "screenshots.json", R"([{"timeValue": 13390, "slideTitle": "Ray tracing simulation",
            "imagePath": "slide.tif", "application": "screenshot"}])");
        writeText(folder.path() / "tags.json", R"({"title": "Оптика", "author": "Université de Montréal",
            "university": "Université de Montréal", "copyright": "2026 Physics"})");
    }

    // Colours as the user gives them: #RRGGBBAA.
    std::string arguments(const std::filesystem::path& output, const std::string& options = "",
                          bool modernPreference = false) const
    {
        const auto defaults = folder.path() / (modernPreference ? "modern.json" : "defaults.json");
        writeText(defaults, std::string(R"({"supportForURL": true, "textTrackFontFace": "Helvetica",
            "textTrackFontSize": 14, "textTrackFontColor": "#FFCC00FF", "textTrackBackgroundColor": "#00000080")") +
                                (modernPreference ? R"(, "modernOutput": true})" : "}"));
        const auto in = [&](const char* name) { return shellQuote(folder.path() / name); };
        return "export " + options + " --recording " + shellQuote(recording) + " --transitions " +
               in("transitions.json") + " --screenshots " + in("screenshots.json") + " --tags " + in("tags.json") +
               " --defaults " + shellQuote(defaults) + " --output " + shellQuote(output);
    }
};

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) result.push_back(line);
    }
    return result;
}

std::string probe(const std::filesystem::path& file, const std::string& what)
{
    return runCommand("ffprobe -v error " + what + " -of csv=p=0 " + shellQuote(file)).output;
}

std::vector<double> linkPacketTimes(const std::filesystem::path& file)
{
    std::vector<double> times;
    for (const auto& line : lines(probe(file, "-select_streams s -show_entries packet=pts_time"))) {
        times.push_back(std::stod(line));
    }
    return times;
}

std::vector<double> slideSeconds(const LongLecture& lecture)
{
    std::vector<double> seconds;
    for (auto time : lecture.slideTimes) seconds.push_back(static_cast<double>(time) / 600);
    return seconds;
}

void expectNear(const std::vector<double>& actual, const std::vector<double>& expected, const char* what)
{
    ASSERT_EQ(actual.size(), expected.size()) << what;
    for (std::size_t i = 0; i < actual.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 0.002) << what << " " << i;
}

nlohmann::json readWithMutagen(const std::filesystem::path& file)
{
    const auto result = runCommand("/usr/bin/python3 -c " + shellQuote(R"(
import json, sys, mutagen.mp4
f = mutagen.mp4.MP4(sys.argv[1])
tags = {k: f.tags[k][0] for k in ('©nam', '©ART', 'tvnn', '©cpy') if f.tags and k in f.tags}
chapters = [[c.start, c.title] for c in f.chapters] if f.chapters else []
print(json.dumps({'tags': tags, 'chapters': chapters, 'timescale': f.chapters._timescale if f.chapters else 0}))
)") + " " + shellQuote(file));
    EXPECT_EQ(result.status, 0) << result.output;
    return nlohmann::json::parse(result.output);
}

// ASS colours, as ffmpeg turns a timed-text style into a subtitle style:
// &H, then transparency (255 - alpha), blue, green, red.
std::string assColor(std::uint32_t rgba)
{
    const std::uint32_t alpha = 255 - (rgba & 0xFF);
    return fmt::format("&H{:x}",
                       (alpha << 24) | ((rgba >> 8 & 0xFF) << 16) | ((rgba >> 16 & 0xFF) << 8) | (rgba >> 24));
}

std::time_t parseCreationTime(const std::string& text)
{
    std::tm parts{};
    std::istringstream in(text);
    in >> std::get_time(&parts, "%Y-%m-%dT%H:%M:%S");
    return in.fail() ? 0 : timegm(&parts);
}

// Big-endian numbers of an atom's payload, found with the bounds-checked
// tree reader: the track header of a given track, its media header, its
// first sample description.
struct TrackBytes {
    Bytes tkhd, mdhd, sampleDescription;
};
TrackBytes trackBytes(const std::filesystem::path& file, std::uint32_t trackID)
{
    const Bytes bytes = test::readFile(file);
    const auto tree = toolbox::readAtomTree(file);
    const auto payload = [&](const toolbox::AtomNode& node) {
        return Bytes(bytes.begin() + node.offset + 8, bytes.begin() + node.offset + node.size);
    };
    for (const auto& trak : tree.childrenOf(*tree.find({atom::moov}))) {
        const auto tkhd = tree.childOfType(trak, atom::tkhd);
        if (trak.type != atom::trak || !tkhd || readU32BE(payload(*tkhd).data() + 12) != trackID) continue;
        const auto mdia = *tree.childOfType(trak, atom::mdia);
        const auto stbl = *tree.childOfType(*tree.childOfType(mdia, atom::minf), atom::stbl);
        const Bytes stsd = payload(*tree.childOfType(stbl, atom::stsd));
        return {payload(*tkhd), payload(*tree.childOfType(mdia, atom::mdhd)), Bytes(stsd.begin() + 8, stsd.end())};
    }
    return {};
}

TEST(ModernOutput, RepairsWhatListenersPlayersRead)
{
    LongLecture lecture;
    const auto output = lecture.folder.path() / "modern.m4b";
    const auto before = std::time(nullptr);
    const auto result = runQuillora(lecture.arguments(output, "--modern"));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(result.output.find("--modern"), std::string::npos) << "no limits are named: " << result.output;
    EXPECT_EQ(test::ffmpegDecodeErrors(output), "");

    // Tags whole; the chapter list holds every slide and the screen shot.
    // mutagen 1.46 divides the list's 100-ns units by the time scale over 1000.
    const auto read = readWithMutagen(output);
    EXPECT_EQ(read["tags"]["©nam"], "Оптика");
    EXPECT_EQ(read["tags"]["©ART"], "Université de Montréal");
    EXPECT_EQ(read["tags"]["tvnn"], "Université de Montréal");
    EXPECT_EQ(read["tags"]["©cpy"], "2026 Physics");
    std::vector<double> listStarts;
    std::vector<std::string> listTitles;
    for (const auto& chapter : read["chapters"]) {
        listStarts.push_back(chapter[0].get<double>() * read["timescale"].get<double>() / 1000);
        listTitles.push_back(chapter[1]);
    }
    expectNear(listStarts, slideSeconds(lecture), "chapter list");
    EXPECT_EQ(listTitles, lecture.titles);

    // Link samples at the slides' times, the chapters and pictures with the screen shot.
    expectNear(linkPacketTimes(output), slideSeconds(lecture), "link packets");
    EXPECT_EQ(lines(probe(output, "-show_entries chapter_tags=title")), lecture.titles);
    std::vector<double> chapterStarts;
    for (const auto& line : lines(probe(output, "-show_entries chapter=start_time")))
        chapterStarts.push_back(std::stod(line));
    expectNear(chapterStarts, slideSeconds(lecture), "chapters");
    EXPECT_NE(probe(output, "-select_streams v -show_entries packet=pts_time").find("22.316667"), std::string::npos);

    // The colours as given, as ffmpeg styles the link text.
    const auto ass = runCommand("ffmpeg -nostdin -v error -i " + shellQuote(output) + " -map 0:s -c:s ass -f ass -");
    EXPECT_NE(ass.output.find("Style: Default,Helvetica,14," + assColor(0xFFCC00FF) + "," + assColor(0xFFCC00FF) + "," +
                              assColor(0x00000080)),
              std::string::npos)
        << ass.output;

    // Honest headers: dated now, the picture track at its pictures' size,
    // the next track ID past the last, text media durations big-endian.
    const auto after = std::time(nullptr);
    const auto dates = lines(probe(output, "-show_entries format_tags=creation_time:stream_tags=creation_time"));
    ASSERT_EQ(dates.size(), 4u) << "the movie and the three new tracks";
    for (const auto& date : dates) {
        EXPECT_GE(parseCreationTime(date), before - 1) << date;
        EXPECT_LE(parseCreationTime(date), after + 1) << date;
    }
    const auto pictureSize = lines(probe(output, "-select_streams v -show_entries stream=width,height"));
    const TrackBytes pictures = trackBytes(output, 3);
    ASSERT_EQ(pictures.tkhd.size(), 84u);
    EXPECT_EQ(fmt::format("{},{}", readU32BE(&pictures.tkhd[76]) >> 16, readU32BE(&pictures.tkhd[80]) >> 16),
              pictureSize.at(0));
    const auto tree = toolbox::readAtomTree(output);
    const Bytes bytes = test::readFile(output);
    EXPECT_EQ(readU32BE(&bytes[tree.find({atom::moov, atom::mvhd})->offset + 104]), 5u);
    for (std::uint32_t text : {2u, 4u}) EXPECT_EQ(readU32BE(&trackBytes(output, text).mdhd[16]), 300u * 600);
    // The link text box covers its 300 x 300 track.
    const Bytes description = trackBytes(output, 4).sampleDescription;
    ASSERT_GE(description.size(), 34u);
    EXPECT_EQ(std::vector<std::uint8_t>(description.begin() + 26, description.begin() + 34),
              (std::vector<std::uint8_t>{0, 0, 0, 0, 1, 44, 1, 44}));

    // A movie: the screen shot is a chapter there too, and the movie is dated now.
    const auto movie = lecture.folder.path() / "modern.mov";
    ASSERT_EQ(runQuillora(lecture.arguments(movie, "--modern")).status, 0);
    EXPECT_EQ(lines(probe(movie, "-show_entries chapter_tags=title")), lecture.titles);
    EXPECT_GE(parseCreationTime(probe(movie, "-show_entries format_tags=creation_time")), before - 1);
}

TEST(ModernOutput, WithoutItTheFileIsThePluginsAndItsLimitsAreNamed)
{
    LongLecture lecture;
    const auto output = lecture.folder.path() / "plain.m4b";
    const auto result = runQuillora(lecture.arguments(output));
    ASSERT_EQ(result.status, 0) << result.output;
    std::vector<std::string> notes;
    for (const auto& line : lines(result.output)) {
        if (line.find("--modern") != std::string::npos) notes.push_back(line);
    }
    ASSERT_EQ(notes.size(), 3u) << result.output;
    EXPECT_NE(notes[0].find("\"title\", \"author\", \"university\""), std::string::npos) << notes[0];
    EXPECT_NE(notes[1].find("\"Лінзи\", \"Mirrors\""), std::string::npos) << notes[1];
    EXPECT_NE(notes[2].find("\"Ray tracing simulation\""), std::string::npos) << notes[2];

    // As the plug-in wrote it: the 16-bit link times, the tags cut short (or
    // dropped by mutagen), no chapter list (the preference is off).
    const auto links = linkPacketTimes(output);
    ASSERT_EQ(links.size(), 3u);
    EXPECT_GT(std::abs(links[1] - 120), 1);
    const auto read = readWithMutagen(output);
    EXPECT_NE(read["tags"].value("©nam", ""), "Оптика");
    EXPECT_NE(read["tags"].value("©ART", ""), "Université de Montréal");
    EXPECT_EQ(read["tags"]["©cpy"], "2026 Physics");
    EXPECT_TRUE(read["chapters"].empty());

    // The preference asks for the same as the option.
    const auto preferred = lecture.folder.path() / "preferred.m4b";
    const auto withPreference = runQuillora(lecture.arguments(preferred, "", true));
    ASSERT_EQ(withPreference.status, 0) << withPreference.output;
    EXPECT_EQ(withPreference.output.find("--modern"), std::string::npos);
    expectNear(linkPacketTimes(preferred), slideSeconds(lecture), "link packets");
}

}  // namespace
}  // namespace quillora
