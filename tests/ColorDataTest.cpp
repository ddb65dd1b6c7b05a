// Colour data: "#RRGGBB(AA)" text and archived colour objects built here
// byte by byte, down to the premultiplied 16-bit components.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "tracks/ColorData.h"

using namespace quillora;

namespace {

enum class Order { LittleEndian, BigEndian };

// A typed-stream archive of one colour: header, root type "@", the class
// chain NSColor < NSObject, the colour space as a char, then the components
// (whole numbers as one-byte integers, others as tagged 32-bit floats).
Bytes archivedColor(std::uint8_t space, const std::vector<float>& components, Order order = Order::LittleEndian,
                    std::string className = "NSColor")
{
    const bool little = order == Order::LittleEndian;
    ByteWriter out;
    out.putU8(4).putU8(11).putString(little ? "streamtyped" : "typedstream");
    out.putU8(0x81);
    little ? out.putU8(0xE8).putU8(0x03) : out.putU16BE(1000);
    out.putU8(0x84).putU8(1).putString("@");
    out.putU8(0x84).putU8(0x84).putU8(0x84).putU8(static_cast<std::uint8_t>(className.size())).putString(className);
    out.putU8(0).putU8(0x84).putU8(0x84).putU8(8).putString("NSObject").putU8(0).putU8(0x85);
    out.putU8(0x84).putU8(1).putString("c").putU8(space);
    out.putU8(0x84).putU8(static_cast<std::uint8_t>(components.size())).putString(std::string(components.size(), 'f'));
    for (float component : components) {
        if (component == static_cast<float>(static_cast<std::int8_t>(component))) {
            out.putU8(static_cast<std::uint8_t>(static_cast<std::int8_t>(component)));
        } else {
            const auto bits = std::bit_cast<std::uint32_t>(component);
            out.putU8(0x83);
            little ? out.putU32LE(bits) : out.putU32BE(bits);
        }
    }
    out.putU8(0x86);
    return out.take();
}

Bytes text(std::string_view value) { return Bytes(value.begin(), value.end()); }

void expectComponents(const std::optional<ColorComponents>& color, ColorComponents expected)
{
    ASSERT_TRUE(color.has_value());
    EXPECT_DOUBLE_EQ(color->red, expected.red);
    EXPECT_DOUBLE_EQ(color->green, expected.green);
    EXPECT_DOUBLE_EQ(color->blue, expected.blue);
    EXPECT_DOUBLE_EQ(color->alpha, expected.alpha);
}

}  // namespace

TEST(ColorData, ReadsHexText)
{
    expectComponents(colorComponentsFromData(text(" #FF8000\n")), {1, 128 / 255.0, 0, 1});
    expectComponents(colorComponentsFromData(text("#00ff0033")), {0, 1, 0, 51 / 255.0});
    for (auto bad : {"", "FF8000", "#FF80", "#GG0000", "#FF800000FF"}) {
        EXPECT_FALSE(colorComponentsFromData(text(bad))) << bad;
    }
}

TEST(ColorData, ReadsArchivedRgbAndWhiteInBothByteOrders)
{
    expectComponents(colorComponentsFromData(archivedColor(1, {1, 0.5f, 0.25f, 0.75f})), {1, 0.5, 0.25, 0.75});
    expectComponents(colorComponentsFromData(archivedColor(2, {0, 0.125f, 1, 1}, Order::BigEndian)),
                     {0, 0.125, 1, 1});
    expectComponents(colorComponentsFromData(archivedColor(3, {0.75f, 1})), {0.75, 0.75, 0.75, 1});
    expectComponents(colorComponentsFromData(archivedColor(4, {0, 0.5f}, Order::BigEndian)), {0, 0, 0, 0.5});
    // Stored values beyond 0...1 are clamped.
    expectComponents(colorComponentsFromData(archivedColor(2, {2, -1, 0.5f, 1})), {1, 0, 0.5, 1});
}

TEST(ColorData, PremultipliesSixteenBitComponentsByAlpha)
{
    RGBColor color;
    ASSERT_TRUE(QRGetRGBColorFromData(archivedColor(1, {1, 0.25f, 0, 0.5f}), color));
    EXPECT_EQ(color.red, 32767);   // 0.5 * 65535 = 32767.5
    EXPECT_EQ(color.green, 8191);  // 0.125 * 65535 = 8191.875
    EXPECT_EQ(color.blue, 0);
    ASSERT_TRUE(QRGetRGBColorFromData(archivedColor(3, {0.5f, 1}), color));
    EXPECT_EQ(color.red, 32767);
    EXPECT_EQ(color.blue, 32767);
    ASSERT_TRUE(QRGetRGBColorFromData(text("#FFFFFF"), color));
    EXPECT_EQ(color.green, 65535);
}

TEST(ColorData, AnythingElseIsNoColourAndLeavesTheOutputAlone)
{
    const Bytes valid = archivedColor(2, {0.5f, 0.25f, 0.125f, 1});
    std::vector<Bytes> rejected = {
        archivedColor(5, {0, 0, 0, 0, 1}),                    // CMYK: not read
        archivedColor(1, {1, 1, 1}),                          // too few components for RGB
        archivedColor(2, {1, 1, 1, 1}, Order::LittleEndian, "NSFont"),
        archivedColor(2, {std::bit_cast<float>(0x7FC00000u), 0, 0, 1}),  // not a number
        text("\x04\x0bstreamtyped garbage"),
    };
    for (std::size_t length = 0; length < valid.size(); ++length) {
        rejected.emplace_back(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(length));
    }
    Bytes doubles = valid;
    const std::string_view floats = "ffff";
    *std::search(doubles.begin(), doubles.end(), floats.begin(), floats.end()) = 'd';
    rejected.push_back(doubles);

    for (const auto& data : rejected) {
        RGBColor color{1, 2, 3};
        EXPECT_FALSE(QRGetRGBColorFromData(data, color)) << data.size() << " bytes";
        EXPECT_EQ(color.red, 1);
        EXPECT_EQ(color.green, 2);
        EXPECT_EQ(color.blue, 3);
    }
}
