#include "foundation/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "foundation/NotificationCenter.h"
#include "foundation/RunLoop.h"

namespace quillora {

FileHandle::FileHandle(const std::filesystem::path& path, Mode mode) : path_(path)
{
    int flags = (mode == Mode::Reading ? O_RDONLY : O_RDWR) | O_CLOEXEC;
    if (mode == Mode::Creating) flags |= O_CREAT | O_TRUNC;
    fd_ = ::open(path.c_str(), flags, 0644);
    if (fd_ < 0) fail("open");
}

FileHandle::FileHandle(FileHandle&& other) noexcept
    : path_(std::move(other.path_)), fd_(other.fd_), position_(other.position_), moveBufferSize_(other.moveBufferSize_)
{
    other.fd_ = -1;
}

FileHandle::~FileHandle()
{
    if (fd_ >= 0) ::close(fd_);
}

void FileHandle::fail(const char* operation) const
{
    int error = errno;
    throw FileError(error, std::string(operation) + " " + path_.string());
}

void FileHandle::requireOpen() const
{
    if (fd_ < 0) throw FileError(EBADF, "file handle already closed: " + path_.string());
}

void FileHandle::seekToFileOffset(std::int64_t offset)
{
    requireOpen();
    if (offset < 0) throw FileError(EINVAL, "seek to a negative offset in " + path_.string());
    position_ = offset;
}

std::int64_t FileHandle::length() const
{
    requireOpen();
    struct stat info {};
    if (::fstat(fd_, &info) != 0) fail("stat");
    return info.st_size;
}

std::int64_t FileHandle::seekToEndOfFile()
{
    position_ = length();
    return position_;
}

std::size_t FileHandle::readSome(std::int64_t offset, std::uint8_t* data, std::size_t length)
{
    std::size_t done = 0;
    while (done < length) {
        ssize_t n = ::pread(fd_, data + done, length - done, offset + static_cast<std::int64_t>(done));
        if (n < 0) {
            if (errno == EINTR) continue;
            fail("read");
        }
        if (n == 0) break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

void FileHandle::readFully(std::int64_t offset, std::uint8_t* data, std::size_t length)
{
    if (readSome(offset, data, length) != length) throw FileError(EIO, "short read in " + path_.string());
}

void FileHandle::writeFully(std::int64_t offset, const std::uint8_t* data, std::size_t length)
{
    std::size_t done = 0;
    while (done < length) {
        ssize_t n = ::pwrite(fd_, data + done, length - done, offset + static_cast<std::int64_t>(done));
        if (n < 0) {
            if (errno == EINTR) continue;
            fail("write");
        }
        if (n == 0) throw FileError(EIO, "write made no progress in " + path_.string());
        done += static_cast<std::size_t>(n);
    }
}

Bytes FileHandle::readDataOfLength(std::size_t length)
{
    requireOpen();
    std::int64_t available = std::max<std::int64_t>(0, this->length() - position_);
    Bytes data(std::min<std::size_t>(length, static_cast<std::size_t>(available)));
    data.resize(readSome(position_, data.data(), data.size()));
    position_ += static_cast<std::int64_t>(data.size());
    return data;
}

Bytes FileHandle::readDataToEndOfFile()
{
    requireOpen();
    std::int64_t available = std::max<std::int64_t>(0, length() - position_);
    return readDataOfLength(static_cast<std::size_t>(available));
}

void FileHandle::writeData(std::span<const std::uint8_t> data)
{
    requireOpen();
    writeFully(position_, data.data(), data.size());
    position_ += static_cast<std::int64_t>(data.size());
}

void FileHandle::truncateFileAtOffset(std::int64_t offset)
{
    requireOpen();
    if (offset < 0) throw FileError(EINVAL, "truncate at a negative offset in " + path_.string());
    if (::ftruncate(fd_, offset) != 0) fail("truncate");
    position_ = offset;
}

void FileHandle::synchronizeFile()
{
    requireOpen();
    if (::fsync(fd_) != 0) fail("synchronize");
}

void FileHandle::closeFile()
{
    if (fd_ < 0) return;
    int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) fail("close");
}

void FileHandle::insertBytes(std::int64_t offset, std::span<const std::uint8_t> data)
{
    requireOpen();
    if (offset < 0) throw FileError(EINVAL, "insert at a negative offset in " + path_.string());
    const std::int64_t oldLength = length();
    const auto gap = static_cast<std::int64_t>(data.size());
    if (offset >= oldLength) {
        if (offset > oldLength) truncateFileAtOffset(offset);
    } else if (gap > 0) {
        // Grow first so a full disk fails before anything has moved, then
        // copy the tail from its end backwards: each block lands beyond
        // bytes still to be read.
        if (::ftruncate(fd_, oldLength + gap) != 0) fail("truncate");
        std::vector<std::uint8_t> buffer(
            std::min<std::int64_t>(static_cast<std::int64_t>(moveBufferSize_), oldLength - offset));
        std::int64_t end = oldLength;
        while (end > offset) {
            auto block = std::min<std::int64_t>(static_cast<std::int64_t>(buffer.size()), end - offset);
            std::int64_t start = end - block;
            readFully(start, buffer.data(), static_cast<std::size_t>(block));
            writeFully(start + gap, buffer.data(), static_cast<std::size_t>(block));
            end = start;
        }
    }
    writeFully(offset, data.data(), data.size());
    position_ = length();
}

void FileHandle::removeBytes(std::int64_t offset, std::int64_t count)
{
    requireOpen();
    if (offset < 0 || count < 0) throw FileError(EINVAL, "remove of a negative range in " + path_.string());
    const std::int64_t oldLength = length();
    if (count == 0 && offset <= oldLength) {
        position_ = oldLength;
        return;
    }
    if (offset + count >= oldLength) {
        truncateFileAtOffset(offset);
        position_ = offset;
        return;
    }
    std::vector<std::uint8_t> buffer(
        std::min<std::int64_t>(static_cast<std::int64_t>(moveBufferSize_), oldLength - offset - count));
    for (std::int64_t from = offset + count; from < oldLength;) {
        auto block = std::min<std::int64_t>(static_cast<std::int64_t>(buffer.size()), oldLength - from);
        readFully(from, buffer.data(), static_cast<std::size_t>(block));
        writeFully(from - count, buffer.data(), static_cast<std::size_t>(block));
        from += block;
    }
    truncateFileAtOffset(oldLength - count);
}

void FileHandle::waitForDataInBackgroundAndNotify()
{
    const void* self = this;
    RunLoop::current()->perform([self] {
        NotificationCenter::defaultCenter().post({kFileHandleDataAvailableNotification, self, Value()});
    });
}

}  // namespace quillora
