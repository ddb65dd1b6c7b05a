// The quillora host program exporting through the plug-in module: real files
// checked with readers we did not write, and bad input refused before any
// work starts.
#include <gtest/gtest.h>

#include <functional>

#include "TestSupport.h"

namespace quillora {
namespace {

using test::runCommand;
using test::runQuillora;
using test::shellQuote;
using test::TemporaryFolder;

void writeText(const std::filesystem::path& path, const std::string& text)
{
    test::writeFile(path, Bytes(text.begin(), text.end()));
}

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
    for (const auto& entry : std::filesystem::directory_iterator(lecture.folder.path() / "scratch")) {
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

TEST(ExportCommand, RefusesBadInputBeforeAnyWorkWithAMessageNamingTheFile)
{
    struct Case {
        std::string name;
        std::function<void(LectureFolder&)> spoil;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"missing recording", [](LectureFolder& l) { std::filesystem::remove(l.recording); }, "does not exist"},
        {"transitions not JSON", [](LectureFolder& l) { writeText(l.transitions, "[{\"timeValue\": 0,"); },
         "transitions.json"},
        {"no timeValue",
         [](LectureFolder& l) { writeText(l.transitions, R"([{"slideTitle": "A", "imagePath": "slides/one.png"}])"); },
         "has no \"timeValue\""},
        {"missing picture",
         [](LectureFolder& l) { writeText(l.transitions, R"([{"timeValue": 0, "imagePath": "slides/gone.png"}])"); },
         "gone.png does not exist"},
        {"tags not text", [](LectureFolder& l) { writeText(l.tags, R"({"title": 3})"); }, "tags.json"},
    };
    for (const auto& c : cases) {
        LectureFolder lecture("recording-moov-first.m4a");
        const auto output = lecture.folder.path() / "out.m4b";
        c.spoil(lecture);
        auto result = runQuillora(lecture.arguments(output));
        EXPECT_EQ(result.status, 2) << c.name << ": " << result.output;
        EXPECT_NE(result.output.find(c.expected), std::string::npos) << c.name << ": " << result.output;
        EXPECT_FALSE(std::filesystem::exists(output)) << c.name;
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
    auto result = runCommand(
        "echo " + shellQuote(chosen) + " | " + shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora") +
        " export --recording " + shellQuote(lecture.recording) + " --transitions " + shellQuote(lecture.transitions) +
        " --template " + shellQuote(templateFile) + " --scratch " + shellQuote(lecture.folder.path() / "s"));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("Untitled.m4b]"), std::string::npos) << result.output;
    EXPECT_EQ(probe(chosen, "-show_entries format_tags=title"), "From the template\n");
}

TEST(ExportCommand, AFailedExportShowsTheAlertAndExitsNonZero)
{
    LectureFolder lecture("recording-moov-first.m4a");
    writeText(lecture.transitions, R"([
  {"timeValue": 0, "slideTitle": "A", "imagePath": "slides/one.png"},
  {"timeValue": 0, "slideTitle": "B", "imagePath": "slides/two.jpg"}])");
    auto result = runQuillora(lecture.arguments(lecture.folder.path() / "out.m4b"));
    EXPECT_EQ(result.status, 1) << result.output;
    EXPECT_NE(result.output.find("Export failed: "), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("help: Qora0028"), std::string::npos) << result.output;

    auto plugins = runQuillora("plugins");
    EXPECT_EQ(plugins.status, 0) << plugins.output;
    EXPECT_NE(plugins.output.find("QuickTime (QuickTimePlugin): Quicktime Publishing."), std::string::npos)
        << plugins.output;
}

}  // namespace
}  // namespace quillora
