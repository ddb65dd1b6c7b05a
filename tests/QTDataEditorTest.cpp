// The editor's construction and the setters that prepare folders.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"

using namespace quillora;

TEST(QTDataEditor, StartsQuietWithTheWildcardZeroAndPreparesFolders)
{
    QTDataEditor editor;
    EXPECT_FALSE(editor.atomDebugging());
    EXPECT_FALSE(editor.doneWritingFile());
    EXPECT_EQ(editor.kQTInfoAnyAtomType(), 0);
    EXPECT_EQ(editor.sourceFileHandle(), nullptr);

    test::TemporaryFolder folder;
    const auto scratch = folder.path() / "a" / "b" / "scratch";
    editor.setTempProcessingFolderPath(scratch.string());
    EXPECT_TRUE(std::filesystem::is_directory(scratch));

    const auto copy = folder.path() / "c" / "d" / "source.m4a";
    editor.setTempSourceFilePath(copy.string());
    EXPECT_TRUE(std::filesystem::is_directory(copy.parent_path()));
    EXPECT_FALSE(std::filesystem::exists(copy));

    editor.acceptDataAvailableNotification();
    EXPECT_TRUE(editor.doneWritingFile());
}
