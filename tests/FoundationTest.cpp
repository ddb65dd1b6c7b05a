// The platform layer: byte order, values shared by reference, property
// lists and JSON, defaults, and four-character codes.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TestSupport.h"
#include "foundation/Bytes.h"
#include "foundation/FourCC.h"
#include "foundation/PropertyList.h"
#include "foundation/UserDefaults.h"
#include "foundation/Value.h"

using namespace quillora;

TEST(Bytes, WritesBigEndianExceptTheOneLittleEndianPutAndSpellsFourCCs)
{
    ByteWriter w;
    w.putU16BE(0x0102)
        .putU32BE(0x03040506)
        .putU32LE(0x0708090A)
        .putFourCC(fourCC("moov"))
        .putFixed16_16(1.0)
        .putFixed8_8(-1.0);
    const Bytes expected = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x0A, 0x09, 0x08, 0x07,
                            'm',  'o',  'o',  'v',  0x00, 0x01, 0x00, 0x00, 0xFF, 0x00};
    EXPECT_EQ(w.bytes(), expected);

    ByteReader r(expected);
    EXPECT_EQ(r.getU16BE(), 0x0102);
    EXPECT_EQ(r.getU32BE(), 0x03040506u);
    EXPECT_EQ(r.getU32LE(), 0x0708090Au);
    EXPECT_EQ(r.getU32BE(), fourCC("moov"));
    r.skip(4);
    EXPECT_EQ(r.getU16BE(), 0xFF00);
    EXPECT_THROW(r.getU8(), std::out_of_range);

    // Short codes are padded with spaces; the copyright sign of iTunes keys is one Latin-1 byte, shown as UTF-8.
    EXPECT_EQ(fourCCFromString("M4A"), 0x4D344120u);
    EXPECT_EQ(stringFromFourCC(0xA96E616D), "\xC2\xA9nam");
}

TEST(Value, ContainersAreSharedByReferenceAndDictionariesKeepOrder)
{
    Value transition = Value::dictionary({{"timeValue", 600}, {"imagePath", "/a.png"}});
    Value slides = Value::array({transition});
    Value screenshots = Value::array({transition});
    slides.asArray()->front().asDictionary()->set("imagePath", "/a.jpg");
    EXPECT_EQ(screenshots.asArray()->front().stringForKey("imagePath"), "/a.jpg");

    auto dict = transition.asDictionary();
    dict->set("zeta", 1);
    dict->set("alpha", 2);
    dict->set("timeValue", 1200);  // replaced in place, not moved to the end
    std::vector<std::string> keys;
    for (const auto& [key, value] : *dict) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"timeValue", "imagePath", "zeta", "alpha"}));
    EXPECT_EQ(transition.integerForKey("timeValue"), 1200);
    EXPECT_EQ(Value(2.9).asInteger(), 2);
    EXPECT_FALSE(Value("600").asInteger().has_value());
}

TEST(PropertyList, RoundTripsXmlAndReadsJsonAndBinary)
{
    Value original = Value::dictionary({{"name", "Lecture"},
                                        {"count", 3},
                                        {"ratio", 0.5},
                                        {"on", true},
                                        {"data", Bytes{1, 2, 3}},
                                        {"list", Value::array({"a", 1})}});
    const std::string xml = xmlPropertyListFromValue(original);
    EXPECT_EQ(propertyListFromBytes(Bytes(xml.begin(), xml.end())), original);

    Value json = valueFromJson(R"({"b": 1, "a": [true, "x"], "c": 2.5})");
    EXPECT_EQ(json, Value::dictionary({{"b", 1}, {"a", Value::array({true, "x"})}, {"c", 2.5}}));
    EXPECT_THROW(valueFromJson("{not json"), FormatError);
    EXPECT_THROW(propertyListFromBytes(Bytes{'n', 'o', 'p', 'e'}), FormatError);

    // A binary property list as the host platform writes it: {"a": 1}.
    const Bytes binary = {'b',  'p', 'l', 'i', 's', 't', '0', '0', 0xD1, 0x01, 0x02, 0x51, 'a', 0x10, 0x01, 0x08, 0x0B,
                          0x0D, 0,   0,   0,   0,   0,   0,   1,   1,    0,    0,    0,    0,   0,    0,    0,    3,
                          0,    0,   0,   0,   0,   0,   0,   0,   0,    0,    0,    0,    0,   0,    0,    0x0F};
    EXPECT_EQ(propertyListFromBytes(binary), Value::dictionary({{"a", 1}}));

    // NUL characters in a string or a key, which the library would abort on:
    // raw in XML, and as UTF-16 in a binary key ({"\0é": 1}).
    using namespace std::string_literals;
    for (const std::string& text : {"<plist version=\"1.0\"><string>a\0b</string></plist>"s,
                                    "<plist version=\"1.0\"><dict><key>k</key><string>\0</string></dict></plist>"s}) {
        EXPECT_THROW(propertyListFromBytes(Bytes(text.begin(), text.end())), FormatError) << text;
    }
    const Bytes nulKey = {'b',  'p',  'l',  'i', 's', 't', '0', '0', 0xD1, 0x01, 0x02, 0x62, 0, 0, 0, 0xE9, 0x10, 0x01,
                          0x08, 0x0B, 0x10, 0,   0,   0,   0,   0,   0,    1,    1,    0,    0, 0, 0, 0,    0,    0,
                          3,    0,    0,    0,   0,   0,   0,   0,   0,    0,    0,    0,    0, 0, 0, 0,    0x12};
    EXPECT_THROW(propertyListFromBytes(nulKey), FormatError);
}

TEST(UserDefaults, ReadsEitherFormAndAnswersMissingKeysWithDefaults)
{
    test::TemporaryFolder folder;
    std::ofstream(folder.path() / "defaults.json") << R"({"supportForURL": true, "videoImageQuality": "768"})";
    UserDefaults defaults = UserDefaults::fromFile(folder.path() / "defaults.json");
    EXPECT_TRUE(defaults.boolForKey("supportForURL"));
    EXPECT_EQ(defaults.integerForKey("videoImageQuality"), 768);
    EXPECT_FALSE(defaults.boolForKey("missing"));
    EXPECT_EQ(defaults.integerForKey("missing"), 0);
    EXPECT_EQ(defaults.objectForKey("missing"), nullptr);

    writePropertyListFile(folder.path() / "defaults.plist", Value::dictionary({{"textTrackFontColor", Bytes{9, 8}}}));
    EXPECT_EQ(UserDefaults::fromFile(folder.path() / "defaults.plist").dataForKey("textTrackFontColor"), (Bytes{9, 8}));
    std::ofstream(folder.path() / "array.json") << "[1, 2]";
    EXPECT_THROW(UserDefaults::fromFile(folder.path() / "array.json"), FormatError);
}
