#include "toolbox/AtomPieces.h"

#include <cerrno>
#include <limits>
#include <utility>

#include "foundation/FourCC.h"

namespace quillora::toolbox {

namespace {

constexpr std::size_t kStreamBufferSize = 64 * 1024;

}  // namespace

AtomPieces& AtomPieces::add(Bytes bytes)
{
    size_ += bytes.size();
    const auto size = bytes.size();
    pieces_.push_back({std::move(bytes), size, nullptr});
    return *this;
}

AtomPieces& AtomPieces::add(AtomPieces pieces)
{
    size_ += pieces.size_;
    for (auto& piece : pieces.pieces_) pieces_.push_back(std::move(piece));
    return *this;
}

AtomPieces& AtomPieces::addWritten(std::uint64_t size, Writer write)
{
    size_ += size;
    pieces_.push_back({{}, size, std::move(write)});
    return *this;
}

AtomPieces& AtomPieces::wrap(std::uint32_t type)
{
    const std::uint64_t size = size_ + 8;
    if (size > std::numeric_limits<std::uint32_t>::max()) {
        throw FileError(EFBIG, "a movie of more than 32-bit sizes and times cannot be written");
    }
    ByteWriter header(8);
    header.putU32BE(static_cast<std::uint32_t>(size)).putFourCC(type);
    pieces_.insert(pieces_.begin(), Piece{header.bytes(), 8, nullptr});
    size_ = size;
    return *this;
}

void AtomPieces::writeTo(FileHandle& out) const
{
    // Neighbouring bytes are gathered into one write.
    ByteWriter gathered;
    for (const auto& piece : pieces_) {
        if (!piece.write) {
            gathered.putBytes(piece.bytes);
            continue;
        }
        out.writeData(gathered.bytes());
        gathered = ByteWriter();
        piece.write(out);
    }
    out.writeData(gathered.bytes());
}

void NumberStream::put(std::uint32_t value)
{
    buffer_.push_back(static_cast<std::uint8_t>(value >> 24));
    buffer_.push_back(static_cast<std::uint8_t>(value >> 16));
    buffer_.push_back(static_cast<std::uint8_t>(value >> 8));
    buffer_.push_back(static_cast<std::uint8_t>(value));
    if (buffer_.size() >= kStreamBufferSize) flush();
}

void NumberStream::flush()
{
    out_.writeData(buffer_);
    buffer_.clear();
}

}  // namespace quillora::toolbox
