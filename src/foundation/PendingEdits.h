// The edits made to an open file that have not reached it yet, as a list of
// pieces: ranges of the file as it is on disk, bytes held in memory, ranges
// of a side file that holds large insertions, and runs of zeros. Every read of the handle goes through this list, so
// the edits are seen at once; the file itself is rewritten once, when the edits are written.
//
// Many edits of one export touch the same few places (an atom's size, a chunk
// offset table), so a write that falls inside bytes already held in memory
// changes them there instead of adding a piece.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "foundation/Bytes.h"

namespace quillora {

class PendingEdits {
public:
    enum class Source { File, Memory, Side, Zeros };
    struct Piece {
        Source source = Source::File;
        std::int64_t offset = 0;  // in the file on disk, the side file, or its block of memory
        std::int64_t length = 0;
        std::size_t block = 0;  // for bytes held in memory
    };
    // Reads length bytes at offset of the file on disk or of the side file.
    using FileReader = std::function<void(Source source, std::int64_t offset, std::uint8_t* data, std::size_t length)>;

    explicit PendingEdits(std::int64_t fileLength);

    std::int64_t length() const { return length_; }
    const std::vector<Piece>& pieces() const { return pieces_; }
    std::span<const std::uint8_t> memory(const Piece& piece) const;
    std::size_t bytesInMemory() const { return bytesInMemory_; }

    // Replaces count bytes at offset (clipped to the end) with data; an
    // offset past the end first extends the content with zeros.
    void replace(std::int64_t offset, std::int64_t count, std::span<const std::uint8_t> data);
    // Inserts length bytes that the side file holds at sideOffset.
    void insertFromSideFile(std::int64_t offset, std::int64_t sideOffset, std::int64_t length);
    // Overwrites, extending the content when the data runs past its end.
    void write(std::int64_t offset, std::span<const std::uint8_t> data);
    // Copies the content at offset (which must lie within it) into data.
    void read(std::int64_t offset, std::uint8_t* data, std::size_t length, const FileReader& readFile) const;

private:
    // The index of the piece that starts at offset, splitting one if needed;
    // pieces_.size() for the end.
    std::size_t splitAt(std::int64_t offset);
    // Cuts count bytes at offset (extending with zeros up to it); the index
    // where something put there goes.
    std::size_t cut(std::int64_t offset, std::int64_t count);
    bool overwriteInMemory(std::int64_t offset, std::span<const std::uint8_t> data);

    // Inserted bytes live in blocks that are never reallocated once full, so
    // holding many megabytes never needs twice as many while a block grows.
    std::vector<Bytes> blocks_;
    std::size_t bytesInMemory_ = 0;
    std::vector<Piece> pieces_;
    std::int64_t length_ = 0;
};

}  // namespace quillora
