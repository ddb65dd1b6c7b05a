// Text samples as they lie in the media data: text, then modifier atoms.
#include <gtest/gtest.h>

#include "foundation/Bytes.h"
#include "foundation/FourCC.h"
#include "toolbox/TextSample.h"

using namespace quillora;
using quillora::toolbox::parseTextSample;

namespace {

Bytes linkSample(const std::string& title, const std::string& url)
{
    ByteWriter sample;
    sample.putU16BE(static_cast<std::uint16_t>(title.size())).putString(title);
    sample.putU32BE(static_cast<std::uint32_t>(14 + url.size())).putFourCC(fourCC("href"));
    sample.putU16BE(0).putU16BE(static_cast<std::uint16_t>(url.size()));
    sample.putU8(static_cast<std::uint8_t>(url.size() % 256)).putString(url).putU8(0);
    return sample.take();
}

}  // namespace

TEST(TextSample, ReadsChapterAndLinkSamples)
{
    ByteWriter chapter;
    chapter.putU16BE(5).putString("Intro").putU32BE(12).putFourCC(fourCC("encd")).putU32BE(0x100);
    auto parsedChapter = parseTextSample(chapter.bytes());
    EXPECT_EQ(parsedChapter.text, "Intro");
    EXPECT_FALSE(parsedChapter.url);
    EXPECT_FALSE(parsedChapter.truncated);

    auto link = parseTextSample(linkSample("Course page", "https://example.org/optics"));
    EXPECT_EQ(link.text, "Course page");
    EXPECT_EQ(link.url, "https://example.org/optics");

    auto empty = parseTextSample(linkSample("", ""));
    EXPECT_EQ(empty.text, "");
    EXPECT_EQ(empty.url, "");

    // A 300-byte URL keeps only 44 in its length byte; the atom's size tells the rest.
    const std::string longURL = "https://example.org/" + std::string(280, 'a');
    EXPECT_EQ(parseTextSample(linkSample("Long", longURL)).url, longURL);
}

TEST(TextSample, CutSamplesAreMarkedNotOverrun)
{
    Bytes link = linkSample("Course page", "https://example.org/");
    for (std::size_t length = 1; length < link.size(); ++length) {
        auto parsed = parseTextSample(std::span(link).first(length));
        EXPECT_TRUE(parsed.truncated || !parsed.url) << length;
        EXPECT_LE(parsed.text.size(), 11u);
    }
    Bytes overlong{0x00, 0x10, 'a', 'b'};
    auto parsed = parseTextSample(overlong);
    EXPECT_TRUE(parsed.truncated);
    EXPECT_EQ(parsed.text, "ab");
}
