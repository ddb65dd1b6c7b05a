// The companions made by an export: beside the podcast, read by the apps'
// readers, and landing only with the podcast.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "TestSupport.h"

namespace quillora {
namespace {

using test::runCommand;
using test::runQuillora;
using test::shellQuote;

std::string sampleExport(const std::filesystem::path& output, const std::string& extra)
{
    const auto sample = std::filesystem::path(QUILLORA_SOURCE_DIR) / "sample";
    return "export --recording " + shellQuote((sample / "lecture.m4a").string()) + " --transitions " +
           shellQuote((sample / "transitions.json").string()) + " --tags " +
           shellQuote((sample / "tags.json").string()) + " --defaults " +
           shellQuote((sample / "defaults.json").string()) + " --output " + shellQuote(output.string()) + " " + extra;
}

TEST(CompanionExport, EveryCompanionLandsBesideThePodcastAndIsRead)
{
    test::TemporaryFolder folder;
    const auto output = folder.path() / "Lecture 1.m4b";
    const auto cover = test::fixture("slide.jpg");
    const auto result =
        runQuillora(sampleExport(output, "--also chapters-json,webvtt,web,mp3 --cover " + shellQuote(cover.string())));
    ASSERT_EQ(result.status, 0) << result.output;

    const auto mp3 = folder.path() / "Lecture 1.mp3";
    const auto chapters = runCommand("ffprobe -v error -of json -show_chapters " + shellQuote(mp3.string()));
    const auto listed = nlohmann::json::parse(chapters.output, nullptr, false);
    EXPECT_EQ(listed["chapters"].size(), 6u) << chapters.output;

    const auto json = nlohmann::json::parse(test::readFile(folder.path() / "Lecture 1.chapters.json"));
    ASSERT_EQ(json["chapters"].size(), 6u);
    for (const auto& chapter : json["chapters"]) {
        ASSERT_TRUE(chapter.contains("img"));
        std::string path = chapter["img"];  // relative, with the space percent-encoded
        for (auto at = path.find("%20"); at != std::string::npos; at = path.find("%20")) path.replace(at, 3, " ");
        EXPECT_TRUE(std::filesystem::exists(folder.path() / path)) << chapter.dump();
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(folder.path() / "Lecture 1.chapters.vtt"));
    EXPECT_TRUE(std::filesystem::is_regular_file(folder.path() / "Lecture 1.html"));

    // inspect tells what each app will find beside the podcast.
    const auto inspected = runQuillora("inspect " + shellQuote(output.string()));
    for (const char* line : {"Lecture 1.chapters.json  6 chapters, 6 pictures, 2 links",
                             "Lecture 1.chapters.vtt  6 chapters, 0 pictures, 0 links",
                             "Lecture 1.mp3  6 chapters, 6 pictures, 2 links"}) {
        EXPECT_NE(inspected.output.find(line), std::string::npos) << line << "\n" << inspected.output;
    }

    // The cover in the podcast, square and at least 1400 pixels.
    const auto covr = runCommand("/usr/bin/python3 -c " +
                                 shellQuote("import mutagen.mp4,sys; c=mutagen.mp4.MP4(sys.argv[1]).tags['covr'][0]; "
                                            "print(c.imageformat == mutagen.mp4.MP4Cover.FORMAT_JPEG, len(c) > 1000)") +
                                 " " + shellQuote(output.string()));
    EXPECT_EQ(covr.output, "True True\n") << covr.output;
}

TEST(CompanionExport, NothingLandsWhenACompanionFails)
{
    test::TemporaryFolder folder;
    const auto output = folder.path() / "lecture.m4b";
    const auto notAPicture = folder.path() / "cover.jpg";
    test::writeFile(notAPicture, Bytes(100, 'x'));
    const auto result = runQuillora(sampleExport(output, "--also webvtt --cover " + shellQuote(notAPicture.string())));
    EXPECT_EQ(result.status, 1) << result.output;
    EXPECT_FALSE(std::filesystem::exists(output));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "lecture.chapters.vtt"));
}

}  // namespace
}  // namespace quillora
