// The WebVTT chapters read by Chromium through <track kind="chapters">:
// every cue, its times and its title as written.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "PublishTestSupport.h"
#include "publish/WebVtt.h"

namespace quillora::test {
namespace {

// Lists the cues as JSON in #cues once the track has loaded.
constexpr const char* kCuePage = R"(<!DOCTYPE html>
<audio preload="none"><track id="chapters" kind="chapters" src="talk.chapters.vtt"></audio>
<pre id="cues">pending</pre>
<script>
const element = document.getElementById("chapters");
const out = document.getElementById("cues");
element.addEventListener("load", () => {
  out.textContent = JSON.stringify(Array.from(element.track.cues, (cue) =>
    ({id: cue.id, start: cue.startTime, end: cue.endTime, text: cue.getCueAsHTML().textContent})));
});
element.addEventListener("error", () => { out.textContent = "error"; });
element.track.mode = "hidden";
</script>
)";

TEST(WebVtt, ChromiumReadsEveryChapterCue)
{
    if (!chromiumInstalled()) GTEST_SKIP() << "chromium is not installed";
    TemporaryFolder folder;
    auto lecture = sampleLecture();
    lecture.chapters[2].title = "Questions --> answers\nand more";
    publish::writeWebVtt(lecture, folder.path() / "talk.chapters.vtt");
    writeFile(folder.path() / "cues.html", Bytes(kCuePage, kCuePage + std::char_traits<char>::length(kCuePage)));

    LocalWebServer server(folder.path());
    const auto text = elementText(renderedDom(server.url("cues.html"), folder), "cues");
    ASSERT_TRUE(nlohmann::json::accept(text)) << text;
    const auto cues = nlohmann::json::parse(text);
    ASSERT_EQ(cues.size(), lecture.chapters.size());
    for (std::size_t i = 0; i < cues.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(cues[i]["id"], std::to_string(i + 1));
        EXPECT_NEAR(cues[i]["start"].get<double>(), lecture.chapters[i].start, 0.0005);
        EXPECT_NEAR(cues[i]["end"].get<double>(), lecture.chapters[i].end, 0.0005);
    }
    EXPECT_EQ(cues[0]["text"], "Welcome & <overview>");
    EXPECT_EQ(cues[1]["text"], "Fourier séries \"done\"");
    EXPECT_EQ(cues[2]["text"], "Questions --> answers and more");
}

}  // namespace
}  // namespace quillora::test
