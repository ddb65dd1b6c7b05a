// In-place edits on real recordings: sizes of every enclosing atom, chunk
// offsets of the tracks after the edit, and the media still decoding.
#include <gtest/gtest.h>

#include <map>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/AtomTree.h"

using namespace quillora;

namespace {

using Sizes = std::vector<std::pair<std::string, std::int64_t>>;

std::map<std::string, std::int64_t> sizeMap(const Sizes& sizes)
{
    return {sizes.begin(), sizes.end()};
}

// Which atoms changed size, and by how much.
std::map<std::string, std::int64_t> sizeChanges(const Sizes& before, const Sizes& after)
{
    auto old = sizeMap(before);
    std::map<std::string, std::int64_t> changes;
    for (const auto& [path, size] : after) {
        auto it = old.find(path);
        if (it == old.end()) {
            changes[path] = size;  // a new atom
        } else if (it->second != size) {
            changes[path] = size - it->second;
        }
    }
    return changes;
}

// The bytes of the first 16 bytes of every chunk: an edit must leave every
// chunk offset pointing at the same media bytes.
std::vector<Bytes> chunkHeads(const std::filesystem::path& path)
{
    const Bytes bytes = test::readFile(path);
    std::vector<Bytes> heads;
    for (const auto& track : test::chunkOffsetsByTrack(path)) {
        for (auto offset : track.offsets) {
            EXPECT_LE(offset + 16, bytes.size());
            if (offset + 16 > bytes.size()) continue;
            heads.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                               bytes.begin() + static_cast<std::ptrdiff_t>(offset + 16));
        }
    }
    return heads;
}

std::int32_t offsetOf(const std::filesystem::path& path, std::initializer_list<std::uint32_t> atomPath)
{
    auto node = toolbox::readAtomTree(path).find(atomPath);
    EXPECT_TRUE(node.has_value());
    return node ? static_cast<std::int32_t>(node->offset) : -1;
}

class AtomEditing : public ::testing::TestWithParam<const char*> {
protected:
    std::filesystem::path copy(const std::string& name) { return test::copyFixture(name, folder); }
    test::TemporaryFolder folder;
    QTDataEditor editor;
};

}  // namespace

TEST_P(AtomEditing, AppendingToUdtaGrowsOnlyItsAncestorsAndShiftsChunksAfterIt)
{
    auto path = copy(GetParam());
    const auto sizesBefore = test::atomSizes(path);
    const auto chunksBefore = test::chunkOffsetsByTrack(path);
    const auto headsBefore = chunkHeads(path);
    const std::int32_t udta = offsetOf(path, {atom::moov, atom::udta});
    const auto udtaEnd = static_cast<std::uint64_t>(udta + sizeMap(sizesBefore).at("moov/udta"));

    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_EQ(editor.appendData(Bytes(10, 0xEE), udta, file), static_cast<std::int32_t>(udtaEnd));
    file.closeFile();

    EXPECT_EQ(sizeChanges(sizesBefore, test::atomSizes(path)),
              (std::map<std::string, std::int64_t>{{"moov", 10}, {"moov/udta", 10}}));
    const auto chunksAfter = test::chunkOffsetsByTrack(path);
    ASSERT_EQ(chunksAfter.size(), chunksBefore.size());
    for (std::size_t t = 0; t < chunksAfter.size(); ++t) {
        for (std::size_t i = 0; i < chunksAfter[t].offsets.size(); ++i) {
            auto old = chunksBefore[t].offsets[i];
            EXPECT_EQ(chunksAfter[t].offsets[i], old > udtaEnd ? old + 10 : old);
        }
    }
    EXPECT_EQ(chunkHeads(path), headsBefore);
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}

TEST_P(AtomEditing, AppendingAChildThenRemovingItGivesBackTheOriginalFile)
{
    auto path = copy(GetParam());
    const Bytes original = test::readFile(path);
    const std::int32_t moov = offsetOf(path, {atom::moov});

    FileHandle file(path, FileHandle::Mode::Updating);
    const Bytes child = editor.createAtomOfType(fourCC("free"), Bytes(100, 0));
    std::int32_t childPosition = -1;
    EXPECT_EQ(editor.appendChildAtom(child, moov, file, childPosition), 1);
    EXPECT_EQ(childPosition, moov + static_cast<std::int32_t>(readU32BE(original.data() + moov)));

    // The child is moov's last child and the file still plays.
    file.writePendingEdits();
    auto tree = toolbox::readAtomTree(path);
    EXPECT_TRUE(tree.problems.empty());
    auto children = tree.childrenOf(*tree.find({atom::moov}));
    EXPECT_EQ(children.back().offset, childPosition);
    EXPECT_EQ(children.back().size, 108);
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");

    EXPECT_TRUE(editor.removeAtomAtOffset(childPosition, file));
    file.closeFile();
    EXPECT_EQ(test::readFile(path), original);
}

TEST_P(AtomEditing, RemovingATopLevelFreeAtomKeepsTheFilePlayable)
{
    auto path = copy(GetParam());
    const auto headsBefore = chunkHeads(path);
    const auto sizesBefore = test::atomSizes(path);
    const std::int32_t freeAtom = offsetOf(path, {atom::free});

    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_TRUE(editor.removeAtomAtOffset(freeAtom, file));
    file.closeFile();

    auto changes = sizeChanges(test::atomSizes(path), sizesBefore);
    EXPECT_EQ(changes, (std::map<std::string, std::int64_t>{{"free", 8}}));
    EXPECT_EQ(chunkHeads(path), headsBefore);
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}

INSTANTIATE_TEST_SUITE_P(BothLayouts, AtomEditing,
                         ::testing::Values("recording-chunks-moov-first.m4a", "recording-chunks-moov-last.m4a",
                                           "recording-moov-first.m4a", "recording-moov-last.m4a"),
                         [](const ::testing::TestParamInfo<const char*>& fixture) {
                             std::string name = fixture.param;
                             name = name.substr(0, name.find('.'));
                             for (auto& c : name) {
                                 if (c == '-') c = '_';
                             }
                             return name;
                         });

TEST(AtomRemoval, A24ByteAtomShrinksItsAncestorsAndLowersLaterChunkOffsets)
{
    test::TemporaryFolder folder;
    auto path = test::copyFixture("recording-iods.m4a", folder);
    const auto sizesBefore = test::atomSizes(path);
    const auto chunksBefore = test::chunkOffsetsByTrack(path);
    const auto headsBefore = chunkHeads(path);
    const std::int32_t iods = offsetOf(path, {atom::moov, atom::iods});
    ASSERT_EQ(sizeMap(sizesBefore).at("moov/iods"), 24);

    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_TRUE(editor.removeAtomAtOffset(iods, file));
    file.closeFile();

    auto after = sizeMap(test::atomSizes(path));
    EXPECT_FALSE(after.count("moov/iods"));
    EXPECT_EQ(after.at("moov"), sizeMap(sizesBefore).at("moov") - 24);
    auto chunksAfter = test::chunkOffsetsByTrack(path);
    for (std::size_t i = 0; i < chunksBefore[0].offsets.size(); ++i) {
        EXPECT_EQ(chunksAfter[0].offsets[i], chunksBefore[0].offsets[i] - 24);
    }
    EXPECT_EQ(chunkHeads(path), headsBefore);
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}

TEST(ChunkOffsets, EntryEqualToTheEditOffsetStaysAndOnlyFiveTracksMove)
{
    test::TemporaryFolder folder;
    auto path = test::copyFixture("recording-six-tracks.m4a", folder);
    const auto before = test::chunkOffsetsByTrack(path);
    ASSERT_EQ(before.size(), 6u);
    ASSERT_GE(before[0].offsets.size(), 2u);
    const auto edit = static_cast<std::int32_t>(before[0].offsets[1]);

    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_TRUE(editor.updateSTCOAtomsInFile(file, edit, 7, true));
    file.closeFile();

    const auto after = test::chunkOffsetsByTrack(path);
    for (std::size_t t = 0; t < 6; ++t) {
        for (std::size_t i = 0; i < before[t].offsets.size(); ++i) {
            const auto old = before[t].offsets[i];
            const bool moves = t < 5 && old > static_cast<std::uint64_t>(edit);
            EXPECT_EQ(after[t].offsets[i], moves ? old + 7 : old) << "track " << t + 1 << " chunk " << i;
        }
    }
    EXPECT_EQ(after[0].offsets[1], before[0].offsets[1]);
    EXPECT_EQ(after[5].offsets, before[5].offsets);
}

TEST(ChunkOffsets, A64BitTableIsNeverAdjusted)
{
    test::TemporaryFolder folder;
    auto path = test::copyFixture("recording-moov-first.m4a", folder);
    // Turn the track's table into a co64 of the same length: two 32-bit
    // entries read as one 64-bit entry is fine for this purpose.
    Bytes bytes = test::readFile(path);
    const auto stco = static_cast<std::size_t>(
        offsetOf(path, {atom::moov, atom::trak, atom::mdia, atom::minf, atom::stbl, atom::stco}));
    std::copy_n("co64", 4, bytes.begin() + static_cast<std::ptrdiff_t>(stco + 4));
    test::writeFile(path, bytes);

    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_TRUE(editor.updateSTCOAtomsInFile(file, 0, 1000, true));
    file.closeFile();
    EXPECT_EQ(test::readFile(path), bytes);
}

TEST(ParentSizes, GrowthBelowMetaStopsAtMeta)
{
    // ffmpeg's encoder tag lives in moov/udta/meta/ilst/(c)too. Growing the
    // item grows moov, udta and meta; ilst is below the full atom meta,
    // whose version word ends the descent.
    test::TemporaryFolder folder;
    auto path = test::copyFixture("recording-moov-last.m4a", folder);
    const auto before = test::atomSizes(path);
    const std::int32_t item = offsetOf(path, {atom::moov, atom::udta, atom::meta, atom::ilst, 0xA9746F6F});

    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    editor.appendData(Bytes(5, 0), item, file);
    file.closeFile();

    // The item wrote its own new size; ilst kept its old one, so the item
    // now overruns it and a careful reader no longer sees it.
    const Bytes bytes = test::readFile(path);
    EXPECT_EQ(readU32BE(bytes.data() + item), 37u + 5u);
    EXPECT_EQ(sizeChanges(before, test::atomSizes(path)),
              (std::map<std::string, std::int64_t>{{"moov", 5}, {"moov/udta", 5}, {"moov/udta/meta", 5}}));
}

TEST(ParentSizes, DebugLinesNameTheMethodAndShowTheSearchResultNotTheOffset)
{
    test::TemporaryFolder folder;
    auto path = test::copyFixture("recording-moov-last.m4a", folder);
    const std::int32_t freeAtom = offsetOf(path, {atom::free});
    QTDataEditor editor;
    editor.setAtomDebugging(true);
    FileHandle file(path, FileHandle::Mode::Updating);
    std::int32_t child = 0;
    CapturedLog log;
    editor.appendChildAtom(editor.createAtomOfType(atom::free, {}), offsetOf(path, {atom::moov}), file, child);
    editor.removeAtomAtOffset(freeAtom, file);
    editor.removeAtomAtOffset(offsetOf(path, {atom::moov, atom::udta}), file);
    EXPECT_TRUE(log.contains("-[QTDataEditor createAtomOfType:withData:]  Creating atom of type free"));
    EXPECT_TRUE(log.contains("-[QTDataEditor appendChildAtom:toParentAtOffset:inFile:childPosition:]  Appending child "
                             "atom of size 8 to parent at offset"));
    EXPECT_TRUE(log.contains("-[QTDataEditor updateParentSize:forChildAtOffset:inFile:addition:]  Parent found at 1"));
    EXPECT_TRUE(log.contains("-[QTDataEditor removeAtomAtOffset:inFile:]  Removing atom at offset 28..."));
    EXPECT_TRUE(log.contains("-[QTDataEditor updateSTCOAtomsInFile:editOffset:withNewOffet:addition:]  Updating stco "
                             "atoms with new offset... 8"));
}

TEST(LastAtom, AnswersForTheFinalTopLevelAtomOnly)
{
    QTDataEditor editor;
    editor.setSourceFileHandle(
        std::make_shared<FileHandle>(test::fixture("recording-moov-last.m4a"), FileHandle::Mode::Reading));
    EXPECT_TRUE(editor.isLastAtomInFile(atom::moov, 1));
    EXPECT_FALSE(editor.isLastAtomInFile(atom::mdat, 1));
    EXPECT_FALSE(editor.isLastAtomInFile(atom::moov, 2));
    editor.setSourceFileHandle(
        std::make_shared<FileHandle>(test::fixture("recording-moov-first.m4a"), FileHandle::Mode::Reading));
    EXPECT_TRUE(editor.isLastAtomInFile(atom::mdat, 1));
    EXPECT_FALSE(editor.isLastAtomInFile(atom::moov, 1));
}

TEST(TailMove, ATinyBufferGivesTheSameBytesAsTheDefaultOne)
{
    test::TemporaryFolder folder;
    auto small = test::copyFixture("recording-chunks-moov-first.m4a", folder);
    auto large = folder.path() / "large.m4a";
    std::filesystem::copy_file(small, large);
    const Bytes child = QTDataEditor().createAtomOfType(fourCC("free"), Bytes(333, 7));

    for (const auto& [path, buffer] :
         {std::pair{small, std::size_t{7}}, std::pair{large, FileHandle::kDefaultMoveBufferSize}}) {
        QTDataEditor editor;
        FileHandle file(path, FileHandle::Mode::Updating);
        file.setMoveBufferSize(buffer);
        std::int32_t position = 0;
        editor.appendChildAtom(child, offsetOf(path, {atom::moov}), file, position);
        editor.removeAtomAtOffset(offsetOf(path, {atom::moov, atom::udta}), file);
        file.closeFile();
    }
    EXPECT_EQ(test::readFile(small), test::readFile(large));
    EXPECT_EQ(test::ffmpegDecodeErrors(small), "");
}

TEST(BadInput, EditsOnDamagedHeadersEndWithoutDamageOrCrash)
{
    test::TemporaryFolder folder;
    auto path = folder.path() / "damaged.mov";
    // An atom claiming a negative size, then a truncated header.
    const Bytes bytes = {0xFF, 0xFF, 0xFF, 0xF0, 'f', 'r', 'e', 'e', 0, 0, 0, 16, 'm', 'o'};
    test::writeFile(path, bytes);
    QTDataEditor editor;
    FileHandle file(path, FileHandle::Mode::Updating);
    EXPECT_FALSE(editor.removeAtomAtOffset(0, file));
    EXPECT_FALSE(editor.removeAtomAtOffset(8, file));
    EXPECT_EQ(editor.appendData(Bytes{1}, 8, file), -1);
    EXPECT_EQ(editor.appendData(Bytes{1}, 0, file), -1);  // its end lies before the start of the file
    EXPECT_EQ(editor.appendData(Bytes{1}, 1000, file), -1);
    std::int32_t child = 99;
    editor.appendChildAtom(Bytes{0, 0, 0, 8, 'f', 'r', 'e', 'e'}, 8, file, child);
    EXPECT_EQ(child, 99);
    EXPECT_TRUE(editor.updateParentSize(4, 3, file, true));
    EXPECT_TRUE(editor.updateSTCOAtomsInFile(file, 0, 4, true));
    file.closeFile();
    EXPECT_EQ(test::readFile(path), bytes);
}

TEST(BadInput, IOFailuresSurfaceAsTheFileHandlesException)
{
    test::TemporaryFolder folder;
    auto path = test::copyFixture("recording-moov-first.m4a", folder);
    const Bytes original = test::readFile(path);
    QTDataEditor editor;
    std::int32_t child = 0;
    {
        // Opened for reading only: the first write fails and nothing changed.
        FileHandle readOnly(path, FileHandle::Mode::Reading);
        EXPECT_THROW(editor.appendChildAtom(Bytes(8, 0), 28, readOnly, child), FileError);
    }
    EXPECT_EQ(test::readFile(path), original);

    // A full disk, found when the edits are written.
    FileHandle full("/dev/full", FileHandle::Mode::Updating);
    try {
        full.insertBytes(0, Bytes(16, 1));
        full.closeFile();
        FAIL() << "writing to a full device succeeded";
    } catch (const FileError& error) {
        EXPECT_EQ(error.code().value(), ENOSPC);
    }
}
