// The external chapter-tool pipeline: the chapter document for a lecture with
// pauses and awkward slides, the sample lecture published through ChapterTool
// and AtomicParsley and read back by ffprobe and mutagen, and a chapter tool
// that fails or is missing.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "QuickTimePlugin/QuickTimePlugin.h"
#include "TestSupport.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"
#include "foundation/RunLoop.h"

namespace quillora {
namespace {

using test::ScopedDefaults;
using test::TemporaryFolder;

Date at(double seconds)
{
    using namespace std::chrono;
    const Date start = sys_days(year(2024) / March / 5) + hours(9);
    return start + duration_cast<Date::duration>(duration<double>(seconds));
}

Value slide(double date, const std::string& title, const std::filesystem::path& image)
{
    return Value::dictionary({{"date", at(date)}, {"slideTitle", title}, {"imagePath", image.string()}});
}

TEST(ChapterDocument, FollowsRecordedTimeAndLeavesOutMissingAndLateSlides)
{
    TemporaryFolder folder;
    const auto pictures = folder.path() / "slide pictures";
    std::filesystem::create_directories(pictures);
    for (const char* name : {"a.jpg", "b.jpg", "d.jpg", "e.jpg", "f.jpg"}) {
        std::filesystem::copy_file(test::fixture("slide.jpg"), pictures / name);
    }
    const std::string escaped = folder.path().string() + "/slide%20pictures/";
    ASSERT_EQ(folder.path().string().find_first_of(" %<>\"&"), std::string::npos);

    // Recorded 0-1 s, paused, recorded again from 10 s; the recording lasts 3 s.
    const Value dates = Value::array({at(0), at(1), at(10), at(100)});
    Value a = slide(0.25, "Intro", pictures / "a.jpg");
    a.asDictionary()->set("linkURL", Value::dictionary({{"title", "Home"}, {"url", "https://example.org/?a=1&b"}}));
    Value b = slide(0.75, std::string(230, 'x') + "Y", pictures / "b.jpg");
    Value missing = slide(0.5, "Gone", pictures / "missing.jpg");
    // No date: the host takes it from 1.5 s of recorded time, that is 10.5 s.
    Value d = Value::dictionary({{"timeValue", 900}, {"slideTitle", ""}, {"imagePath", (pictures / "d.jpg").string()}});
    d.asDictionary()->set("buildIndex", 1);
    Value e = slide(11.25, "Build step", pictures / "e.jpg");
    e.asDictionary()->set("buildIndex", 2);
    Value late = slide(13, "After the end", pictures / "f.jpg");
    const Value slides = Value::array({d, a, late, missing, b, e});

    SilentUserInterface ui;
    QuickTimePlugin plugin({test::fixture("recording-moov-first.m4a").string(), folder.path().string() + "/", slides,
                            Value::array(), &ui, dates});
    struct Line {
        std::string text;
        bool link = false;
    };
    const std::vector<Line> expected = {
        {R"(<?xml version="1.0" encoding="utf-8"?>)"},
        {R"(<chapters version="1">)"},
        {R"(    <chapter starttime="00:00:00.000">)"},
        {R"(        <title>Intro</title>)"},
        {"        <picture>" + escaped + "a.jpg</picture>"},
        {R"(        <link href="https://example.org/?a=1&amp;b">Home</link>)", true},
        {R"(    </chapter>)"},
        {R"(    <chapter starttime="00:00:00.750">)"},
        {"        <title>" + std::string(230, 'x') + "</title>"},
        {"        <picture>" + escaped + "b.jpg</picture>"},
        {R"(        <link href="" />)", true},
        {R"(    </chapter>)"},
        {R"(    <chapter starttime="00:00:01.500">)"},
        {R"(        <title> </title>)"},
        {"        <picture>" + escaped + "d.jpg</picture>"},
        {R"(        <link href="" />)", true},
        {R"(    </chapter>)"},
        {R"(    <chapter starttime="00:00:02.250">)"},
        {"        <picture>" + escaped + "e.jpg</picture>"},
        {R"(        <link href="" />)", true},
        {R"(    </chapter>)"},
        {R"(</chapters>)"},
    };
    // The same times as chapter items, each lasting until the next (the last until the end of the audio).
    std::vector<std::string> items;
    const Value chapterItems = plugin.createChapterItemsWithTransitions(slides, dates);
    for (const auto& item : *chapterItems.asArray()) {
        items.push_back(fmt::format("{} {:.2f}", item.stringForKey("chapterTitle")->substr(0, 8),
                                    item.get("duration")->asReal().value_or(-9)));
    }
    EXPECT_EQ(items, (std::vector<std::string>{"Intro 0.50", "xxxxxxxx 0.75", "Untitled 0.75", "Build st 1.75",
                                               "After th -1.00"}));
    for (const bool links : {true, false}) {
        SCOPED_TRACE(links ? "links on" : "links off");
        ScopedDefaults defaults(Value::dictionary({{"supportForURL", links}}));
        CapturedLog log;
        std::ostringstream document;
        plugin.generateXML()->save(document, "    ", pugi::format_default, pugi::encoding_utf8);
        std::string want;
        for (const auto& line : expected) {
            if (links || !line.link) want += line.text + "\n";
        }
        EXPECT_EQ(document.str(), want);
        EXPECT_TRUE(log.contains("did not put transition: " + jsonFromValue(missing, -1) +
                                 " as we could not find the image file"));
        EXPECT_TRUE(log.contains("transition was not added because it happened after the end of the audio: " +
                                 jsonFromValue(late, -1)));
    }
}

TEST(ChapterDocument, ATimeBeforeTheRecordingFallsOnTheDayBefore)
{
    TemporaryFolder folder;
    const auto picture = folder.path() / "a.jpg";
    std::filesystem::copy_file(test::fixture("slide.jpg"), picture);
    // Both slides changed before the recording started at 0 s; the first is
    // always at the start, the second half a second before it.
    const Value slides = Value::array({slide(-2, "Early", picture), slide(-0.5, "Earlier than the start", picture)});
    SilentUserInterface ui;
    QuickTimePlugin plugin({test::fixture("recording-moov-first.m4a").string(), folder.path().string() + "/", slides,
                            Value::array(), &ui, Value::array({at(0), at(100)})});
    std::ostringstream document;
    plugin.generateXML()->save(document, "    ", pugi::format_default, pugi::encoding_utf8);
    const std::string text = document.str();
    EXPECT_NE(text.find(R"(<chapter starttime="00:00:00.000">)"), std::string::npos) << text;
    EXPECT_NE(text.find(R"(<chapter starttime="23:59:59.500">)"), std::string::npos) << text;
}

TEST(ChapterToolPipeline, MakingThePodcastLeavesTheTaggingToTheHost)
{
    TemporaryFolder folder;
    const auto tools = folder.path() / "tools";
    std::filesystem::create_directories(tools);
    // A chapter tool that copies the recording, and a tag tool that says it ran.
    std::ofstream(tools / "ChapterTool") << "#!/bin/sh\nwhile [ $# -gt 1 ]; do case $1 in -a) in=$2;; -o) out=$2;; "
                                            "esac; shift; done\ncp \"$in\" \"$out\"\n";
    std::ofstream(tools / "AtomicParsley") << "#!/bin/sh\ntouch \"$1.tagged\"\n";
    for (const char* tool : {"ChapterTool", "AtomicParsley"})
        std::filesystem::permissions(tools / tool, std::filesystem::perms::owner_all);
    const auto picture = folder.path() / "a.jpg";
    std::filesystem::copy_file(test::fixture("slide.jpg"), picture);
    SilentUserInterface ui;
    QuickTimePlugin plugin({test::copyFixture("recording-moov-first.m4a", folder).string(),
                            folder.path().string() + "/", Value::array({slide(0, "A", picture)}), Value::array(), &ui,
                            Value::array({at(0), at(100)}), tools.string()});
    plugin.setExportParams(Value::dictionary({{"format", ".m4b"}, {"tags", Value::dictionary({{"title", "T"}})}}));
    const auto destination = folder.path() / "lecture.m4b";
    ASSERT_TRUE(plugin.createM4AFile(destination.string()));
    while (plugin.isExporting() || RunLoop::current()->hasPendingWork()) {
        RunLoop::current()->runOnce(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(plugin.saveError());
    EXPECT_TRUE(std::filesystem::exists(destination));
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        EXPECT_FALSE(entry.path().string().ends_with(".tagged")) << entry.path();
    }
    plugin.setID3Tags(Value::dictionary({{"title", "T"}}), destination.string());
    EXPECT_TRUE(std::filesystem::exists(destination.string() + ".tagged"));
}

std::string run(const std::string& command)
{
    auto result = test::runCommand(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.output;
    return result.output;
}

TEST(ChapterToolPipeline, SampleLectureGetsChaptersPicturesAndTheTagToolsTags)
{
    TemporaryFolder folder;
    const std::string sample = std::string(QUILLORA_FIXTURES) + "/../../sample/";
    const auto tags = folder.path() / "tags.json";
    std::ofstream(tags) << R"({"title": "Optics 1", "author": "Ada", "copyright": "2024 Physics",
        "university": "Northfield", "className": "Optics", "classNumber": "3"})";
    const auto output = folder.path() / "lecture.m4b";
    const std::string lecture = "--recording " + test::shellQuote(sample + "lecture.m4a") + " --transitions " +
                                test::shellQuote(sample + "transitions.json");

    const std::string quillora = test::shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora");
    const std::string document = run(quillora + " chapter-xml " + lecture);
    EXPECT_TRUE(document.starts_with(R"(<?xml version="1.0" encoding="utf-8"?>)")) << document;

    const std::string shown = run(quillora + " export " + lecture + " --tags " + test::shellQuote(tags.string()) +
                                  " --defaults " + test::shellQuote(sample + "defaults.json") + " --scratch " +
                                  test::shellQuote((folder.path() / "scratch").string()) + " --output " +
                                  test::shellQuote(output.string()) + " --pipeline tools");
    // The tools' stages are shown as they happen; the staged result is not.
    EXPECT_NE(
        shown.find("\n  Describing the chapters\n  Making the podcast with the chapter tool\n  Adding the tags\n"),
        std::string::npos)
        << shown;
    EXPECT_EQ(shown.find("/result/"), std::string::npos) << shown;
    const std::string file = test::shellQuote(output.string());
    // The chapters start where the slides changed (in 1/600 s), whatever the dates the host derived.
    EXPECT_EQ(run("ffprobe -v error -show_entries chapter=start:chapter_tags=title -of csv=p=0 " + file),
              "0,Light and Optics\n3205,Reflection\n7422,Refraction\n11647,Lenses\n15133,The Human Eye\n"
              "18485,Summary\n");
    EXPECT_EQ(run("ffprobe -v error -select_streams v -show_entries stream=codec_name,nb_frames -of csv=p=0 " + file),
              "mjpeg,6\n");
    EXPECT_EQ(test::ffmpegDecodeErrors(output), "");
    const std::string script = "import json, sys, mutagen.mp4\n"
                               "tags = mutagen.mp4.MP4(sys.argv[1]).tags\n"
                               "print(json.dumps({k: str(tags[k][0]) for k in sorted(tags) if k != '\\xa9too'}))\n";
    EXPECT_EQ(valueFromJson(run("/usr/bin/python3 -c " + test::shellQuote(script) + " " + file)),
              valueFromJson(R"({"©nam": "Optics 1", "©ART": "Ada", "cprt": "2024 Physics", "tvnn": "Northfield",
                                "tvsh": "Optics", "tven": "3: test"})"));
}

TEST(ChapterToolPipeline, AFailingOrMissingChapterToolGivesAnErrorAndNoFile)
{
    struct Case {
        const char* name;
        const char* tool;  // the ChapterTool script, or none
        const char* domain;
    };
    const Case cases[] = {
        {"reports failure", "#!/bin/sh\necho 'status: failed no chapters'\nexit 1\n", "chapterToolError"},
        {"missing", nullptr, "fileManipulationError"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder folder;
        const auto tools = folder.path() / "tools";
        std::filesystem::create_directories(tools);
        if (c.tool) {
            std::ofstream(tools / "ChapterTool") << c.tool;
            std::filesystem::permissions(tools / "ChapterTool", std::filesystem::perms::owner_all);
        }
        const auto picture = folder.path() / "a.jpg";
        std::filesystem::copy_file(test::fixture("slide.jpg"), picture);
        SilentUserInterface ui;
        QuickTimePlugin plugin({test::copyFixture("recording-moov-first.m4a", folder).string(),
                                folder.path().string() + "/", Value::array({slide(0, "A", picture)}), Value::array(),
                                &ui, Value::array(), tools.string()});
        const auto destination = folder.path() / "lecture.m4b";
        EXPECT_FALSE(plugin.createM4AFile(destination.string()));
        while (plugin.isExporting() || RunLoop::current()->hasPendingWork()) {
            RunLoop::current()->runOnce(std::chrono::milliseconds(10));
        }
        ASSERT_TRUE(plugin.saveError());
        EXPECT_EQ(plugin.saveError()->domain, c.domain);
        EXPECT_FALSE(plugin.result());
        EXPECT_FALSE(std::filesystem::exists(destination));
    }
}

}  // namespace
}  // namespace quillora
