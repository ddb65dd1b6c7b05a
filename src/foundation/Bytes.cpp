#include "foundation/Bytes.h"

#include <cmath>

namespace quillora {

ByteWriter& ByteWriter::putU8(std::uint8_t v)
{
    bytes_.push_back(v);
    return *this;
}

ByteWriter& ByteWriter::putU16BE(std::uint16_t v)
{
    bytes_.push_back(static_cast<std::uint8_t>(v >> 8));
    bytes_.push_back(static_cast<std::uint8_t>(v));
    return *this;
}

ByteWriter& ByteWriter::putU32BE(std::uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8) bytes_.push_back(static_cast<std::uint8_t>(v >> shift));
    return *this;
}

ByteWriter& ByteWriter::putU32LE(std::uint32_t v)
{
    for (int shift = 0; shift <= 24; shift += 8) bytes_.push_back(static_cast<std::uint8_t>(v >> shift));
    return *this;
}

ByteWriter& ByteWriter::putU64BE(std::uint64_t v)
{
    for (int shift = 56; shift >= 0; shift -= 8) bytes_.push_back(static_cast<std::uint8_t>(v >> shift));
    return *this;
}

ByteWriter& ByteWriter::putFixed16_16(double v)
{
    return putU32BE(static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(v * 65536.0))));
}

ByteWriter& ByteWriter::putFixed8_8(double v)
{
    return putU16BE(static_cast<std::uint16_t>(static_cast<std::int16_t>(std::lround(v * 256.0))));
}

ByteWriter& ByteWriter::putZeros(std::size_t count)
{
    bytes_.insert(bytes_.end(), count, 0);
    return *this;
}

ByteWriter& ByteWriter::putBytes(std::span<const std::uint8_t> data)
{
    bytes_.insert(bytes_.end(), data.begin(), data.end());
    return *this;
}

ByteWriter& ByteWriter::putString(std::string_view text)
{
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
}

void ByteReader::need(std::size_t count) const
{
    if (count > remaining()) throw std::out_of_range("ByteReader: read past the end of the data");
}

std::uint8_t ByteReader::getU8()
{
    need(1);
    return data_[position_++];
}

std::uint16_t ByteReader::getU16BE()
{
    need(2);
    std::uint16_t v = static_cast<std::uint16_t>((data_[position_] << 8) | data_[position_ + 1]);
    position_ += 2;
    return v;
}

std::uint32_t ByteReader::getU32BE()
{
    need(4);
    std::uint32_t v = readU32BE(data_.data() + position_);
    position_ += 4;
    return v;
}

std::uint32_t ByteReader::getU32LE()
{
    need(4);
    const std::uint8_t* p = data_.data() + position_;
    position_ += 4;
    return std::uint32_t{p[0]} | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) | (std::uint32_t{p[3]} << 24);
}

std::uint64_t ByteReader::getU64BE()
{
    std::uint64_t high = getU32BE();
    return (high << 32) | getU32BE();
}

std::span<const std::uint8_t> ByteReader::getBytes(std::size_t count)
{
    need(count);
    auto out = data_.subspan(position_, count);
    position_ += count;
    return out;
}

void ByteReader::skip(std::size_t count)
{
    need(count);
    position_ += count;
}

void ByteReader::seek(std::size_t position)
{
    if (position > data_.size()) throw std::out_of_range("ByteReader: seek past the end of the data");
    position_ = position;
}

void overwriteU16BE(Bytes& bytes, std::size_t offset, std::uint16_t value)
{
    bytes.at(offset + 1) = static_cast<std::uint8_t>(value & 0xFF);
    bytes[offset] = static_cast<std::uint8_t>(value >> 8);
}

void overwriteU32BE(Bytes& bytes, std::size_t offset, std::uint32_t value)
{
    overwriteU16BE(bytes, offset, static_cast<std::uint16_t>(value >> 16));
    overwriteU16BE(bytes, offset + 2, static_cast<std::uint16_t>(value & 0xFFFF));
}

}  // namespace quillora
