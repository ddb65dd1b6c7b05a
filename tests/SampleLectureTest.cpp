// The bundled sample lecture: what a host would hand the plug-in must fit together.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "foundation/PropertyList.h"
#include "toolbox/Movie.h"

using namespace quillora;

TEST(SampleLecture, TransitionsFitTheRecordingAndNameExistingPictures)
{
    const auto sample = test::fixture("").parent_path().parent_path().parent_path() / "sample";
    const auto recording = toolbox::Movie::movieWithFile(sample / "lecture.m4a");
    ASSERT_TRUE(recording);
    int links = 0;
    for (const char* list : {"transitions.json", "screenshots.json"}) {
        std::int64_t previous = -1;
        const Value transitions = readValueFile(sample / list);
        for (const auto& transition : *transitions.asArray()) {
            const auto time = transition.integerForKey("timeValue").value_or(-1);
            EXPECT_GT(time, previous) << list;
            EXPECT_LT(static_cast<std::uint64_t>(time), recording->duration()) << list;
            previous = time;
            EXPECT_TRUE(std::filesystem::exists(sample / transition.stringForKey("imagePath").value_or("(none)")))
                << list << " " << time;
            if (std::string_view(list) == "screenshots.json") {
                EXPECT_EQ(transition.stringForKey("application"), "screenshot");
            }
            if (const Value* link = transition.get("linkURL")) links += link->stringForKey("url") ? 1 : 0;
        }
    }
    // The demo shows links (when the defaults allow them) and tags.
    EXPECT_EQ(links, 2);
    EXPECT_EQ(readValueFile(sample / "defaults.json").get("supportForURL")->asBool(), true);
    EXPECT_TRUE(readValueFile(sample / "tags.json").stringForKey("title"));
}
