#include "foundation/PendingEdits.h"

#include <algorithm>
#include <cstring>

namespace quillora {

namespace {
constexpr std::size_t kBlockSize = 1024 * 1024;
}

PendingEdits::PendingEdits(std::int64_t fileLength) : length_(fileLength)
{
    if (fileLength > 0) pieces_.push_back({Source::File, 0, fileLength});
}

std::span<const std::uint8_t> PendingEdits::memory(const Piece& piece) const
{
    return {blocks_[piece.block].data() + piece.offset, static_cast<std::size_t>(piece.length)};
}

std::size_t PendingEdits::splitAt(std::int64_t offset)
{
    std::int64_t start = 0;
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
        Piece& piece = pieces_[i];
        if (start == offset) return i;
        if (offset < start + piece.length) {
            const std::int64_t head = offset - start;
            Piece tail = piece;
            tail.offset += head;
            tail.length -= head;
            piece.length = head;
            pieces_.insert(pieces_.begin() + static_cast<std::ptrdiff_t>(i) + 1, tail);
            return i + 1;
        }
        start += piece.length;
    }
    return pieces_.size();
}

std::size_t PendingEdits::cut(std::int64_t offset, std::int64_t count)
{
    if (offset > length_) {
        pieces_.push_back({Source::Zeros, 0, offset - length_});
        length_ = offset;
    }
    count = std::clamp<std::int64_t>(count, 0, length_ - offset);
    const std::size_t first = splitAt(offset);
    const std::size_t last = splitAt(offset + count);
    pieces_.erase(pieces_.begin() + static_cast<std::ptrdiff_t>(first),
                  pieces_.begin() + static_cast<std::ptrdiff_t>(last));
    length_ -= count;
    return first;
}

void PendingEdits::insertFromSideFile(std::int64_t offset, std::int64_t sideOffset, std::int64_t length)
{
    const std::size_t at = cut(offset, 0);
    pieces_.insert(pieces_.begin() + static_cast<std::ptrdiff_t>(at), Piece{Source::Side, sideOffset, length});
    length_ += length;
}

void PendingEdits::replace(std::int64_t offset, std::int64_t count, std::span<const std::uint8_t> data)
{
    const std::size_t first = cut(offset, count);
    if (data.empty()) {
        // A cut that brings two neighbouring ranges of the file together
        // makes them one piece again.
        if (first > 0 && first < pieces_.size()) {
            Piece& before = pieces_[first - 1];
            const Piece& after = pieces_[first];
            if (before.source == Source::File && after.source == Source::File &&
                before.offset + before.length == after.offset) {
                before.length += after.length;
                pieces_.erase(pieces_.begin() + static_cast<std::ptrdiff_t>(first));
            }
        }
        return;
    }
    if (blocks_.empty() || blocks_.back().size() + data.size() > blocks_.back().capacity()) {
        blocks_.emplace_back().reserve(std::max(kBlockSize, data.size()));
    }
    Bytes& block = blocks_.back();
    const std::size_t index = blocks_.size() - 1;
    const auto at = static_cast<std::int64_t>(block.size());
    const auto added = static_cast<std::int64_t>(data.size());
    block.insert(block.end(), data.begin(), data.end());
    bytesInMemory_ += data.size();
    length_ += added;
    // Bytes inserted one after another (samples appended to the media data)
    // stay one piece.
    if (first > 0) {
        Piece& before = pieces_[first - 1];
        if (before.source == Source::Memory && before.block == index && before.offset + before.length == at) {
            before.length += added;
            return;
        }
    }
    pieces_.insert(pieces_.begin() + static_cast<std::ptrdiff_t>(first), Piece{Source::Memory, at, added, index});
}

bool PendingEdits::overwriteInMemory(std::int64_t offset, std::span<const std::uint8_t> data)
{
    const auto count = static_cast<std::int64_t>(data.size());
    std::int64_t start = 0;
    for (const Piece& piece : pieces_) {
        if (offset < start + piece.length) {
            if (piece.source != Source::Memory || offset + count > start + piece.length) return false;
            std::memcpy(blocks_[piece.block].data() + piece.offset + (offset - start), data.data(), data.size());
            return true;
        }
        start += piece.length;
    }
    return false;
}

void PendingEdits::write(std::int64_t offset, std::span<const std::uint8_t> data)
{
    if (data.empty() && offset <= length_) return;
    if (overwriteInMemory(offset, data)) return;
    replace(offset, static_cast<std::int64_t>(data.size()), data);
}

void PendingEdits::read(std::int64_t offset, std::uint8_t* data, std::size_t length, const FileReader& readFile) const
{
    std::int64_t start = 0;
    for (const Piece& piece : pieces_) {
        if (length == 0) return;
        const std::int64_t end = start + piece.length;
        if (offset < end) {
            const std::int64_t within = offset - start;
            const auto count = static_cast<std::size_t>(std::min<std::int64_t>(end - offset, length));
            switch (piece.source) {
            case Source::File:
            case Source::Side:
                readFile(piece.source, piece.offset + within, data, count);
                break;
            case Source::Memory:
                std::memcpy(data, blocks_[piece.block].data() + piece.offset + within, count);
                break;
            case Source::Zeros:
                std::memset(data, 0, count);
                break;
            }
            data += count;
            length -= count;
            offset += static_cast<std::int64_t>(count);
        }
        start = end;
    }
}

}  // namespace quillora
