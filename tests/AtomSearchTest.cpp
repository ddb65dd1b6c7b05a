// The search primitive: one linear walk along a chain of atom headers that
// does not stop at the end of a parent.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/AtomTree.h"

using namespace quillora;
using namespace quillora::test;

namespace {

// A header that declares any size, true or not.
Bytes header(std::uint32_t size, std::string_view type)
{
    return join({u32s({size}), chars(type)});
}

AtomLocation locationOf(const toolbox::AtomNode& node)
{
    return {static_cast<std::int32_t>(node.offset), static_cast<std::int32_t>(node.size)};
}

}  // namespace

TEST(AtomSearch, WalksChainsAndStopsOnBadSizesOrShortFiles)
{
    // ftyp 0-20, moov 20-32, mdat 32-40 (ending exactly at the end of the file).
    const Bytes chain = join({box("ftyp", {Bytes(12)}), box("moov", {Bytes(4)}), box("mdat", {})});
    const Bytes zeroSized = join({box("free", {Bytes(8)}), header(0, "zero"), box("moov", {})});
    Bytes damaged = join({header(4000, "free"), Bytes(4), box("moov", {})});
    damaged.resize(damaged.size() - 3);
    struct Case {
        const char* what;
        Bytes bytes;
        std::uint32_t type;  // 0 is the wildcard
        std::int32_t offset;
        int index;
        std::optional<AtomLocation> found;
    };
    const Case cases[] = {
        {"wildcard takes the first header", chain, 0, 20, 1, AtomLocation{20, 12}},
        {"wildcard only at index one", chain, 0, 0, 2, std::nullopt},
        {"an atom ending at the end of the file", chain, atom::mdat, 0, 1, AtomLocation{32, 8}},
        {"a type nobody has", chain, fourCC("nope"), 0, 1, std::nullopt},
        {"size zero ends the walk", zeroSized, atom::moov, 0, 1, std::nullopt},
        {"starting past the zero size", zeroSized, atom::moov, 24, 1, AtomLocation{24, 8}},
        {"a negative size ends the walk", join({header(0xFFFFFFF0u, "free"), box("moov", {})}), atom::moov, 0, 1,
         std::nullopt},
        {"a size beyond the file", damaged, atom::moov, 0, 1, std::nullopt},
        {"a truncated header", damaged, atom::moov, 12, 1, std::nullopt},
        {"a start beyond the end", chain, 0, 1 << 20, 1, std::nullopt},
        {"a negative start", chain, 0, -8, 1, std::nullopt},
        {"a file of three bytes", Bytes{0, 0, 8}, 0, 0, 1, std::nullopt},
    };
    TemporaryFolder folder;
    QTDataEditor editor;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        writeFile(folder.path() / "file.mov", c.bytes);
        FileHandle file(folder.path() / "file.mov", FileHandle::Mode::Reading);
        EXPECT_EQ(editor.findAtomOfType(c.type, c.offset, c.index, file), c.found);
    }
}

TEST(AtomSearch, CountsOneTypeAndWalksPastTheParentInRecordings)
{
    QTDataEditor editor;
    const auto sixTracks = fixture("recording-six-tracks.m4a");
    const auto tree = toolbox::readAtomTree(sixTracks);
    const auto moov = tree.find({atom::moov});
    std::vector<AtomLocation> traks;
    for (const auto& child : tree.childrenOf(*moov)) {
        if (child.type == atom::trak) traks.push_back(locationOf(child));
    }
    ASSERT_EQ(traks.size(), 6u);
    FileHandle file(sixTracks, FileHandle::Mode::Reading);
    const auto inMoov = static_cast<std::int32_t>(moov->offset + 8);  // mvhd first, walked over uncounted
    for (int index : {1, 2, 6}) {
        EXPECT_EQ(editor.findAtomOfType(atom::trak, inMoov, index, file), traks[static_cast<std::size_t>(index) - 1]);
    }
    EXPECT_FALSE(editor.findAtomOfType(atom::trak, inMoov, 7, file));

    // From inside the first track of a moov-first file: moov's udta (a later
    // sibling of the track, which has none) and the top-level mdat after moov.
    const auto moovFirst = fixture("recording-moov-first.m4a");
    const auto layout = toolbox::readAtomTree(moovFirst);
    const auto inTrak = static_cast<std::int32_t>(layout.find({atom::moov, atom::trak})->offset + 8);
    FileHandle recording(moovFirst, FileHandle::Mode::Reading);
    EXPECT_EQ(editor.findAtomOfType(atom::udta, inTrak, 1, recording),
              locationOf(*layout.find({atom::moov, atom::udta})));
    EXPECT_EQ(editor.findAtomOfType(atom::mdat, inTrak, 1, recording), locationOf(*layout.find({atom::mdat})));
}

TEST(AtomSearch, SourceHandleTwinLogsOnlyWhenDebugging)
{
    TemporaryFolder folder;
    writeFile(folder.path() / "file.mov", join({box("ftyp", {Bytes(4)}), box("moov", {})}));
    QTDataEditor editor;
    editor.setSourceFileHandle(std::make_shared<FileHandle>(folder.path() / "file.mov", FileHandle::Mode::Reading));
    {
        CapturedLog quiet;
        EXPECT_TRUE(editor.findAtomOfType(atom::moov, 0, 1));
        EXPECT_TRUE(quiet.lines().empty());
    }
    editor.setAtomDebugging(true);
    CapturedLog log;
    EXPECT_TRUE(editor.findAtomOfType(atom::moov, 0, 1));
    const std::string twin = "-[QTDataEditor findAtomOfType:withOffset:andIndex:toIndex:atomSize:]  ";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{twin + "Searching for atom of type moov with a offset of 0...",
                                                     twin + "Atom of type ftyp at offset 0 with size 12 ",
                                                     twin + "Atom of type moov at offset 12 with size 8 ",
                                                     twin + "Found atom of type moov at offset 12 of size 8"}));
    // A miss walks the same chain and says so.
    EXPECT_FALSE(editor.findAtomOfType(atom::mdat, 0, 1));
    EXPECT_EQ(log.lines().size(), 8u);
    EXPECT_EQ(log.lines().back(), twin + "Read to the end.");
}

TEST(AtomSize, IsTheFirstFourBytesOfABuiltAtomAsSigned)
{
    QTDataEditor editor;
    const Bytes atom = editor.createAtomOfType(fourCC("free"), Bytes{1, 2, 3});
    EXPECT_EQ(atom, (Bytes{0, 0, 0, 11, 'f', 'r', 'e', 'e', 1, 2, 3}));
    EXPECT_EQ(QTDataEditor::getSizeOfAtom(atom), 11);
    EXPECT_EQ(QTDataEditor::getSizeOfAtom(Bytes{0xFF, 0xFF, 0xFF, 0xFE}), -2);
}
