// Byte buffers and the only place that knows about byte order. Everything the
// system writes into a file is big-endian; the one little-endian field it
// writes (a text track's media duration) goes through putU32LE.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace quillora {

using Bytes = std::vector<std::uint8_t>;

class ByteWriter {
public:
    ByteWriter() = default;
    explicit ByteWriter(std::size_t reserve) { bytes_.reserve(reserve); }

    ByteWriter& putU8(std::uint8_t v);
    ByteWriter& putU16BE(std::uint16_t v);
    ByteWriter& putU32BE(std::uint32_t v);
    ByteWriter& putU32LE(std::uint32_t v);
    ByteWriter& putU64BE(std::uint64_t v);
    ByteWriter& putI16BE(std::int16_t v) { return putU16BE(static_cast<std::uint16_t>(v)); }
    ByteWriter& putI32BE(std::int32_t v) { return putU32BE(static_cast<std::uint32_t>(v)); }
    ByteWriter& putFourCC(std::uint32_t code) { return putU32BE(code); }
    // 16.16 and 8.8 fixed-point numbers, as the movie header fields use them.
    ByteWriter& putFixed16_16(double v);
    ByteWriter& putFixed8_8(double v);
    ByteWriter& putZeros(std::size_t count);
    ByteWriter& putBytes(std::span<const std::uint8_t> data);
    ByteWriter& putString(std::string_view text);

    std::size_t size() const { return bytes_.size(); }
    const Bytes& bytes() const& { return bytes_; }
    Bytes take() { return std::move(bytes_); }

private:
    Bytes bytes_;
};

// Reading past the end throws std::out_of_range: a short read is the caller's
// bug, never silently zero.
class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> data) : data_(data) {}

    std::uint8_t getU8();
    std::uint16_t getU16BE();
    std::uint32_t getU32BE();
    std::uint32_t getU32LE();
    std::uint64_t getU64BE();
    std::int32_t getI32BE() { return static_cast<std::int32_t>(getU32BE()); }
    std::span<const std::uint8_t> getBytes(std::size_t count);
    void skip(std::size_t count);

    std::size_t position() const { return position_; }
    std::size_t remaining() const { return data_.size() - position_; }
    void seek(std::size_t position);

private:
    void need(std::size_t count) const;

    std::span<const std::uint8_t> data_;
    std::size_t position_ = 0;
};

// Big-endian writes over bytes already in a buffer (a size or a count fixed
// up after its children were added). Throws std::out_of_range past the end.
void overwriteU16BE(Bytes& bytes, std::size_t offset, std::uint16_t value);
void overwriteU32BE(Bytes& bytes, std::size_t offset, std::uint32_t value);

// Big-endian reads straight out of a buffer, for code that holds raw headers.
inline std::uint32_t readU32BE(const std::uint8_t* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

}  // namespace quillora
