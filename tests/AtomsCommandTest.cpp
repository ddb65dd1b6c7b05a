// quillora atoms: the atom tree of a file as a person reads it.
#include <gtest/gtest.h>

#include "TestSupport.h"

using namespace quillora;

TEST(AtomsCommand, PrintsTheNestedTreeWithOffsetsAndSizes)
{
    auto result = test::runQuillora("atoms " + test::shellQuote(test::fixture("recording-moov-first.m4a").string()));
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("ftyp                                0           28"), std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("moov                               28         1027"), std::string::npos);
    EXPECT_NE(result.output.find("          stco                    883           20"), std::string::npos);
}

TEST(AtomsCommand, RefusesAFileThatIsNotAMovieAndAMissingFile)
{
    auto notMovie = test::runQuillora("atoms " + test::shellQuote(test::fixture("slide.png").string()));
    EXPECT_NE(notMovie.status, 0);
    EXPECT_NE(notMovie.output.find("is not a movie file"), std::string::npos) << notMovie.output;

    auto missing = test::runQuillora("atoms /nonexistent/lecture.m4a");
    EXPECT_NE(missing.status, 0);
    EXPECT_NE(missing.output.find("cannot read /nonexistent/lecture.m4a: No such file or directory"), std::string::npos)
        << missing.output;
}
