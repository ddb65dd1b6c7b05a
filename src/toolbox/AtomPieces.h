// Atoms laid out before they are written: bytes made at once, and pieces of
// a known size written only when their turn comes (the table of every
// sample of a long recording, which is then never held whole). Wrapping
// puts an 8-byte atom header before what was added.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "foundation/Bytes.h"
#include "foundation/FileHandle.h"

namespace quillora::toolbox {

class AtomPieces {
public:
    using Writer = std::function<void(FileHandle& out)>;

    AtomPieces& add(Bytes bytes);
    AtomPieces& add(AtomPieces pieces);
    // write must write exactly size bytes.
    AtomPieces& addWritten(std::uint64_t size, Writer write);
    // Puts what was added inside an atom of the type. Throws FileError
    // (EFBIG) past a 32-bit size.
    AtomPieces& wrap(std::uint32_t type);

    std::uint64_t size() const { return size_; }
    void writeTo(FileHandle& out) const;

private:
    struct Piece {
        Bytes bytes;
        std::uint64_t size = 0;
        Writer write;
    };
    std::vector<Piece> pieces_;
    std::uint64_t size_ = 0;
};

// Writes big-endian 32-bit numbers to a file through a small buffer.
class NumberStream {
public:
    explicit NumberStream(FileHandle& out) : out_(out) {}
    void put(std::uint32_t value);
    // Writes what is buffered; call before the stream goes.
    void flush();

private:
    FileHandle& out_;
    Bytes buffer_;
};

}  // namespace quillora::toolbox
