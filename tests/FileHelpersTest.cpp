// Whole-file helpers: picture formats from first bytes, the M4A file-type
// rewrite, free-space cleaning and locating a track.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/AtomTree.h"

using namespace quillora;

TEST(ImageType, RecognisesEveryFixtureAndTheSignatureOrder)
{
    const std::vector<std::pair<std::string, std::string>> fixtures = {
        {"slide.jpg", "JPEG"}, {"slide-exif.jpg", "JPEG"}, {"slide.png", "PNG"}, {"slide.tif", "TIFF"},
        {"slide.gif", "GIF"},  {"slide.bmp", "BMP"},       {"slide.psd", "PSD"}};
    for (const auto& [name, type] : fixtures) {
        EXPECT_EQ(QTDataEditor::getImageTypeFromFile(test::fixture(name)), type) << name;
    }

    test::TemporaryFolder folder;
    auto typeOf = [&](const Bytes& bytes) {
        auto path = folder.path() / "picture";
        test::writeFile(path, bytes);
        return QTDataEditor::getImageTypeFromFile(path);
    };
    EXPECT_EQ(typeOf({0xFF, 0xD8, 0xFF, 0xE1, 0, 0, 0, 0}), "JPEG");
    EXPECT_EQ(typeOf({0x4D, 0x4D, 'x', 'y', 'z', 0, 0, 0}), "TIFF");  // whatever follows
    EXPECT_EQ(typeOf({0x49, 0x49, 0, 0}), "TIFF");
    EXPECT_EQ(typeOf({'B', 'M', 0x89, 'P', 'N', 'G', 0, 0}), "BMP");
    EXPECT_EQ(typeOf({'P', 'l', 'a', 'i', 'n', ' ', 't', 'e', 'x', 't'}), std::nullopt);
    EXPECT_EQ(typeOf({}), std::nullopt);
    EXPECT_EQ(typeOf({'G', 'I'}), std::nullopt);
    EXPECT_EQ(QTDataEditor::getImageTypeFromFile(folder.path() / "missing.png"), std::nullopt);
}

TEST(ConvertMov, RewritesTheFileTypeAtFixedOffsetsOfACopy)
{
    test::TemporaryFolder folder;
    auto source = folder.path() / "movie.mov";
    ByteWriter movie;
    movie.putU32BE(32).putFourCC(fourCC("ftyp")).putFourCC(fourCC("qt  ")).putU32BE(0x200);
    movie.putFourCC(fourCC("qt  ")).putZeros(12);
    movie.putU32BE(16).putFourCC(fourCC("wide")).putZeros(8);
    test::writeFile(source, movie.bytes());
    auto destination = folder.path() / "audio.m4a";

    QTDataEditor editor;
    EXPECT_TRUE(editor.convertMovAtPath(source, destination));
    EXPECT_EQ(test::readFile(source), movie.bytes());

    ByteWriter expected;
    expected.putU32BE(32).putFourCC(fourCC("ftyp"));
    expected.putFourCC(fourCC("M4A ")).putU32BE(0).putFourCC(fourCC("M4A ")).putFourCC(fourCC("mp42"));
    expected.putFourCC(fourCC("isom")).putU32BE(0);
    expected.putU32BE(16).putFourCC(fourCC("moov")).putZeros(8);
    EXPECT_EQ(test::readFile(destination), expected.bytes());
}

TEST(CleanFreeAtoms, RemovesTheFirstFreeAfterMetaAndShrinksItsAncestors)
{
    test::TemporaryFolder folder;
    auto path = test::copyFixture("recording-moov-first.m4a", folder);
    const Bytes original = test::readFile(path);
    QTDataEditor editor;
    auto handle = std::make_shared<FileHandle>(path, FileHandle::Mode::Updating);
    editor.setSourceFileHandle(handle);

    // udta holds meta; put a 24-byte free after it, inside udta.
    auto udta = toolbox::readAtomTree(path).find({atom::moov, atom::udta});
    std::int32_t position = 0;
    editor.appendChildAtom(editor.createAtomOfType(atom::free, Bytes(16, 0)), static_cast<std::int32_t>(udta->offset),
                           *handle, position);
    handle->writePendingEdits();
    ASSERT_NE(test::readFile(path), original);

    CapturedLog log;
    EXPECT_TRUE(editor.cleanFreeAtoms());
    handle->writePendingEdits();
    EXPECT_EQ(test::readFile(path), original);
    EXPECT_TRUE(log.contains("-[QTDataEditor cleanFreeAtoms]  Cleaning free atoms..."));
    EXPECT_TRUE(log.contains("-[QTDataEditor cleanFreeAtoms]  Found free atoms in udta"));

    // No free atom below meta any more: the search runs on to the top-level
    // free after moov and removes that one.
    EXPECT_TRUE(editor.cleanFreeAtoms());
    handle->writePendingEdits();
    EXPECT_FALSE(toolbox::readAtomTree(path).find({atom::free}));
    EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
}

TEST(CleanFreeAtoms, AFileWithoutUdtaAnswersNo)
{
    QTDataEditor editor;
    editor.setSourceFileHandle(
        std::make_shared<FileHandle>(test::fixture("recording-no-udta.m4a"), FileHandle::Mode::Reading));
    EXPECT_FALSE(editor.cleanFreeAtoms());
}

TEST(CopyTrakAtoms, OnlyPositionsTheSourceHandleAtTheSecondTrack)
{
    const auto path = test::fixture("recording-chunks-moov-first.m4a");
    const Bytes original = test::readFile(path);
    QTDataEditor editor;
    auto source = std::make_shared<FileHandle>(path, FileHandle::Mode::Reading);
    editor.setSourceFileHandle(source);
    FileHandle destination(test::fixture("recording-moov-last.m4a"), FileHandle::Mode::Reading);
    EXPECT_TRUE(editor.copyTRAKAtomsFromFile(*source, 0, destination));

    auto tree = toolbox::readAtomTree(path);
    auto traks = tree.childrenOf(*tree.find({atom::moov}));
    std::erase_if(traks, [](const auto& node) { return node.type != atom::trak; });
    ASSERT_EQ(traks.size(), 2u);
    EXPECT_EQ(source->offsetInFile(), traks[1].offset);
    EXPECT_EQ(test::readFile(path), original);
    EXPECT_TRUE(editor.readiTunesMetadata().asDictionary()->empty());
}
