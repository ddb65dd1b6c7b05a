// An open file, RAII over a POSIX descriptor, with the operations the editor
// uses. Every I/O failure throws FileError; nothing is reported as success
// after a failed read, write or truncate.
//
// Cuts and gaps opened or closed (insertBytes / removeBytes), and the writes
// made while any is pending, do not reach the file at once: the handle keeps
// them pending (PendingEdits), every read sees them, and the file is rewritten
// once, moving each range of it at most once through a fixed buffer, when the
// handle is closed or writePendingEdits() is called. So an editor that
// inserts a hundred times moves the media data once, and memory holds only
// the bytes it inserted. Writes while nothing is pending go straight to the
// file, so a file written from start to end streams. Copying from another
// file is left to the kernel where it can, a buffer's length at a time. Both
// report the bytes moved so far to the progress sink, once a buffer.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "foundation/Bytes.h"
#include "foundation/PendingEdits.h"

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
    // Pending bytes held in memory: insertions past this go to a side file
    // (an unnamed temporary beside the file); writes past four times this
    // are written out with the edits so far.
    static constexpr std::size_t kDefaultPendingLimit = 8 * 1024 * 1024;

    FileHandle(const std::filesystem::path& path, Mode mode);
    ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    static FileHandle forReading(const std::filesystem::path& path) { return FileHandle(path, Mode::Reading); }
    static FileHandle forUpdating(const std::filesystem::path& path) { return FileHandle(path, Mode::Updating); }
    // Copies the file to `to`, made anew (an existing file there is emptied first).
    static void copyFile(const std::filesystem::path& from, const std::filesystem::path& to,
                         std::size_t bufferSize = kDefaultMoveBufferSize);
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
    // Writes length bytes of source, from offset, at the position, as
    // writeData would; between files without pending edits the kernel copies
    // them, a buffer at a time.
    void writeDataFromFile(FileHandle& source, std::int64_t offset, std::int64_t length);
    void truncateFileAtOffset(std::int64_t offset);  // leaves the position at offset
    // Makes what has reached the file durable. Pending edits are not written
    // by it: they reach the file once, on closing.
    void synchronizeFile();
    // Writes the pending edits, then closes; the descriptor is closed even
    // when writing fails.
    void closeFile();
    // Rewrites the file with the pending edits (no synchronisation).
    void writePendingEdits();

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
    void setPendingLimit(std::size_t bytes) { pendingLimit_ = bytes; }

private:
    void readFully(int fd, std::int64_t offset, std::uint8_t* data, std::size_t length);
    std::size_t readSome(int fd, std::int64_t offset, std::uint8_t* data, std::size_t length);
    void writeFully(int fd, std::int64_t offset, const std::uint8_t* data, std::size_t length);
    bool openSideFile();
    void closeSideFile();
    PendingEdits& pendingEdits();
    void writeLimitedPendingEdits();
    bool copyInKernel(int from, std::int64_t fromOffset, std::int64_t to, std::size_t length);
    void copyRange(int from, std::int64_t fromOffset, std::int64_t to, std::int64_t length, std::size_t blockSize,
                   std::vector<std::uint8_t>& buffer);
    void requireOpen() const;
    [[noreturn]] void fail(const char* operation) const;
    // Also reported to the write-failure sink.
    [[noreturn]] void failWriting(const char* operation) const;

    std::filesystem::path path_;
    int fd_ = -1;
    Mode mode_;
    std::int64_t position_ = 0;
    std::size_t moveBufferSize_ = kDefaultMoveBufferSize;
    std::size_t pendingLimit_ = kDefaultPendingLimit;
    std::optional<PendingEdits> edits_;
    int sideFd_ = -1;
    std::int64_t sideLength_ = 0;
};

}  // namespace quillora
