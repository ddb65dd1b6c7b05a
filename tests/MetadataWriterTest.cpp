// The item-list writer on real recordings: the atoms it leaves, byte for
// byte, the chunk offsets of the audio, and what ffmpeg and mutagen make of
// the result.
#include <gtest/gtest.h>

#include <algorithm>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"
#include "toolbox/AtomTree.h"

using namespace quillora;

namespace {

// One item: size, type, then a `data` atom of text type and locale 0.
Bytes expectedItem(std::uint32_t type, std::string_view bytes)
{
    const auto length = static_cast<std::uint32_t>(bytes.size());
    ByteWriter item;
    item.putU32BE(24 + length).putFourCC(type);
    item.putU32BE(16 + length).putString("data").putU32BE(1).putU32BE(0).putString(bytes);
    return item.take();
}

Bytes expectedAtom(std::string_view type, const Bytes& payload)
{
    ByteWriter atomBytes;
    atomBytes.putU32BE(static_cast<std::uint32_t>(8 + payload.size())).putString(type).putBytes(payload);
    return atomBytes.take();
}

Bytes concatenated(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// A new meta: version and flags, the 34-byte metadata handler, then the list.
Bytes expectedMeta(const Bytes& list)
{
    ByteWriter handler;
    handler.putU32BE(34).putString("hdlr").putU32BE(0).putU32BE(0).putString("mdir").putString("appl");
    handler.putU32BE(0).putU32BE(0).putU8(0).putU8(0);
    ByteWriter meta;
    meta.putU32BE(static_cast<std::uint32_t>(46 + list.size())).putString("meta").putU32BE(0);
    meta.putBytes(handler.bytes()).putBytes(list);
    return meta.take();
}

constexpr std::uint32_t kName = fourCC("\251nam");
constexpr std::uint32_t kArtist = fourCC("\251ART");
constexpr std::uint32_t kSoftware = fourCC("\251swr");

Bytes bytesOfAtom(const std::filesystem::path& path, const toolbox::AtomNode& node)
{
    const Bytes file = test::readFile(path);
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(node.offset);
    return Bytes(begin, begin + static_cast<std::ptrdiff_t>(node.size));
}

// The first 16 bytes at every chunk offset: the edit must leave each offset
// pointing at the same audio.
std::vector<Bytes> chunkHeads(const std::filesystem::path& path)
{
    const Bytes bytes = test::readFile(path);
    std::vector<Bytes> heads;
    for (const auto& track : test::chunkOffsetsByTrack(path)) {
        for (auto offset : track.offsets) {
            if (offset + 16 > bytes.size()) {
                ADD_FAILURE() << "chunk offset " << offset << " past the end";
                continue;
            }
            const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
            heads.emplace_back(begin, begin + 16);
        }
    }
    return heads;
}

void writeMetadata(const Value& tags, const std::filesystem::path& path)
{
    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_TRUE(editor.addMetadata(tags, file, path.string()));
    file.closeFile();
}

} // namespace

TEST(MetadataWriter, CreatesUdtaMetaAndListAsLastChildOfMoov)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-no-udta.m4a", folder);
    const auto headsBefore = chunkHeads(path);
    Value tags = Value::dictionary({{"title", "Waves"},
                                    {"tracknum", "3"},
                                    {"className", "Optics"},
                                    {"class name", "Physics 2"},
                                    {"software", "Other"},
                                    {"author", "Ann"}});

    CapturedLog log;
    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_TRUE(editor.addMetadata(tags, file, path.string()));
    file.closeFile();

    EXPECT_TRUE(log.contains("-[QTDataEditor addMetadata:toFile:path:]  Writing MetaData {"));
    // The caller's dictionary holds the software name, in the place the key had.
    EXPECT_EQ(tags.asDictionary()->entries()[4], (Dictionary::Entry{"software", "Quillora"}));
    EXPECT_EQ(editor.supportedM4aTags().asArray()->size(), 19u);

    const Bytes items = concatenated({expectedItem(kName, "Waves"), expectedItem(fourCC("trkn"), "\x33"),
                                      expectedItem(fourCC("tvsh"), "Physics 2"), expectedItem(kSoftware, "Quillora"),
                                      expectedItem(kArtist, "Ann")});
    const Bytes udta = expectedAtom("udta", expectedMeta(expectedAtom("ilst", items)));
    ASSERT_EQ(udta.size(), 8 + 46 + 8 + items.size());

    auto tree = toolbox::readAtomTree(path);
    ASSERT_TRUE(tree.problems.empty());
    auto moov = tree.find({atom::moov});
    ASSERT_TRUE(moov);
    auto children = tree.childrenOf(*moov);
    ASSERT_EQ(children.back().type, atom::udta);
    EXPECT_EQ(bytesOfAtom(path, children.back()), udta);
    EXPECT_EQ(children.back().offset + children.back().size, moov->offset + moov->size);

    EXPECT_EQ(chunkHeads(path), headsBefore);
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}

TEST(MetadataWriter, WritingTwiceReplacesOnlyTheList)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-no-udta.m4a", folder);
    writeMetadata(Value::dictionary({{"title", "First title"}, {"comment", "gone later"}}), path);
    writeMetadata(Value::dictionary({{"author", "Bo"}}), path);

    const Bytes items = concatenated({expectedItem(kArtist, "Bo"), expectedItem(kSoftware, "Quillora")});
    const Bytes udta = expectedAtom("udta", expectedMeta(expectedAtom("ilst", items)));
    auto udtaNode = toolbox::readAtomTree(path).find({atom::moov, atom::udta});
    ASSERT_TRUE(udtaNode);
    EXPECT_EQ(bytesOfAtom(path, *udtaNode), udta);
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}

TEST(MetadataWriter, ListLengthCountsUtf16UnitsAndCutsTheUtf8Bytes)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-no-udta.m4a", folder);
    // "Café": 4 units, 5 bytes. "a" + U+1F600: 3 units, 5 bytes.
    writeMetadata(Value::dictionary({{"title", "Caf\xC3\xA9"}, {"album", "a\xF0\x9F\x98\x80"}}), path);

    auto list = toolbox::readAtomTree(path).find({atom::moov, atom::udta, atom::meta, atom::ilst});
    ASSERT_TRUE(list);
    const Bytes title = expectedItem(kName, "Caf\xC3");
    ASSERT_EQ(title.size(), 28u);
    const Bytes items =
        concatenated({title, expectedItem(fourCC("\251alb"), "a\xF0\x9F"), expectedItem(kSoftware, "Quillora")});
    EXPECT_EQ(bytesOfAtom(path, *list), expectedAtom("ilst", items));

    // Only unknown keys (including the camel-case class keys): the software item alone.
    writeMetadata(Value::dictionary({{"classNumber", "101"}, {"speaker", "Ann"}}), path);
    list = toolbox::readAtomTree(path).find({atom::moov, atom::udta, atom::meta, atom::ilst});
    ASSERT_TRUE(list);
    EXPECT_EQ(bytesOfAtom(path, *list), expectedAtom("ilst", expectedItem(kSoftware, "Quillora")));
}

class MetadataWriterLayouts : public testing::TestWithParam<const char*>
{
};

// Moov before the audio (chunk offsets move) and after it (they stay), with
// an existing udta/meta/ilst that the new list replaces; mutagen reads it back.
TEST_P(MetadataWriterLayouts, KeepsAudioInPlaceAndReadsBackWithMutagen)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture(GetParam(), folder);
    const auto headsBefore = chunkHeads(path);
    const auto metaBefore = toolbox::readAtomTree(path).find({atom::moov, atom::udta, atom::meta});

    writeMetadata(Value::dictionary({{"title", "Lecture 4"},
                                     {"author", "Ann Lee"},
                                     {"copyright", "2024 Ann Lee"},
                                     {"university", "North College"},
                                     {"class name", "Physics"}}),
                  path);

    EXPECT_EQ(chunkHeads(path), headsBefore);
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
    auto tree = toolbox::readAtomTree(path);
    auto meta = tree.find({atom::moov, atom::udta, atom::meta});
    ASSERT_TRUE(meta && metaBefore);
    auto metaChildren = tree.childrenOf(*meta);
    ASSERT_FALSE(metaChildren.empty());
    EXPECT_EQ(metaChildren.back().type, atom::ilst);
    EXPECT_EQ(std::ranges::count(metaChildren, atom::ilst, &toolbox::AtomNode::type), 1);

    const std::string script = "import json, sys, mutagen.mp4\n"
                               "tags = mutagen.mp4.MP4(sys.argv[1]).tags\n"
                               "print(json.dumps({k: [str(v) for v in vs] for k, vs in tags.items()}))\n";
    auto result = test::runCommand("/usr/bin/python3 -c " + test::shellQuote(script) + " " +
                                   test::shellQuote(path.string()) + " 2>&1");
    ASSERT_EQ(result.status, 0) << result.output;
    const Value read = valueFromJson(result.output);
    auto first = [&](std::string_view key) {
        const Value* values = read.get(key);
        return values && values->asArray() && !values->asArray()->empty() ? *values->asArray()->front().asString()
                                                                          : std::string("(missing)");
    };
    EXPECT_EQ(first("\xC2\xA9nam"), "Lecture 4");
    EXPECT_EQ(first("\xC2\xA9"
                    "ART"),
              "Ann Lee");
    EXPECT_EQ(first("\xC2\xA9"
                    "cpy"),
              "2024 Ann Lee");
    EXPECT_EQ(first("\xC2\xA9swr"), "Quillora");
    EXPECT_EQ(first("tvnn"), "North College");
    EXPECT_EQ(first("tvsh"), "Physics");
    EXPECT_EQ(read.get("\xC2\xA9too"), nullptr) << "the old list is gone";
}

INSTANTIATE_TEST_SUITE_P(Fixtures, MetadataWriterLayouts,
                         testing::Values("recording-moov-first.m4a", "recording-moov-last.m4a",
                                         "recording-chunks-moov-first.m4a", "recording-chunks-moov-last.m4a"));

TEST(MetadataWriter, OlderEntryPointOpensTheFileItself)
{
    test::TemporaryFolder folder;
    const auto path = test::copyFixture("recording-no-udta.m4a", folder);
    const std::filesystem::path copy = folder.path() / "copy.m4a";
    std::filesystem::copy_file(path, copy);
    writeMetadata(Value::dictionary({{"title", "Same"}}), copy);

    CapturedLog log;
    QTDataEditor editor;
    editor.setTempSourceFilePath((folder.path() / "absent" / "source.m4a").string());
    EXPECT_TRUE(editor.addMetadata(Value::dictionary({{"title", "Same"}}), path));
    EXPECT_TRUE(log.contains("-[QTDataEditor addMetadata:toFileAtPath:]  Writing MetaData"));
    EXPECT_EQ(test::readFile(path), test::readFile(copy));

    const auto missing = folder.path() / "missing.m4a";
    EXPECT_TRUE(editor.addMetadata(Value::dictionary({{"title", "x"}}), missing));
    EXPECT_FALSE(std::filesystem::exists(missing));
}
