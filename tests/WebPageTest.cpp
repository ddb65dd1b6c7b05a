// The lecture's web page in Chromium: from a web server it fetches the
// chapters file, opened from disk it falls back on its own copy; either way
// a "?t=" start shows that chapter's slide and marks its button.
#include <gtest/gtest.h>

#include "PublishTestSupport.h"
#include "publish/ChaptersJson.h"
#include "publish/WebPage.h"

namespace quillora::test {
namespace {

// The opening tag of the element with that id.
std::string openingTag(const std::string& dom, const std::string& id)
{
    const auto at = dom.find("id=\"" + id + "\"");
    if (at == std::string::npos) return {};
    const auto start = dom.rfind('<', at);
    return dom.substr(start, dom.find('>', at) - start + 1);
}

std::string currentButton(const std::string& dom)
{
    const auto at = dom.find("aria-current=\"true\"");
    if (at == std::string::npos) return {};
    const auto start = dom.rfind("<button", at);
    return dom.substr(start, dom.find("</button>", at) - start);
}

TEST(WebPage, ShowsTheSlideOfTheTimeFromAServerAndFromDisk)
{
    if (!chromiumInstalled()) GTEST_SKIP() << "chromium is not installed";
    TemporaryFolder folder;
    const auto lecture = sampleLecture();
    makeMp3(folder, "talk one.mp3", 10);
    publish::writeChaptersJson(lecture, folder.path() / "talk one.chapters.json", folder.path() / "talk one-slides");
    publish::writeWebPage(lecture, folder.path() / "talk one.html", "talk one.mp3", "talk one.chapters.json");

    LocalWebServer server(folder.path());
    const auto served = renderedDom(server.url("talk%20one.html?t=5"), folder);
    EXPECT_NE(served.find("<h1>Signals &amp; &lt;Systems&gt;</h1>"), std::string::npos) << served;
    EXPECT_NE(served.find("Example University"), std::string::npos);
    EXPECT_NE(served.find("data-chapters-from=\"file\""), std::string::npos) << served;
    const auto slide = openingTag(served, "slide");
    EXPECT_NE(slide.find("src=\"" + server.url("talk%20one-slides/02.png") + "\""), std::string::npos) << slide;
    EXPECT_NE(slide.find("alt=\"Fourier séries &quot;done&quot;\""), std::string::npos) << slide;
    EXPECT_NE(currentButton(served).find("data-index=\"1\""), std::string::npos) << served;
    EXPECT_NE(openingTag(served, "slide-link").find("hidden"), std::string::npos);

    const auto opened = renderedDom("file://" + (folder.path() / "talk%20one.html").string() + "?t=1", folder);
    EXPECT_NE(opened.find("data-chapters-from=\"page\""), std::string::npos) << opened;
    EXPECT_NE(openingTag(opened, "slide").find("talk%20one-slides/01.jpg"), std::string::npos) << opened;
    EXPECT_NE(currentButton(opened).find("data-index=\"0\""), std::string::npos);
    EXPECT_NE(opened.find("href=\"https://example.org/course?week=3&amp;part=1\""), std::string::npos);
}

}  // namespace
}  // namespace quillora::test
