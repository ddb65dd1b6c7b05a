// An open file, RAII over a POSIX descriptor, with the operations the editor
// uses. Every I/O failure throws FileError; nothing is reported as success
// after a failed read, write or truncate.
//
// Moving a file's tail (to open a gap or close one) is one primitive here,
// insertBytes / removeBytes, streamed through a fixed buffer so that memory
// does not grow with the file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <system_error>

#include "foundation/Bytes.h"

namespace quillora {

class FileError : public std::system_error {
public:
    FileError(int error, const std::string& what) : std::system_error(error, std::generic_category(), what) {}
};

class FileHandle {
public:
    // Creating makes a new empty file, or empties an existing one, for updating.
    enum class Mode { Reading, Updating, Creating };

    static constexpr std::size_t kDefaultMoveBufferSize = 4 * 1024 * 1024;

    FileHandle(const std::filesystem::path& path, Mode mode);
    ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    static FileHandle forReading(const std::filesystem::path& path) { return FileHandle(path, Mode::Reading); }
    static FileHandle forUpdating(const std::filesystem::path& path) { return FileHandle(path, Mode::Updating); }
    FileHandle(FileHandle&& other) noexcept;

    const std::filesystem::path& path() const { return path_; }
    bool isOpen() const { return fd_ >= 0; }

    // Position-based calls, as the editor's algorithms are written.
    void seekToFileOffset(std::int64_t offset);
    std::int64_t seekToEndOfFile();  // returns the length
    std::int64_t offsetInFile() const { return position_; }
    Bytes readDataOfLength(std::size_t length);  // fewer bytes at the end of the file
    Bytes readDataToEndOfFile();
    void writeData(std::span<const std::uint8_t> data);
    void truncateFileAtOffset(std::int64_t offset);  // leaves the position at offset
    void synchronizeFile();
    void closeFile();

    std::int64_t length() const;

    // Opens a gap of data.size() bytes at offset and fills it with data; an
    // offset past the end first extends the file with zeros. The position is
    // left at the end of the file.
    void insertBytes(std::int64_t offset, std::span<const std::uint8_t> data);
    // Closes the gap of count bytes at offset; a range that runs past the end
    // cuts the file at offset. The position is left at the end of the file.
    void removeBytes(std::int64_t offset, std::int64_t count);

    // Asks for kFileHandleDataAvailableNotification, with this handle as its
    // object, on the calling thread's run loop. A regular file always has
    // data, so it is posted the next time that thread runs its loop.
    void waitForDataInBackgroundAndNotify();

    void setMoveBufferSize(std::size_t size) { moveBufferSize_ = size == 0 ? 1 : size; }

private:
    void readFully(std::int64_t offset, std::uint8_t* data, std::size_t length);
    std::size_t readSome(std::int64_t offset, std::uint8_t* data, std::size_t length);
    void writeFully(std::int64_t offset, const std::uint8_t* data, std::size_t length);
    void requireOpen() const;
    [[noreturn]] void fail(const char* operation) const;

    std::filesystem::path path_;
    int fd_ = -1;
    std::int64_t position_ = 0;
    std::size_t moveBufferSize_ = kDefaultMoveBufferSize;
};

}  // namespace quillora
