// quillora inspect: what a lecturer reads before publishing.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"

using namespace quillora;

namespace {

std::filesystem::path lectureWithChapters(const test::TemporaryFolder& folder)
{
    const auto chapters = folder.path() / "chapters.txt";
    const std::string metadata = ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=2000\ntitle=Welcome\n"
                                 "[CHAPTER]\nTIMEBASE=1/1000\nSTART=2000\nEND=4000\ntitle=Refraction\n";
    test::writeFile(chapters, Bytes(metadata.begin(), metadata.end()));
    const auto path = folder.path() / "lecture.m4a";
    auto made = test::runCommand("ffmpeg -v error -f lavfi -i sine=d=4 -i " + test::shellQuote(chapters.string()) +
                                 " -map_metadata 1 -map 0 -c:a aac -b:a 32k -movie_timescale 600"
                                 " -metadata title='Optics, week 3' " +
                                 test::shellQuote(path.string()));
    EXPECT_EQ(made.status, 0) << made.output;
    return path;
}

}  // namespace

TEST(InspectCommand, PrintsTracksChaptersAndTags)
{
    test::TemporaryFolder folder;
    auto result = test::runQuillora("inspect " + test::shellQuote(lectureWithChapters(folder).string()));
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("Duration: 4.0"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("Chapters: 2 in track 2"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("      2.000      2.000  Refraction\n"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("  \xC2\xA9nam  Optics, week 3\n"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("Pictures: none"), std::string::npos) << result.output;
}

TEST(InspectCommand, RefusesWhatIsNotAMovieAndWarnsAboutDamage)
{
    auto notMovie = test::runQuillora("inspect " + test::shellQuote(test::fixture("slide.jpg").string()));
    EXPECT_EQ(notMovie.status, 1);
    EXPECT_NE(notMovie.output.find("is not a movie file"), std::string::npos) << notMovie.output;

    auto missing = test::runQuillora("inspect /nonexistent/lecture.m4a");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.output.find("cannot read /nonexistent/lecture.m4a"), std::string::npos) << missing.output;

    // A chapter table whose entry count runs past its atom.
    test::TemporaryFolder folder;
    const auto path = lectureWithChapters(folder);
    Bytes bytes = test::readFile(path);
    std::int64_t chapterTable = 0;
    for (const auto& node : toolbox::readAtomTree(path).atoms) {
        if (node.type == atom::stts) chapterTable = node.offset;  // the last one: the chapter track's
    }
    ASSERT_NE(chapterTable, 0);
    std::fill_n(bytes.begin() + chapterTable + 12, 4, 0xFF);
    test::writeFile(path, bytes);
    auto damaged = test::runQuillora("inspect " + test::shellQuote(path.string()));
    EXPECT_EQ(damaged.status, 2) << damaged.output;
    EXPECT_NE(damaged.output.find("warning: damaged sample table"), std::string::npos) << damaged.output;
    EXPECT_NE(damaged.output.find("Tracks (2)"), std::string::npos) << damaged.output;
}
