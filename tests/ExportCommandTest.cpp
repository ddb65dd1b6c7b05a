// The quillora host program exporting through the plug-in module: real files
// checked with readers we did not write, and bad input refused before any
// work starts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "TestSupport.h"

namespace quillora {
namespace {

using test::runCommand;
using test::runQuillora;
using test::shellQuote;
using test::TemporaryFolder;
using test::writeText;

// A recording beside its pictures and transitions, as a host leaves them.
struct LectureFolder {
    TemporaryFolder folder;
    std::filesystem::path recording;
    std::filesystem::path transitions;
    std::filesystem::path tags;
    std::filesystem::path defaults;

    explicit LectureFolder(const std::string& recordingFixture)
    {
        recording = test::copyFixture(recordingFixture, folder);
        std::filesystem::create_directories(folder.path() / "slides");
        std::filesystem::copy_file(test::fixture("slide.png"), folder.path() / "slides" / "one.png");
        std::filesystem::copy_file(test::fixture("slide.jpg"), folder.path() / "slides" / "two.jpg");
        std::filesystem::copy_file(test::fixture("slide.gif"), folder.path() / "slides" / "three.gif");
        transitions = folder.path() / "transitions.json";
        writeText(transitions, R"([
  {"timeValue": 0, "slideTitle": "Welcome", "imagePath": "slides/one.png"},
  {"timeValue": 600, "slideTitle": "Waves", "imagePath": "slides/two.jpg",
   "linkURL": {"title": "Reading", "url": "https://example.org/waves"}},
  {"timeValue": 1200, "slideTitle": "Questions", "imagePath": "slides/three.gif"}
])");
        tags = folder.path() / "tags.json";
        writeText(tags, R"({"title": "Waves and tides", "author": "Ada Lovelace", "copyright": "2026 Ada",
                            "university": "Quillora College"})");
        defaults = folder.path() / "defaults.json";
        writeText(defaults, R"({"supportForURL": true, "textTrackFontFace": "Helvetica", "textTrackFontSize": 14,
                                "textTrackFontColor": "#FFFFFFFF", "videoImageQuality": 512})");
    }

    std::string arguments(const std::filesystem::path& output) const
    {
        return "export --recording " + shellQuote(recording) + " --transitions " + shellQuote(transitions) +
               " --tags " + shellQuote(tags) + " --defaults " + shellQuote(defaults) + " --scratch " +
               shellQuote(folder.path() / "scratch") + " --output " + shellQuote(output);
    }
};

std::string probe(const std::filesystem::path& file, const std::string& what)
{
    return runCommand("ffprobe -v error " + what + " -of csv=p=0 " + shellQuote(file)).output;
}

class ExportThroughTheHost : public ::testing::TestWithParam<std::tuple<std::string, std::string>> {};

TEST_P(ExportThroughTheHost, WritesAPodcastThatOtherReadersPlayWithChaptersPicturesAndTags)
{
    const auto& [recordingFixture, extension] = GetParam();
    LectureFolder lecture(recordingFixture);
    const Bytes original = test::readFile(lecture.recording);
    const Bytes originalSlide = test::readFile(lecture.folder.path() / "slides" / "one.png");
    const auto output = lecture.folder.path() / ("lecture" + extension);

    auto result = runQuillora(lecture.arguments(output));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("Exported " + output.string()), std::string::npos) << result.output;

    EXPECT_EQ(test::ffmpegDecodeErrors(output), "");
    EXPECT_EQ(probe(output, "-show_entries chapter=start_time:chapter_tags=title"),
              "0.000000,Welcome\n1.000000,Waves\n2.000000,Questions\n");
    EXPECT_EQ(probe(output, "-select_streams v -show_entries stream=codec_name,nb_frames"), "mjpeg,3\n");
    EXPECT_EQ(probe(output, "-show_entries format_tags=title,artist,copyright"),
              "Waves and tides,Ada Lovelace,2026 Ada\n");
    // Nothing of the user's is rewritten; the working copy stays in the scratch folder.
    EXPECT_EQ(test::readFile(lecture.recording), original);
    EXPECT_EQ(test::readFile(lecture.folder.path() / "slides" / "one.png"), originalSlide);
    EXPECT_FALSE(std::filesystem::exists(lecture.folder.path() / "slides" / "one.jpg"));
    bool workingCopy = false;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(lecture.folder.path() / "scratch")) {
        workingCopy = workingCopy || entry.path().filename().string().ends_with("source.m4a");
    }
    EXPECT_TRUE(workingCopy);
}

INSTANTIATE_TEST_SUITE_P(FormatsAndLayouts, ExportThroughTheHost,
                         // A lecture recording has one sound track: the chapter track's fixed ID 2
                         // would clash with a second one.
                         ::testing::Values(std::make_tuple("recording-moov-first.m4a", ".m4a"),
                                           std::make_tuple("recording-moov-last.m4a", ".m4b"),
                                           std::make_tuple("recording-moov-first.m4a", ".m4v")),
                         [](const auto& parameters) {
                             std::string name = std::get<0>(parameters.param) + std::get<1>(parameters.param);
                             for (char& c : name) {
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             }
                             return name;
                         });

std::string transitionsWith(const std::string& secondTime, const std::string& secondTitle = "Waves",
                            const std::string& secondPicture = "slides/two.jpg",
                            const std::string& url = "https://x.org")
{
    return R"([{"timeValue": 0, "slideTitle": "Welcome", "imagePath": "slides/one.png"},
               {"timeValue": )" +
           secondTime + R"(, "slideTitle": ")" + secondTitle + R"(", "imagePath": ")" + secondPicture +
           R"(", "linkURL": {"title": "Reading", "url": ")" + url + R"("}}])";
}

// A folder nobody can make files in: without write permission, and for root
// (who ignores permissions) immutable as well.
void setLocked(const std::filesystem::path& folder, bool locked)
{
    if (locked)
        std::filesystem::permissions(folder, std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::remove);
    if (geteuid() == 0) runCommand(std::string("chattr ") + (locked ? "+i " : "-i ") + shellQuote(folder));
    if (!locked)
        std::filesystem::permissions(folder, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
}

// Every refusal and every failure: the message says what is wrong, and
// nothing of the user's is lost: not the file already at the destination,
// not the recording, not the pictures.
TEST(ExportCommand, RefusesOrFailsWithAClearMessageAndLosesNothing)
{
    struct Case {
        std::string name;
        std::function<void(LectureFolder&, std::filesystem::path& output)> spoil;
        int status;
        std::string expected;
        std::string moreArguments = "";
        std::string shellPrefix = "";
    };
    auto transitions = [](std::string text) {
        return [text](LectureFolder& l, std::filesystem::path&) { writeText(l.transitions, text); };
    };
    const std::string deep = std::string(50000, '[') + std::string(50000, ']');
    const std::vector<Case> cases = {
        {"missing recording", [](LectureFolder& l, auto&) { std::filesystem::remove(l.recording); }, 2,
         "does not exist"},
        {"output is the recording", [](LectureFolder& l, auto& output) { output = l.recording; }, 2, "inputs"},
        {"output is a picture (another spelling)",
         [](LectureFolder& l, auto& output) { output = l.folder.path() / "slides" / ".." / "slides" / "one.png"; }, 2,
         "inputs"},
        {"output is the transitions file", [](LectureFolder& l, auto& output) { output = l.transitions; }, 2, "inputs"},
        {"output named .mp3", [](LectureFolder& l, auto& output) { output = l.folder.path() / "talk.mp3"; }, 2,
         "extension"},
        {"output without extension", [](LectureFolder& l, auto& output) { output = l.folder.path() / "talk"; }, 2,
         "extension"},
        {"transitions not JSON", transitions("[{\"timeValue\": 0,"), 2, "transitions.json"},
        {"transitions nested 50,000 deep", transitions(deep), 2, "nested too deeply"},
        {"no timeValue", transitions(R"([{"slideTitle": "A", "imagePath": "slides/one.png"}])"), 2,
         "has no \"timeValue\""},
        {"out of order", transitions(transitionsWith("0")), 2, "transition 2 (\"Waves\")"},
        {"negative time", transitions(R"([{"timeValue": -5, "imagePath": "slides/one.png"}])"), 2, "negative"},
        {"time beyond 2^31", transitions(transitionsWith("4294967296")), 2, "32-bit"},
        {"time past the end", transitions(transitionsWith("1800")), 2, "end of the recording"},
        {"missing picture", transitions(transitionsWith("600", "B", "slides/gone.png")), 2, "gone.png does not exist"},
        {"text file named .png",
         [](LectureFolder& l, auto&) { writeText(l.folder.path() / "slides" / "two.jpg", "not a picture\n"); }, 2,
         "cannot be read"},
        {"empty picture", [](LectureFolder& l, auto&) { writeText(l.folder.path() / "slides" / "two.jpg", ""); }, 2,
         "cannot be read"},
        {"title of 70,000 characters", transitions(transitionsWith("600", std::string(70000, 'x'))), 2, "text sample"},
        {"output folder locked",
         [](LectureFolder& l, auto& output) {
             output = l.folder.path() / "locked" / "out.m4b";
             std::filesystem::create_directories(output.parent_path());
             writeText(output, "the lecture published last week");
             setLocked(output.parent_path(), true);
         },
         2, "locked cannot be written to"},
        {"unknown format", [](LectureFolder&, auto&) {}, 2, "format \".avi\"", " --format .avi"},
        // Writes past 16 KiB fail as they would on a full disk.
        {"disk full while editing", [](LectureFolder&, auto&) {}, 1, "was left as it was", "",
         "trap '' XFSZ; ulimit -f 16; "},
    };
    for (const auto& c : cases) {
        LectureFolder lecture("recording-moov-first.m4a");
        std::filesystem::path output = lecture.folder.path() / "out.m4b";
        writeText(output, "the lecture published last week");
        c.spoil(lecture, output);
        const Bytes before = std::filesystem::exists(output) ? test::readFile(output) : Bytes();
        const bool smallRecording =
            std::filesystem::exists(lecture.recording) && std::filesystem::file_size(lecture.recording) < (1 << 20);
        const Bytes recording = smallRecording ? test::readFile(lecture.recording) : Bytes();
        const Bytes picture = test::readFile(lecture.folder.path() / "slides" / "one.png");

        const std::string command = c.shellPrefix + shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora") + " " +
                                    lecture.arguments(output) + c.moreArguments;
        const auto result = runCommand("bash -c " + shellQuote(command));
        EXPECT_EQ(result.status, c.status) << c.name << ": " << result.output;
        EXPECT_NE(result.output.find(c.expected), std::string::npos) << c.name << ": " << result.output;
        if (!before.empty()) {
            EXPECT_EQ(test::readFile(output), before) << c.name;
        }
        if (!recording.empty()) {
            EXPECT_EQ(test::readFile(lecture.recording), recording) << c.name;
        }
        EXPECT_EQ(test::readFile(lecture.folder.path() / "slides" / "one.png"), picture) << c.name;
        if (output.parent_path().filename() == "locked") setLocked(output.parent_path(), false);
    }
}

// What the tracks hold decides, not what merely looks odd: a podcast's long
// URL is written whole (its one length byte wrapping), a movie's samples
// hold long link titles and URLs, a time with a fraction is read as a whole
// number, and a screen shot's time never goes into a track.
TEST(ExportCommand, AcceptsWhatTheTracksHoldAndWarnsWhereTheyDifferFromTheInput)
{
    const std::string url = "https://example.org/" + std::string(280, 'u');  // 300 bytes
    const auto slides = [](const std::string& secondTime, const std::string& linkTitle, const std::string& address) {
        return R"([{"timeValue": 0, "slideTitle": "Welcome", "imagePath": "slides/one.png"},
                   {"timeValue": )" +
               secondTime + R"(, "slideTitle": "Waves", "imagePath": "slides/two.jpg",
                    "linkURL": {"title": ")" +
               linkTitle + R"(", "url": ")" + address + R"("}}])";
    };
    struct Case {
        std::string name;
        std::string extension;
        std::string transitions;
        std::string screenshots;  // none when empty
        std::string warning;      // none at all when empty
        std::function<void(const std::filesystem::path&)> check;
    };
    const std::vector<Case> cases = {
        {"podcast URL of 300 bytes", ".m4b", slides("600", "Reading", url), "",
         "transition 2 (\"Waves\"): the link's URL is 300 bytes long, more than the 255 a podcast's link holds; "
         "players will open only its first 44 bytes, \"" +
             url.substr(0, 44) + "\"",
         [&](const std::filesystem::path& output) {
             // Byte for byte as designed: the length byte reads 300 modulo 256, the URL follows whole.
             const Bytes file = test::readFile(output);
             const std::string expected = std::string(1, static_cast<char>(44)) + url + std::string(1, '\0');
             EXPECT_NE(std::search(file.begin(), file.end(), expected.begin(), expected.end()), file.end());
         }},
        {"movie with a long link title and URL", ".mov", slides("600", std::string(70000, 't'), url), "", "",
         [&](const std::filesystem::path& output) {
             const auto inspected = runQuillora("inspect " + shellQuote(output)).output;
             EXPECT_NE(inspected.find("  ->  " + url + "\n"), std::string::npos) << inspected.substr(0, 2000);
         }},
        {"time with a fraction", ".m4b", slides("600.7", "Reading", "https://x.org"), "",
         "transition 2 (\"Waves\"): \"timeValue\" 600.7 is not a whole number; the slide starts at 600",
         [](const std::filesystem::path& output) {
             EXPECT_EQ(probe(output, "-show_entries chapter=start_time"), "0.000000\n1.000000\n");
         }},
        {"screen shots at any time", ".m4b", slides("600", "Reading", "https://x.org"),
         R"([{"timeValue": 900.5, "imagePath": "slides/three.gif", "application": "screenshot"},
             {"timeValue": -30, "imagePath": "slides/one.png", "application": "screenshot"},
             {"imagePath": "slides/two.jpg", "application": "screenshot"},
             {"timeValue": 99999999, "imagePath": "slides/one.png", "application": "screenshot"}])",
         "",
         [](const std::filesystem::path& output) {
             EXPECT_EQ(probe(output, "-show_entries chapter=start_time"), "0.000000\n1.000000\n");
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LectureFolder lecture("recording-moov-first.m4a");
        writeText(lecture.transitions, c.transitions);
        std::string arguments = lecture.arguments(lecture.folder.path() / ("out" + c.extension));
        if (!c.screenshots.empty()) {
            writeText(lecture.folder.path() / "screenshots.json", c.screenshots);
            arguments += " --screenshots " + shellQuote(lecture.folder.path() / "screenshots.json");
        }
        const auto result = runQuillora(arguments);
        ASSERT_EQ(result.status, 0) << result.output;
        if (c.warning.empty()) {
            EXPECT_EQ(result.output.find("warning"), std::string::npos) << result.output;
        } else {
            EXPECT_NE(result.output.find("quillora: warning: "), std::string::npos) << result.output;
            EXPECT_NE(result.output.find(c.warning), std::string::npos) << result.output;
        }
        c.check(lecture.folder.path() / ("out" + c.extension));
    }
}

TEST(ExportCommand, UsageErrorsExitTwoWithTheUsageLine)
{
    for (const std::string arguments : {"", "export", "export --recording", "frobnicate"}) {
        const auto result = runQuillora(arguments);
        EXPECT_EQ(result.status, 2) << arguments << ": " << result.output;
        EXPECT_NE(result.output.find("Usage: quillora"), std::string::npos) << arguments << ": " << result.output;
    }
}

TEST(ExportCommand, TakesFormatAndTagsFromATemplateAndAsksForThePathWithoutOutput)
{
    LectureFolder lecture("recording-moov-last.m4a");
    const auto templateFile = lecture.folder.path() / "Physics.quilloraTemplate";
    writeText(templateFile, R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
  <key>name</key><string>Physics</string>
  <key>format</key><string>.m4b</string>
  <key>pluginClassName</key><string>QuickTimePlugin</string>
  <key>tags</key><dict><key>title</key><string>From the template</string></dict>
</dict></plist>)");
    const auto chosen = lecture.folder.path() / "chosen.m4b";
    auto result = test::runInTerminal(shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora") +
                                          " export --recording " + shellQuote(lecture.recording) + " --transitions " +
                                          shellQuote(lecture.transitions) + " --template " + shellQuote(templateFile) +
                                          " --scratch " + shellQuote(lecture.folder.path() / "s"),
                                      chosen.string() + "\n");
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("Untitled.m4b]"), std::string::npos) << result.output;
    EXPECT_EQ(probe(chosen, "-show_entries format_tags=title"), "From the template\n");
}

TEST(ExportCommand, RemovesTheScratchFolderItMadeUnlessAskedToKeepIt)
{
    struct Case {
        std::string arguments;
        int status;
        bool kept;
    };
    // Kept only when asked for: not after success, nor when the plug-in is missing.
    for (const auto& c :
         {Case{"", 0, false}, Case{" --keep-scratch", 0, true}, Case{" --plugins /nonexistent", 1, false}}) {
        LectureFolder lecture("recording-moov-first.m4a");
        const auto temporary = lecture.folder.path() / "tmp";
        std::filesystem::create_directories(temporary);
        const auto result =
            runCommand("TMPDIR=" + shellQuote(temporary) + " " +
                       shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora") + " export --recording " +
                       shellQuote(lecture.recording) + " --transitions " + shellQuote(lecture.transitions) +
                       " --output " + shellQuote(lecture.folder.path() / "out.m4a") + c.arguments);
        EXPECT_EQ(result.status, c.status) << c.arguments << result.output;
        EXPECT_EQ(std::filesystem::is_empty(temporary), !c.kept) << c.arguments << result.output;
    }

    auto plugins = runQuillora("plugins");
    EXPECT_EQ(plugins.status, 0) << plugins.output;
    EXPECT_NE(plugins.output.find("QuickTime (QuickTimePlugin): Quicktime Publishing."), std::string::npos)
        << plugins.output;
}

}  // namespace
}  // namespace quillora
