// The item-list writer on real recordings: the atoms it leaves, byte for
// byte, the audio's chunk offsets, and what ffmpeg and mutagen read back.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"
#include "toolbox/AtomTree.h"

using namespace quillora;

using namespace quillora::test;

namespace {

// One item: a `data` atom of text type and locale 0 inside an atom of the key's type.
Bytes item(std::string_view type, std::string_view text)
{
    return box(type, {box("data", {u32s({1, 0}), chars(text)})});
}

// A new udta: meta (version and flags, the 34-byte handler), then the list.
Bytes expectedUdta(std::initializer_list<Bytes> items)
{
    const Bytes handler = box("hdlr", {u32s({0, 0}), chars("mdirappl"), u32s({0, 0}), Bytes(2)});
    return box("udta", {box("meta", {u32s({0}), handler, box("ilst", {join(items)})})});
}

// The udta below moov, which must be moov's last child.
Bytes movieUdta(const std::filesystem::path& path)
{
    const WrittenFile file(path);
    const auto moov = file.tree.find({atom::moov}).value_or(toolbox::AtomNode{});
    const auto children = file.tree.childrenOf(moov);
    EXPECT_TRUE(!children.empty() && children.back().type == atom::udta);
    return file.below(moov, {atom::udta});
}

// The first 16 bytes at every chunk offset: the edit must keep each one
// pointing at the same audio.
std::vector<Bytes> chunkHeads(const std::filesystem::path& path)
{
    const WrittenFile file(path);
    std::vector<Bytes> heads;
    for (const auto& trak : file.traks) {
        for (auto offset : file.table(trak, atom::stco)) heads.push_back(file.at(offset, 16));
    }
    return heads;
}

void writeMetadata(const Value& tags, const std::filesystem::path& path)
{
    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_TRUE(editor.addMetadata(tags, file, path.string()));
}

}  // namespace

TEST(MetadataWriter, CreatesTheContainersThenReplacesOnlyTheList)
{
    TemporaryFolder folder;
    const auto path = copyFixture("recording-no-udta.m4a", folder);
    const auto headsBefore = chunkHeads(path);
    // "Café" is 4 UTF-16 units but 5 UTF-8 bytes; "a" + U+1F600 is 3 units, 5 bytes.
    Value tags = valueFromJson(R"({"title": "Café", "tracknum": "3", "className": "Optics", "class name": "Physics 2",
                                   "software": "Other", "album": "a\ud83d\ude00"})");
    CapturedLog log;
    writeMetadata(tags, path);

    EXPECT_TRUE(log.contains("-[QTDataEditor addMetadata:toFile:path:]  Writing MetaData {"));
    EXPECT_EQ(tags.asDictionary()->entries()[4], (Dictionary::Entry{"software", "Quillora"}));
    EXPECT_EQ(movieUdta(path),
              expectedUdta({item("\251nam", "Caf\xC3"), item("trkn", "\x33"), item("tvsh", "Physics 2"),
                            item("\251swr", "Quillora"), item("\251alb", "a\xF0\x9F")}));

    // Unknown keys only, through the entry point that opens the file itself: the
    // new list holds the software item alone, under the same meta.
    QTDataEditor editor;
    editor.setTempSourceFilePath((folder.path() / "absent" / "source.m4a").string());
    EXPECT_TRUE(editor.addMetadata(Value::dictionary({{"classNumber", "101"}, {"speaker", "Ann"}}), path));
    EXPECT_TRUE(log.contains("-[QTDataEditor addMetadata:toFileAtPath:]  Writing MetaData"));
    EXPECT_TRUE(editor.addMetadata(Value::dictionary(), folder.path() / "missing.m4a"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "missing.m4a"));
    EXPECT_EQ(movieUdta(path), expectedUdta({item("\251swr", "Quillora")}));
    EXPECT_EQ(chunkHeads(path), headsBefore);
}

class MetadataWriterLayouts : public testing::TestWithParam<const char*> {};

// Movie atom before the audio (chunk offsets move) and after it, each with an
// existing list that the new one replaces.
TEST_P(MetadataWriterLayouts, KeepsTheAudioAndReadsBackWithMutagen)
{
    TemporaryFolder folder;
    const auto path = copyFixture(GetParam(), folder);
    const auto headsBefore = chunkHeads(path);
    writeMetadata(valueFromJson(R"({"title": "Lecture 4", "author": "Ann Lee", "copyright": "2024 Ann Lee",
                                    "university": "North College", "class name": "Physics"})"),
                  path);
    EXPECT_EQ(chunkHeads(path), headsBefore);
    EXPECT_EQ(ffmpegDecodeErrors(path), "");

    const std::string script = "import json, sys, mutagen.mp4\n"
                               "tags = mutagen.mp4.MP4(sys.argv[1]).tags\n"
                               "print(json.dumps({k: str(v[0]) for k, v in tags.items()}))\n";
    auto result = runCommand("/usr/bin/python3 -c " + shellQuote(script) + " " + shellQuote(path.string()) + " 2>&1");
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(valueFromJson(result.output),
              valueFromJson(R"({"©nam": "Lecture 4", "©ART": "Ann Lee", "©cpy": "2024 Ann Lee",
                                "tvnn": "North College", "tvsh": "Physics", "©swr": "Quillora"})"));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, MetadataWriterLayouts,
                         testing::Values("recording-moov-first.m4a", "recording-moov-last.m4a",
                                         "recording-chunks-moov-first.m4a", "recording-chunks-moov-last.m4a"));
