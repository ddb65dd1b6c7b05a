// The search primitive: one linear walk along a chain of atom headers that
// does not stop at the end of a parent.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/AtomTree.h"

using namespace quillora;

namespace {

Bytes atomOf(const char (&type)[5], const Bytes& payload = {}, std::int64_t declaredSize = -1)
{
    ByteWriter w;
    w.putU32BE(static_cast<std::uint32_t>(declaredSize >= 0 ? declaredSize : payload.size() + 8));
    w.putString(std::string_view(type, 4));
    w.putBytes(payload);
    return w.take();
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

class AtomSearch : public ::testing::Test {
protected:
    std::filesystem::path write(const Bytes& bytes)
    {
        auto path = folder.path() / ("file" + std::to_string(++count) + ".mov");
        test::writeFile(path, bytes);
        return path;
    }
    test::TemporaryFolder folder;
    QTDataEditor editor;
    int count = 0;
};

}  // namespace

TEST_F(AtomSearch, CountsOnlyTheRequestedTypeAcrossOtherAtoms)
{
    auto path = test::fixture("recording-six-tracks.m4a");
    auto tree = toolbox::readAtomTree(path);
    auto moov = tree.find({atom::moov});
    std::vector<toolbox::AtomNode> traks;
    for (const auto& child : tree.childrenOf(*moov)) {
        if (child.type == atom::trak) traks.push_back(child);
    }
    ASSERT_EQ(traks.size(), 6u);

    FileHandle file(path, FileHandle::Mode::Reading);
    // mvhd comes first; it is walked over without being counted.
    for (int index : {1, 2, 6}) {
        auto found = editor.findAtomOfType(atom::trak, static_cast<std::int32_t>(moov->offset + 8), index, file);
        ASSERT_TRUE(found) << index;
        EXPECT_EQ(found->offset, traks[static_cast<std::size_t>(index) - 1].offset);
        EXPECT_EQ(found->size, traks[static_cast<std::size_t>(index) - 1].size);
    }
    EXPECT_FALSE(editor.findAtomOfType(atom::trak, static_cast<std::int32_t>(moov->offset + 8), 7, file));
}

TEST_F(AtomSearch, WalksPastTheEndOfTheParentIntoLaterAtoms)
{
    // moov first: a search for mdat from inside the first track reaches the
    // top-level media data after moov; one for a type nobody has misses.
    auto path = test::fixture("recording-moov-first.m4a");
    auto tree = toolbox::readAtomTree(path);
    auto trak = tree.find({atom::moov, atom::trak});
    auto mdat = tree.find({atom::mdat});
    auto udta = tree.find({atom::moov, atom::udta});
    FileHandle file(path, FileHandle::Mode::Reading);

    auto found = editor.findAtomOfType(atom::mdat, static_cast<std::int32_t>(trak->offset + 8), 1, file);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->offset, mdat->offset);
    // The track holds no udta; the search finds moov's, a later sibling of the track.
    found = editor.findAtomOfType(atom::udta, static_cast<std::int32_t>(trak->offset + 8), 1, file);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->offset, udta->offset);
    EXPECT_FALSE(editor.findAtomOfType(fourCC("nope"), 0, 1, file));
}

TEST_F(AtomSearch, SizeZeroOrNegativeEndsTheWalkAndMissesLeaveNothing)
{
    const Bytes bytes = concat({atomOf("free", Bytes(8)), atomOf("zero", {}, 0), atomOf("moov")});
    FileHandle file(write(bytes), FileHandle::Mode::Reading);
    EXPECT_FALSE(editor.findAtomOfType(atom::moov, 0, 1, file));
    // Found directly when the walk starts past the zero-sized header.
    auto found = editor.findAtomOfType(atom::moov, 24, 1, file);
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, (AtomLocation{24, 8}));

    const Bytes negative = concat({atomOf("free", {}, 0xFFFFFFF0u), atomOf("moov")});
    FileHandle negativeFile(write(negative), FileHandle::Mode::Reading);
    EXPECT_FALSE(editor.findAtomOfType(atom::moov, 0, 1, negativeFile));
}

TEST_F(AtomSearch, WildcardMatchesTheFirstHeaderOnlyAtIndexOne)
{
    const Bytes bytes = concat({atomOf("ftyp", Bytes(12)), atomOf("moov", Bytes(4)), atomOf("mdat", Bytes(2))});
    FileHandle file(write(bytes), FileHandle::Mode::Reading);
    auto found = editor.findAtomOfType(static_cast<std::uint32_t>(editor.kQTInfoAnyAtomType()), 20, 1, file);
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, (AtomLocation{20, 12}));
    EXPECT_FALSE(editor.findAtomOfType(0, 0, 2, file));
}

TEST_F(AtomSearch, VisitsAnAtomEndingExactlyAtEndOfFileAndStopsOnShortOrDamagedFiles)
{
    // The last atom is 8 bytes and ends at the end of the file.
    const Bytes bytes = concat({atomOf("free", Bytes(4)), atomOf("moov")});
    FileHandle file(write(bytes), FileHandle::Mode::Reading);
    auto found = editor.findAtomOfType(atom::moov, 0, 1, file);
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, (AtomLocation{12, 8}));

    // A header that claims more than the file holds; a truncated header; a
    // start beyond the end; a negative start; a file of three bytes.
    Bytes truncated = concat({atomOf("free", Bytes(4), 4000), atomOf("moov")});
    truncated.resize(truncated.size() - 3);
    FileHandle damaged(write(truncated), FileHandle::Mode::Reading);
    EXPECT_FALSE(editor.findAtomOfType(atom::moov, 0, 1, damaged));
    EXPECT_FALSE(editor.findAtomOfType(atom::moov, 12, 1, damaged));
    EXPECT_FALSE(editor.findAtomOfType(atom::moov, 1 << 20, 1, file));
    EXPECT_FALSE(editor.findAtomOfType(atom::moov, -8, 1, file));
    FileHandle tiny(write(Bytes{0, 0, 8}), FileHandle::Mode::Reading);
    EXPECT_FALSE(editor.findAtomOfType(0, 0, 1, tiny));
}

TEST_F(AtomSearch, SourceHandleTwinAndDebugLogLines)
{
    const Bytes bytes = concat({atomOf("ftyp", Bytes(4)), atomOf("moov")});
    editor.setSourceFileHandle(std::make_shared<FileHandle>(write(bytes), FileHandle::Mode::Reading));
    {
        CapturedLog log;
        EXPECT_TRUE(editor.findAtomOfType(atom::moov, 0, 1));
        EXPECT_TRUE(log.lines().empty());
    }
    editor.setAtomDebugging(true);
    CapturedLog log;
    EXPECT_TRUE(editor.findAtomOfType(atom::moov, 0, 1));
    EXPECT_FALSE(editor.findAtomOfType(atom::mdat, 0, 1));
    const std::string twin = "-[QTDataEditor findAtomOfType:withOffset:andIndex:toIndex:atomSize:]  ";
    const std::vector<std::string> expected = {
        twin + "Searching for atom of type moov with a offset of 0...",
        twin + "Atom of type ftyp at offset 0 with size 12 ",
        twin + "Atom of type moov at offset 12 with size 8 ",
        twin + "Found atom of type moov at offset 12 of size 8",
        twin + "Searching for atom of type mdat with a offset of 0...",
        twin + "Atom of type ftyp at offset 0 with size 12 ",
        twin + "Atom of type moov at offset 12 with size 8 ",
        twin + "Read to the end.",
    };
    EXPECT_EQ(log.lines(), expected);
}

TEST(AtomSize, IsTheFirstFourBytesOfABuiltAtom)
{
    QTDataEditor editor;
    Bytes atom = editor.createAtomOfType(fourCC("free"), Bytes{1, 2, 3});
    EXPECT_EQ(atom, (Bytes{0, 0, 0, 11, 'f', 'r', 'e', 'e', 1, 2, 3}));
    EXPECT_EQ(QTDataEditor::getSizeOfAtom(atom), 11);
    EXPECT_EQ(QTDataEditor::getSizeOfAtom(Bytes{0xFF, 0xFF, 0xFF, 0xFE}), -2);
}
