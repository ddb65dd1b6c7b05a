// Reading a recording's time scale, duration and tracks from its atoms.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "toolbox/Movie.h"

using namespace quillora;

TEST(Movie, ReadsTimeScaleDurationAndTracksAsFfprobeDoes)
{
    for (const char* name : {"recording-moov-first.m4a", "recording-moov-last.m4a", "recording-six-tracks.m4a"}) {
        SCOPED_TRACE(name);
        auto movie = toolbox::Movie::movieWithFile(test::fixture(name));
        ASSERT_TRUE(movie);
        EXPECT_EQ(movie->timeScale(), 600u);
        auto probe = test::runCommand("ffprobe -v error -show_entries format=nb_streams,duration -of csv=p=0 " +
                                      test::shellQuote(test::fixture(name).string()));
        ASSERT_EQ(probe.status, 0) << probe.output;
        const auto comma = probe.output.find(',');
        EXPECT_EQ(std::to_string(movie->tracks().size()), probe.output.substr(0, comma));
        EXPECT_NEAR(static_cast<double>(movie->duration()) / 600.0, std::stod(probe.output.substr(comma + 1)), 0.05);
        for (std::size_t i = 0; i < movie->tracks().size(); ++i) {
            EXPECT_EQ(movie->tracks()[i]->trackID, i + 1);
            EXPECT_EQ(movie->tracks()[i]->mediaType(), fourCC("soun"));
        }
    }
    std::string error;
    EXPECT_FALSE(toolbox::Movie::movieWithFile(test::fixture("slide.png"), &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(toolbox::Movie::movieWithFile("/nonexistent/recording.m4a", &error));
    EXPECT_NE(error.find("No such file"), std::string::npos);
}
