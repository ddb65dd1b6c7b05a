// Colour data: "#RRGGBB(AA)" text and archived colour objects built here
// byte by byte, down to the premultiplied 16-bit components.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <fstream>
#include <regex>
#include <sstream>
#include <tuple>

#include "PublishTestSupport.h"
#include "TrackTestSupport.h"
#include "layout/ColorData.h"
#include "layout/CssColorNames.h"

using namespace quillora;
using quillora::test::chars;

namespace {

// A typed-stream archive of one colour: header, root type "@", the class
// chain NSColor < NSObject, the colour space as a char, then the components
// (whole numbers as one-byte integers, others as tagged 32-bit floats).
Bytes archived(std::uint8_t space, const std::vector<float>& components, bool bigEndian = false,
               std::string className = "NSColor")
{
    ByteWriter out;
    out.putU8(4).putU8(11).putString(bigEndian ? "typedstream" : "streamtyped").putU8(0x81);
    bigEndian ? out.putU16BE(1000) : out.putU8(0xE8).putU8(0x03);
    out.putU8(0x84).putU8(1).putString("@").putU8(0x84).putU8(0x84).putU8(0x84);
    out.putU8(static_cast<std::uint8_t>(className.size())).putString(className).putU8(0);
    out.putU8(0x84).putU8(0x84).putU8(8).putString("NSObject").putU8(0).putU8(0x85);
    out.putU8(0x84).putU8(1).putString("c").putU8(space);
    out.putU8(0x84).putU8(static_cast<std::uint8_t>(components.size())).putString(std::string(components.size(), 'f'));
    for (float c : components) {
        if (c == static_cast<float>(static_cast<std::int8_t>(c))) {
            out.putU8(static_cast<std::uint8_t>(static_cast<std::int8_t>(c)));
        } else {
            out.putU8(0x83);
            bigEndian ? out.putU32BE(std::bit_cast<std::uint32_t>(c)) : out.putU32LE(std::bit_cast<std::uint32_t>(c));
        }
    }
    out.putU8(0x86);
    return out.take();
}

void expectColor(const Bytes& data, std::array<double, 4> expected)
{
    auto color = colorComponentsFromData(data);
    ASSERT_TRUE(color.has_value());
    const double read[] = {color->red, color->green, color->blue, color->alpha};
    for (int i = 0; i < 4; ++i) EXPECT_DOUBLE_EQ(read[i], expected[i]) << i;
}

}  // namespace

TEST(ColorData, ReadsHexTextAndArchivedRgbOrWhiteInEitherByteOrderAndPremultiplies)
{
    expectColor(chars(" #FF8000\n"), {1, 128 / 255.0, 0, 1});
    expectColor(chars("#00ff0033"), {0, 1, 0, 51 / 255.0});
    expectColor(archived(1, {1, 0.5f, 0.25f, 0.75f}), {1, 0.5, 0.25, 0.75});
    expectColor(archived(2, {0, 0.125f, 1, 1}, true), {0, 0.125, 1, 1});
    expectColor(archived(3, {0.75f, 1}), {0.75, 0.75, 0.75, 1});
    expectColor(archived(4, {0, 0.5f}, true), {0, 0, 0, 0.5});
    expectColor(archived(2, {2, -1, 0.5f, 1}), {1, 0, 0.5, 1});  // clamped

    // As 16-bit components premultiplied by alpha: 0.5 * 65535 = 32767.5 and
    // 0.125 * 65535 = 8191.875, truncated.
    RGBColor color;
    ASSERT_TRUE(QRGetRGBColorFromData(archived(1, {1, 0.25f, 0, 0.5f}), color));
    EXPECT_EQ(std::tuple(color.red, color.green, color.blue), std::tuple(32767, 8191, 0));
    ASSERT_TRUE(QRGetRGBColorFromData(archived(3, {0.5f, 1}), color));
    EXPECT_EQ(color.blue, 32767);
}

TEST(ColorData, AnythingElseIsNoColourAndLeavesTheOutputAlone)
{
    const Bytes valid = archived(2, {0.5f, 0.25f, 0.125f, 1});
    Bytes doubles = valid;
    const std::string_view floats = "ffff";
    *std::search(doubles.begin(), doubles.end(), floats.begin(), floats.end()) = 'd';
    std::vector<Bytes> rejected = {
        doubles,
        archived(5, {0, 0, 0, 0, 1}),  // CMYK is not read
        archived(1, {1, 1, 1}),
        archived(2, {1, 1, 1, 1}, false, "NSFont"),
        archived(2, {std::bit_cast<float>(0x7FC00000u), 0, 0, 1}),
        chars("\x04\x0bstreamtyped garbage"),
        chars("#GG0000"),
        chars("FF8000"),
    };
    for (std::size_t length = 0; length < valid.size(); ++length) {
        rejected.emplace_back(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(length));
    }
    for (const auto& data : rejected) {
        RGBColor color{1, 2, 3};
        EXPECT_FALSE(QRGetRGBColorFromData(data, color)) << data.size() << " bytes";
        EXPECT_TRUE(color.red == 1 && color.green == 2 && color.blue == 3);
    }
}

TEST(ColorData, ColourTextIsReadAsABrowserReadsCss)
{
    if (!test::chromiumInstalled()) GTEST_SKIP() << "chromium is not installed";
    const auto names = cssColorNames();
    std::vector<std::string> texts(names.begin(), names.end());
    ASSERT_EQ(texts.size(), 148u);
    for (const char* text : {"transparent", "TOMATO", "RebeccaPurple", "#F00", "#0f08", "#FF8000", "#00ff0033",
                             " #abc ", "#GG0000", "FF8000", "bogus", "#12345", "#1234567", ""}) {
        texts.emplace_back(text);
    }
    // Each text as a CSS colour (in standards mode, where "FF8000" is none); one
    // the browser refuses leaves the colour inherited, rgb(1, 2, 3).
    test::TemporaryFolder folder;
    std::string list;
    for (const auto& text : texts) list += (list.empty() ? "\"" : ", \"") + text + "\"";
    std::ofstream(folder.path() / "colours.html")
        << "<!DOCTYPE html><html><body style=\"color: rgb(1, 2, 3)\"><pre id=\"out\"></pre><script>const lines = [];\n"
        << "for (const text of [" << list << "]) {\n"
        << "  const probe = document.createElement('div'); probe.style.color = text; "
           "document.body.appendChild(probe);\n"
        << "  lines.push(getComputedStyle(probe).color); }\n"
        << "document.getElementById('out').textContent = lines.join('\\n');</script></body></html>";
    std::istringstream computed(
        test::elementText(test::renderedDom("file://" + (folder.path() / "colours.html").string(), folder), "out"));
    const std::regex rgba(R"(rgba?\((\d+), (\d+), (\d+)(?:, ([\d.]+))?\))");
    for (const auto& text : texts) {
        std::string line;
        ASSERT_TRUE(std::getline(computed, line)) << text;
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, rgba)) << text << ": " << line;
        const auto ours = colorComponentsFromData(chars(text));
        if (line == "rgb(1, 2, 3)") {
            EXPECT_FALSE(ours) << text;
            continue;
        }
        ASSERT_TRUE(ours) << text << ": " << line;
        EXPECT_EQ(std::lround(ours->red * 255), std::stoi(parts[1])) << text;
        EXPECT_EQ(std::lround(ours->green * 255), std::stoi(parts[2])) << text;
        EXPECT_EQ(std::lround(ours->blue * 255), std::stoi(parts[3])) << text;
        EXPECT_NEAR(ours->alpha, parts[4].matched ? std::stod(parts[4]) : 1.0, 0.005) << text;
    }
}
