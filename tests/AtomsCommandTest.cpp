// quillora atoms: the atom tree of a file as a person reads it, and its refusals.
#include <gtest/gtest.h>

#include "TestSupport.h"

using namespace quillora;

TEST(AtomsCommand, PrintsTheNestedTreeOrRefusesWhatItCannotRead)
{
    const auto recording = test::fixture("recording-moov-first.m4a").string();
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {recording,
         {"ftyp                                0           28", "moov                               28         1027",
          "          stco                    883           20"}},
        {test::fixture("slide.png").string(), {"is not a movie file"}},
        {"/nonexistent/lecture.m4a", {"cannot read /nonexistent/lecture.m4a: No such file or directory"}},
    };
    for (const auto& [file, lines] : cases) {
        auto result = test::runQuillora("atoms " + test::shellQuote(file));
        EXPECT_EQ(result.status == 0, file == recording) << result.output;
        for (const auto& line : lines) EXPECT_NE(result.output.find(line), std::string::npos) << result.output;
    }
}
