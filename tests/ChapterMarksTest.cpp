// Reading a lecturer's chapter marks: each format as a small file (the
// MPEG-4 ones made by ffmpeg from the same metadata file we read ourselves,
// so its reading of the escapes checks ours; our own companion files read
// back), the files we refuse, and the transition records made from the
// marks, exported and read back by ffprobe.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>

#include "PublishTestSupport.h"
#include "TestSupport.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"
#include "publish/ChapterMarks.h"
#include "publish/ChaptersJson.h"
#include "publish/WebVtt.h"

using namespace quillora;
using publish::ChapterMark;
using test::shellQuote;

namespace {

struct ExpectedMark {
    double start;
    std::string title;
    std::optional<std::string> url = {};
    std::optional<std::string> picture = {};  // a file name in the test's folder
};

Bytes bytesOf(std::string_view text)
{
    return Bytes(text.begin(), text.end());
}

std::filesystem::path writeText(const std::filesystem::path& file, std::string_view text)
{
    test::writeFile(file, bytesOf(text));
    return file;
}

// Global keys, a [STREAM] section, escapes, a continued title, two time bases.
constexpr std::string_view kFFmpegMetadata = ";FFMETADATA1\n"
                                             "title=The whole lecture\n"
                                             "artist=Ada\n"
                                             "\n"
                                             "[CHAPTER]\n"
                                             "TIMEBASE=1/44100\n"
                                             "START=0\n"
                                             "END=551250\n"
                                             "title=Welcome\n"
                                             "[CHAPTER]\n"
                                             "TIMEBASE=1/1000\n"
                                             "START=12500\n"
                                             "END=20000\n"
                                             "title=Energy \\= mass \\; \\# \\\\ done\n"
                                             "# a comment\n"
                                             "[STREAM]\n"
                                             "title=not a chapter\n"
                                             "[CHAPTER]\n"
                                             "TIMEBASE=1/1000\n"
                                             "START=20000\n"
                                             "END=30000\n"
                                             "title=First line\\\n"
                                             "second line\n";

const std::vector<ExpectedMark> kFFmpegMetadataMarks{
    {0, "Welcome"}, {12.5, "Energy = mass ; # \\ done"}, {20, "First line\nsecond line"}};

// A 30-second recording with the chapters of kFFmpegMetadata, made by ffmpeg (chapter track and 'chpl').
std::filesystem::path movieWithChapters(const std::filesystem::path& folder)
{
    const auto metadata = writeText(folder / "movie-metadata.txt", kFFmpegMetadata);
    const auto movie = folder / "published.m4a";
    const auto made = test::runCommand(
        "ffmpeg -v error -y -f lavfi -t 30 -i anullsrc=r=22050:cl=mono -i " + shellQuote(metadata.string()) +
        " -map 0 -map_metadata 1 -map_chapters 1 -c:a aac -b:a 32k " + shellQuote(movie.string()));
    if (made.status != 0) throw std::runtime_error("ffmpeg: " + made.output);
    return movie;
}

// Overwrites the first occurrence of from (at or after the atom type `after`) with to, of the same length.
void patch(const std::filesystem::path& file, std::string_view after, std::string_view from, std::string_view to)
{
    Bytes bytes = test::readFile(file);
    const Bytes anchor = bytesOf(after), target = bytesOf(from);
    const auto start = std::search(bytes.begin(), bytes.end(), anchor.begin(), anchor.end());
    const auto found = std::search(start, bytes.end(), target.begin(), target.end());
    if (start == bytes.end() || found == bytes.end()) throw std::runtime_error(std::string(from) + " not found");
    std::copy(to.begin(), to.end(), found);
    test::writeFile(file, bytes);
}

std::string describe(const std::vector<ChapterMark>& marks)
{
    std::ostringstream out;
    for (const auto& mark : marks) {
        out << mark.start << " [" << mark.title << "] " << mark.url.value_or("-") << " "
            << (mark.picture ? mark.picture->string() : "-") << "\n";
    }
    return out.str();
}

}  // namespace

TEST(ChapterMarks, ReadsEachFormatFromItsContent)
{
    struct Case {
        std::string name;
        // Writes the file into the folder and returns it; the extensions are misleading on purpose.
        std::function<std::filesystem::path(const std::filesystem::path&)> make;
        std::vector<ExpectedMark> marks;
        std::string logged = {};
    };
    const auto text = [](std::string name, std::string content) {
        return [name, content](const std::filesystem::path& folder) { return writeText(folder / name, content); };
    };
    const std::vector<Case> cases{
        {"audio editor labels, CR LF, a spectral line, out of order",
         text("labels.vtt", "62.250000\t62.250000\tSecond\r\n"
                            "0.000000\t5.500000\tOpening \xC3\xA9tude\r\n"
                            "\\\t100.000000\t2000.000000\r\n"
                            "\r\n"
                            "3723.500000\t3723.500000\t\r\n"),
         {{0, "Opening \xC3\xA9tude"}, {62.25, "Second"}, {3723.5, ""}}},
        {"timestamp list with a byte-order mark, brackets and dashes",
         text("chapters.json", "\xEF\xBB\xBF[00:00] Welcome\n"
                               "\n"
                               "5:20 - Part one\n"
                               "00:05:20.500 \xE2\x80\x93 Part one, again\n"
                               "1:02:03 Q&A - questions\n"
                               "  10:00.25   \n"
                               "12:00 -1 is odd\n"),
         {{0, "Welcome"},
          {320, "Part one"},
          {320.5, "Part one, again"},
          {600.25, ""},
          {720, "-1 is odd"},
          {3723, "Q&A - questions"}}},
        {"WebVTT with a header, a note, identifiers, settings and markup",
         text("chapters.txt", "WEBVTT - lecture chapters\n"
                              "Kind: chapters\n"
                              "\n"
                              "NOTE made by hand\n"
                              "00:00:01.000 --> 00:00:02.000\n"
                              "\n"
                              "intro\n"
                              "00:00.000 --> 05:20.500 align:start\n"
                              "Welcome &amp; <b>overview</b>\n"
                              "of the course\n"
                              "\n"
                              "01:02:03.250 --> 01:10:00.000\n"
                              "Questions\n"),
         {{0, "Welcome & overview of the course"}, {3723.25, "Questions"}}},
        {"Podcasting 2.0 JSON with links, a local and a web picture, a hidden chapter",
         text("chapters.txt", R"({"version": "1.2.0", "chapters": [
               {"startTime": 0, "title": "Intro", "img": "slides/one.png"},
               {"startTime": 75.5, "title": "Hidden", "toc": false, "url": "https://example.org/a"},
               {"startTime": 30, "img": "https://example.org/two.png", "url": ""}]})"),
         {{0, "Intro", {}, "slides/one.png"}, {30, ""}, {75.5, "Hidden", "https://example.org/a"}},
         "https://example.org/two.png"},
        {"our own WebVTT companion",
         [](const std::filesystem::path& folder) {
             publish::writeWebVtt(test::sampleLecture(), folder / "talk.chapters.vtt");
             return folder / "talk.chapters.vtt";
         },
         {{0, "Welcome & <overview>"}, {3.5, "Fourier s\xC3\xA9ries \"done\""}, {7.25, "Questions"}}},
        {"our own JSON companion, its pictures in a folder whose name is escaped",
         [](const std::filesystem::path& folder) {
             publish::writeChaptersJson(test::sampleLecture(), folder / "talk.chapters.json", folder / "the slides");
             return folder / "talk.chapters.json";
         },
         {{0, "Welcome & <overview>", "https://example.org/course?week=3&part=1", "the slides/01.jpg"},
          {3.5, "Fourier s\xC3\xA9ries \"done\"", {}, "the slides/02.png"},
          {7.25, "Questions"}}},
        {"FFmpeg metadata", text("chapters.m4a", std::string(kFFmpegMetadata)), kFFmpegMetadataMarks},
        {"MPEG-4 by ffmpeg: the chapter track wins over a chapter list that differs",
         [](const std::filesystem::path& folder) {
             const auto movie = movieWithChapters(folder);
             patch(movie, "chpl", "Welcome", "Wrong!!");
             return movie;
         },
         kFFmpegMetadataMarks},
        {"MPEG-4 by ffmpeg: the chapter list when no track is named as chapters",
         [](const std::filesystem::path& folder) {
             const auto movie = movieWithChapters(folder);
             patch(movie, "tref", "chap", "xxxx");
             return movie;
         },
         kFFmpegMetadataMarks},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::TemporaryFolder folder;
        const auto file = c.make(folder.path());
        CapturedLog captured;
        std::vector<ChapterMark> marks;
        ASSERT_NO_THROW(marks = publish::readChapterMarks(file));
        ASSERT_EQ(marks.size(), c.marks.size()) << describe(marks);
        for (std::size_t i = 0; i < marks.size(); ++i) {
            EXPECT_NEAR(marks[i].start, c.marks[i].start, 0.001) << i;
            EXPECT_EQ(marks[i].title, c.marks[i].title) << i;
            EXPECT_EQ(marks[i].url, c.marks[i].url) << i;
            const auto picture = c.marks[i].picture;
            EXPECT_EQ(marks[i].picture, picture ? std::optional(folder.path() / *picture) : std::nullopt) << i;
        }
        EXPECT_TRUE(c.logged.empty() || captured.contains(c.logged)) << c.logged;
    }
}

TEST(ChapterMarks, RefusesFilesItCannotReadSayingWhereAndWhat)
{
    struct Case {
        std::string content;
        std::vector<std::string> said;  // each part of the message
    };
    const std::vector<Case> cases{
        {"00:00 Welcome\n5:20 Part one\n\n5:2 Part two\n", {"line 4", "expected a time such as 05:20"}},
        {"[00:00] Welcome\n[05:20 Part one\n", {"line 2", "']'"}},
        {"00:00 Welcome\n05:20:75 Part one\n", {"line 2", "expected a time"}},
        {"00:00 Welcome\n00:00:04444444444444444444 Long\n", {"line 2", "expected a time"}},
        {"00:00 Welcome\n05:20-Part one\n", {"line 2", "a blank between the time and the title"}},
        {"00:00 Welcome\n05:20 Part one\n1:00:00 Part two\n05:20.000 Again\n", {"line 2 and line 4", "own"}},
        {"0.0\t0.0\tOne\n1,5\t1,5\tTwo\n", {"line 2", "in seconds", "tabs"}},
        {"0.0\t0.0\tOne\n9.0\t8.0\tTwo\n", {"line 2", "end time"}},
        {"3.0\t3.0\tOne\n-1.5\t-1.5\tBefore\n", {"line 2", "before the recording"}},
        {"WEBVTT\n\n00:00.000 --> 00:10.000\nOne\n\nsecond\n00:10.000 -> 00:20.000\nTwo\n", {"line 7", "cue timing"}},
        {"WEBVTT\n\n00:00.000 --> 00:10.000\nOne\n\n00:1.000 --> 00:20.000\nTwo\n", {"line 6", "cue timing"}},
        {"{\"chapters\": [\n  {\"startTime\": 0},\n  {\"startTime\": 5,}\n]}\n", {"line 3", "JSON"}},
        {R"({"chapters": [{"startTime": 0}, {"startTime": "5:20"}]})", {"chapter 2", "\"startTime\""}},
        {R"({"chapters": [{"startTime": 0, "title": 7}]})", {"chapter 1", "\"title\" as text"}},
        {R"({"version": "1.2.0", "toc": []})", {"\"chapters\" array"}},
        {R"({"chapters": [{"startTime": 1e999}]})", {"JSON", "1e999"}},
        {";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1:1000\nSTART=0\n", {"line 3", "TIMEBASE="}},
        {";FFMETADATA1\n[CHAPTER]\nSTART=0\ntitle=One\n[CHAPTER]\nEND=5\n", {"line 5", "START="}},
        {";FFMETADATA1\n[CHAPTER]\nSTART=zero\n", {"line 3", "START="}},
        {";FFMETADATA1\n[CHAPTER]\nSTART=0\njust words\n", {"line 4", "key=value"}},
        {"00:00 Welcome\n05:20 Caf\xE9\n", {"line 2", "UTF-8"}},
        {"Chapters of the lecture\n00:00 Welcome\n", {"is not a chapter file this program reads", "WebVTT"}},
        {"", {"is not a chapter file this program reads"}},
    };
    test::TemporaryFolder folder;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content);
        const auto file = writeText(folder.path() / "chapters.txt", c.content);
        try {
            publish::readChapterMarks(file);
            ADD_FAILURE() << "read";
        } catch (const publish::ChapterMarksError& refusal) {
            const std::string message = refusal.what();
            EXPECT_TRUE(message.starts_with(file.string())) << message;
            for (const auto& part : c.said) EXPECT_NE(message.find(part), std::string::npos) << message;
        }
    }
    // Files of other kinds: a picture, a recording without chapters, nothing at all.
    for (const auto& [file, said] : std::vector<std::pair<std::filesystem::path, std::string>>{
             {test::fixture("slide.png"), "is not a chapter file"},
             {test::fixture("recording-moov-first.m4a"), "without chapters"},
             {folder.path() / "missing.txt", "does not exist"}}) {
        try {
            publish::readChapterMarks(file);
            ADD_FAILURE() << file << " read";
        } catch (const publish::ChapterMarksError& refusal) {
            EXPECT_NE(std::string(refusal.what()).find(said), std::string::npos) << refusal.what();
        }
    }
}

TEST(ChapterMarks, BecomeTransitionsTheExportPublishes)
{
    const auto records = publish::transitionsFromChapterMarks(
        {{0, "Intro", {}, {}}, {320.5, "Part", "https://example.org", {}}, {1.0009, "", {}, "/a.png"}});
    ASSERT_EQ(records.asArray()->size(), 3u);
    const auto& part = (*records.asArray())[1];
    EXPECT_EQ(part.integerForKey("timeValue"), 192300);
    EXPECT_EQ((*records.asArray())[2].integerForKey("timeValue"), 601);
    EXPECT_EQ(part.get("linkURL")->stringForKey("url"), "https://example.org");
    EXPECT_EQ(part.get("linkURL")->stringForKey("title"), "Part");
    EXPECT_EQ((*records.asArray())[0].get("linkURL"), nullptr);

    // Chapters with pictures, through the export, as ffprobe lists them.
    test::TemporaryFolder folder;
    test::copyFixture("slide.png", folder);
    const auto chapters = writeText(folder.path() / "chapters.json", R"({"chapters": [
        {"startTime": 1.5, "title": "Second", "img": "slide.png", "url": "https://example.org/2"},
        {"startTime": 0, "title": "First", "img": "slide.png"}]})");
    const auto transitions = folder.path() / "transitions.json";
    writeText(transitions, jsonFromValue(publish::transitionsFromChapterMarks(publish::readChapterMarks(chapters))));
    const auto output = folder.path() / "out.m4b";
    const auto exported = test::runQuillora(
        "export --recording " + shellQuote(test::fixture("recording-moov-first.m4a").string()) + " --transitions " +
        shellQuote(transitions.string()) + " --scratch " + shellQuote((folder.path() / "scratch").string()) +
        " --output " + shellQuote(output.string()));
    ASSERT_EQ(exported.status, 0) << exported.output;
    const auto probed = test::runCommand("ffprobe -v error -show_entries chapter=start_time:chapter_tags=title -of "
                                         "csv=p=0 " +
                                         shellQuote(output.string()));
    EXPECT_EQ(probed.output, "0.000000,First\n1.500000,Second\n");
}
