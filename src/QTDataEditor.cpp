#include "QTDataEditor.h"

#include <system_error>

#include "foundation/Log.h"

namespace quillora {

QTDataEditor::QTDataEditor() = default;

void QTDataEditor::setTempProcessingFolderPath(const std::string& path)
{
    if (path == tempProcessingFolderPath_) return;
    tempProcessingFolderPath_ = path;
    if (path.empty()) return;
    std::error_code ignored;
    std::filesystem::create_directories(path, ignored);
}

void QTDataEditor::setTempSourceFilePath(const std::string& path)
{
    if (path == tempSourceFilePath_) return;
    tempSourceFilePath_ = path;
    if (path.empty()) return;
    auto folder = std::filesystem::path(path).parent_path();
    if (folder.empty()) return;
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
}

FileHandle& QTDataEditor::requireSourceFileHandle() const
{
    if (!sourceFileHandle_) throw FileError(EBADF, "the editor has no source file handle");
    return *sourceFileHandle_;
}

std::optional<QTDataEditor::AtomHeader> QTDataEditor::readAtomHeader(FileHandle& file, std::int32_t offset)
{
    if (offset < 0) return std::nullopt;
    file.seekToFileOffset(offset);
    Bytes header = file.readDataOfLength(8);
    if (header.size() < 8) return std::nullopt;
    return AtomHeader{static_cast<std::int32_t>(readU32BE(header.data())), readU32BE(header.data() + 4)};
}

std::uint32_t QTDataEditor::scanLength(FileHandle& file)
{
    return static_cast<std::uint32_t>(file.seekToEndOfFile());
}

}  // namespace quillora
