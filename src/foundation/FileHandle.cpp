#include "foundation/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "foundation/NotificationCenter.h"
#include "foundation/Progress.h"
#include "foundation/RunLoop.h"
#include "foundation/WriteFailures.h"

namespace quillora {

FileHandle::FileHandle(const std::filesystem::path& path, Mode mode) : path_(path), mode_(mode)
{
    int flags = (mode == Mode::Reading ? O_RDONLY : O_RDWR) | O_CLOEXEC;
    if (mode == Mode::Creating) flags |= O_CREAT | O_TRUNC;
    fd_ = ::open(path.c_str(), flags, 0644);
    if (fd_ < 0 && mode == Mode::Creating) failWriting("create");
    if (fd_ < 0) fail("open");
}

FileHandle::FileHandle(FileHandle&& other) noexcept
    : path_(std::move(other.path_)), fd_(other.fd_), mode_(other.mode_), position_(other.position_),
      moveBufferSize_(other.moveBufferSize_), pendingLimit_(other.pendingLimit_), edits_(std::move(other.edits_)),
      sideFd_(other.sideFd_), sideLength_(other.sideLength_)
{
    other.fd_ = -1;
    other.sideFd_ = -1;
    other.edits_.reset();
}

FileHandle::~FileHandle()
{
    if (fd_ < 0) return;
    // A handle dropped without closing (an editor that failed part-way)
    // still leaves its edits in the file, as if they had been written at once.
    try {
        writePendingEdits();
    } catch (const FileError&) {
        // Nothing can be reported from here; the file is as far as it got.
    }
    closeSideFile();
    ::close(fd_);
}

void FileHandle::fail(const char* operation) const
{
    int error = errno;
    throw FileError(error, std::string(operation) + " " + path_.string());
}

void FileHandle::failWriting(const char* operation) const
{
    const int error = errno;
    reportWriteFailure(path_, error);
    errno = error;
    fail(operation);
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
    if (edits_) return edits_->length();
    struct stat info {};
    if (::fstat(fd_, &info) != 0) fail("stat");
    return info.st_size;
}

std::int64_t FileHandle::seekToEndOfFile()
{
    position_ = length();
    return position_;
}

std::size_t FileHandle::readSome(int fd, std::int64_t offset, std::uint8_t* data, std::size_t length)
{
    std::size_t done = 0;
    while (done < length) {
        ssize_t n = ::pread(fd, data + done, length - done, offset + static_cast<std::int64_t>(done));
        if (n < 0) {
            if (errno == EINTR) continue;
            fail("read");
        }
        if (n == 0) break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

void FileHandle::readFully(int fd, std::int64_t offset, std::uint8_t* data, std::size_t length)
{
    if (readSome(fd, offset, data, length) != length) throw FileError(EIO, "short read in " + path_.string());
}

void FileHandle::writeFully(int fd, std::int64_t offset, const std::uint8_t* data, std::size_t length)
{
    std::size_t done = 0;
    while (done < length) {
        ssize_t n = ::pwrite(fd, data + done, length - done, offset + static_cast<std::int64_t>(done));
        if (n < 0) {
            if (errno == EINTR) continue;
            failWriting("write");
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
    if (edits_) {
        edits_->read(position_, data.data(), data.size(),
                     [this](PendingEdits::Source source, std::int64_t offset, std::uint8_t* into, std::size_t count) {
                         readFully(source == PendingEdits::Source::Side ? sideFd_ : fd_, offset, into, count);
                     });
    } else {
        data.resize(readSome(fd_, position_, data.data(), data.size()));
    }
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
    if (!edits_ && mode_ != Mode::Reading) {
        // Nothing pending: the bytes land where they would have landed.
        writeFully(fd_, position_, data.data(), data.size());
        position_ += static_cast<std::int64_t>(data.size());
        return;
    }
    pendingEdits().write(position_, data);
    position_ += static_cast<std::int64_t>(data.size());
    writeLimitedPendingEdits();
}

void FileHandle::truncateFileAtOffset(std::int64_t offset)
{
    requireOpen();
    if (offset < 0) throw FileError(EINVAL, "truncate at a negative offset in " + path_.string());
    if (edits_) {
        edits_->replace(offset, edits_->length() - offset, {});
    } else if (::ftruncate(fd_, offset) != 0) {
        // Nothing pending: the file is cut where it would have been.
        failWriting("truncate");
    }
    position_ = offset;
}

void FileHandle::synchronizeFile()
{
    requireOpen();
    if (edits_) return;
    if (::fsync(fd_) != 0) failWriting("synchronize");
}

void FileHandle::closeFile()
{
    if (fd_ < 0) return;
    int fd = fd_;
    try {
        writePendingEdits();
    } catch (const FileError&) {
        closeSideFile();
        fd_ = -1;
        ::close(fd);
        throw;
    }
    closeSideFile();
    fd_ = -1;
    if (::close(fd) != 0) failWriting("close");
}

PendingEdits& FileHandle::pendingEdits()
{
    // As the system would refuse the write itself.
    if (mode_ == Mode::Reading) throw FileError(EBADF, "write to a file opened for reading: " + path_.string());
    if (!edits_) edits_.emplace(length());
    return *edits_;
}

void FileHandle::writeLimitedPendingEdits()
{
    if (edits_ && edits_->bytesInMemory() > 4 * pendingLimit_) writePendingEdits();
}

// Moves length bytes within the file, or copies them from another; within
// the file the blocks go in the order that never overwrites bytes still to
// be read.
// From another file the kernel copies (copy_file_range), without the bytes
// passing through memory; where it cannot (file systems that do not take it
// across them, an older kernel) the buffer carries them.
bool FileHandle::copyInKernel(int from, std::int64_t fromOffset, std::int64_t to, std::size_t length)
{
    while (length > 0) {
        loff_t in = fromOffset;
        loff_t out = to;
        const ssize_t n = ::copy_file_range(from, &in, fd_, &out, length, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EXDEV || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL) return false;
            failWriting("copy into");
        }
        if (n == 0) throw FileError(EIO, "short read while copying into " + path_.string());
        fromOffset += n;
        to += n;
        length -= static_cast<std::size_t>(n);
    }
    return true;
}

// A block at a time; the buffer is made (blockSize long) only when the bytes
// pass through memory.
void FileHandle::copyRange(int from, std::int64_t fromOffset, std::int64_t to, std::int64_t length,
                           std::size_t blockSize, std::vector<std::uint8_t>& buffer)
{
    bool inKernel = from != fd_;
    for (std::int64_t done = 0; done < length;) {
        const std::int64_t block =
            std::min(static_cast<std::int64_t>(std::max<std::size_t>(blockSize, 1)), length - done);
        if (inKernel && copyInKernel(from, fromOffset + done, to + done, static_cast<std::size_t>(block))) {
            done += block;
            reportProgress(ProgressUnit::bytes, done, length);
            continue;
        }
        inKernel = false;
        if (buffer.size() < static_cast<std::size_t>(block)) buffer.resize(std::max<std::size_t>(blockSize, 1));
        const std::int64_t start = from != fd_ || to < fromOffset ? done : length - done - block;
        readFully(from, fromOffset + start, buffer.data(), static_cast<std::size_t>(block));
        writeFully(fd_, to + start, buffer.data(), static_cast<std::size_t>(block));
        done += block;
        reportProgress(ProgressUnit::bytes, done, length);
    }
}

// The ranges of the file keep their order, so a range moving towards the
// start can only land on ranges before it that move the same way, and one
// moving towards the end only on later ones that do: moving the first kind
// from the front and the second from the back never overwrites a range
// before it has moved. Bytes from memory go in last.
void FileHandle::writePendingEdits()
{
    requireOpen();
    if (!edits_) return;
    const PendingEdits edits = std::move(*edits_);
    edits_.reset();

    struct Placed {
        PendingEdits::Piece piece;
        std::int64_t at;
    };
    std::vector<Placed> placed;
    std::int64_t at = 0;
    std::int64_t largest = 1;
    for (const auto& piece : edits.pieces()) {
        placed.push_back({piece, at});
        at += piece.length;
        largest = std::max(largest, piece.length);
    }
    const std::int64_t oldLength = length();
    const std::int64_t newLength = edits.length();
    // Reserve the growth first so a full disk fails before anything has
    // moved; a file system (or device) that cannot reserve is simply written.
    if (newLength > oldLength && ::fallocate(fd_, 0, oldLength, newLength - oldLength) != 0 && errno != EOPNOTSUPP &&
        errno != ENODEV && errno != ENOSYS) {
        failWriting("reserve space for");
    }

    const auto blockSize =
        static_cast<std::size_t>(std::min<std::int64_t>(static_cast<std::int64_t>(moveBufferSize_), largest));
    std::vector<std::uint8_t> buffer;
    auto fromFile = [](const Placed& p) { return p.piece.source == PendingEdits::Source::File; };
    for (const Placed& p : placed) {
        if (fromFile(p) && p.at < p.piece.offset)
            copyRange(fd_, p.piece.offset, p.at, p.piece.length, blockSize, buffer);
    }
    for (auto p = placed.rbegin(); p != placed.rend(); ++p) {
        if (fromFile(*p) && p->at > p->piece.offset)
            copyRange(fd_, p->piece.offset, p->at, p->piece.length, blockSize, buffer);
    }
    for (const Placed& p : placed) {
        if (p.piece.source == PendingEdits::Source::Memory) {
            const auto bytes = edits.memory(p.piece);
            writeFully(fd_, p.at, bytes.data(), bytes.size());
        } else if (p.piece.source == PendingEdits::Source::Side) {
            copyRange(sideFd_, p.piece.offset, p.at, p.piece.length, blockSize, buffer);
        } else if (p.piece.source == PendingEdits::Source::Zeros) {
            buffer.assign(std::max<std::size_t>(blockSize, 1), 0);
            for (std::int64_t done = 0; done < p.piece.length;) {
                const auto block =
                    std::min<std::int64_t>(static_cast<std::int64_t>(buffer.size()), p.piece.length - done);
                writeFully(fd_, p.at + done, buffer.data(), static_cast<std::size_t>(block));
                done += block;
            }
        }
    }
    if (newLength < oldLength && ::ftruncate(fd_, newLength) != 0) failWriting("truncate");
    if (sideLength_ > 0) {
        sideLength_ = 0;
        if (::ftruncate(sideFd_, 0) != 0) failWriting("truncate the side file of");
    }
}

// Unnamed from the start, so nothing is left behind whatever happens.
bool FileHandle::openSideFile()
{
    if (sideFd_ >= 0) return true;
    std::string name = (path_.parent_path() / ("." + path_.filename().string() + ".edits-XXXXXX")).string();
    sideFd_ = ::mkostemp(name.data(), O_CLOEXEC);
    if (sideFd_ < 0) return false;
    ::unlink(name.c_str());
    return true;
}

void FileHandle::closeSideFile()
{
    if (sideFd_ >= 0) ::close(sideFd_);
    sideFd_ = -1;
    sideLength_ = 0;
}

void FileHandle::insertBytes(std::int64_t offset, std::span<const std::uint8_t> data)
{
    requireOpen();
    if (offset < 0) throw FileError(EINVAL, "insert at a negative offset in " + path_.string());
    PendingEdits& edits = pendingEdits();
    if (edits.bytesInMemory() + data.size() > pendingLimit_ && !data.empty() && openSideFile()) {
        writeFully(sideFd_, sideLength_, data.data(), data.size());
        edits.insertFromSideFile(offset, sideLength_, static_cast<std::int64_t>(data.size()));
        sideLength_ += static_cast<std::int64_t>(data.size());
    } else {
        edits.replace(offset, 0, data);
    }
    position_ = length();
    writeLimitedPendingEdits();
}

void FileHandle::removeBytes(std::int64_t offset, std::int64_t count)
{
    requireOpen();
    if (offset < 0 || count < 0) throw FileError(EINVAL, "remove of a negative range in " + path_.string());
    if (count > 0 || offset > length()) pendingEdits().replace(offset, count, {});
    position_ = length();
}

void FileHandle::writeDataFromFile(FileHandle& source, std::int64_t offset, std::int64_t length)
{
    requireOpen();
    source.requireOpen();
    if (offset < 0 || length < 0) throw FileError(EINVAL, "copy a negative range of " + source.path_.string());
    if (edits_ || source.edits_ || mode_ == Mode::Reading) {
        // Through the pending edits, which every read and write here must see.
        for (std::int64_t done = 0; done < length;) {
            const auto block = static_cast<std::size_t>(std::min<std::int64_t>(moveBufferSize_, length - done));
            source.seekToFileOffset(offset + done);
            const Bytes bytes = source.readDataOfLength(block);
            if (bytes.size() != block) throw FileError(EIO, "short read in " + source.path_.string());
            writeData(bytes);
            done += static_cast<std::int64_t>(block);
        }
        return;
    }
    std::vector<std::uint8_t> buffer;
    copyRange(source.fd_, offset, position_, length, moveBufferSize_, buffer);
    position_ += length;
}

void FileHandle::copyFile(const std::filesystem::path& from, const std::filesystem::path& to, std::size_t bufferSize)
{
    FileHandle source(from, Mode::Reading);
    FileHandle target(to, Mode::Creating);
    const std::int64_t total = source.length();
    std::vector<std::uint8_t> buffer;
    target.copyRange(source.fd_, 0, 0, total, bufferSize, buffer);
    target.closeFile();
}

void FileHandle::waitForDataInBackgroundAndNotify()
{
    const void* self = this;
    RunLoop::current()->perform([self] {
        NotificationCenter::defaultCenter().post({kFileHandleDataAvailableNotification, self, Value()});
    });
}

}  // namespace quillora
