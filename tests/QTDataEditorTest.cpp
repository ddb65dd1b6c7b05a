// The editor's setters that prepare folders, and the notification that ends a write.
#include <gtest/gtest.h>

#include "QTDataEditor.h"
#include "TestSupport.h"

using namespace quillora;

TEST(QTDataEditor, PreparesFoldersAndNotesTheEndOfAWrite)
{
    test::TemporaryFolder folder;
    QTDataEditor editor;
    const auto scratch = folder.path() / "a" / "b" / "scratch";
    editor.setTempProcessingFolderPath(scratch.string());
    EXPECT_TRUE(std::filesystem::is_directory(scratch));

    const auto copy = folder.path() / "c" / "d" / "source.m4a";
    editor.setTempSourceFilePath(copy.string());
    EXPECT_TRUE(std::filesystem::is_directory(copy.parent_path()));
    EXPECT_FALSE(std::filesystem::exists(copy));

    EXPECT_FALSE(editor.doneWritingFile());
    editor.acceptDataAvailableNotification();
    EXPECT_TRUE(editor.doneWritingFile());
}
