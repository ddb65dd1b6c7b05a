// Four-character codes: 'moov' is stored as its four bytes in order and
// handled as the big-endian 32-bit number those bytes make.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quillora {

consteval std::uint32_t fourCC(const char (&text)[5])
{
    return (static_cast<std::uint32_t>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<std::uint32_t>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<std::uint32_t>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[3]));
}

// Text to code: the first four bytes of the text; a shorter text is padded
// with blanks, as the host platform does for type strings.
std::uint32_t fourCCFromString(std::string_view text);

// Code to text: the four bytes as characters (the (c) sign of iTunes keys is
// the single byte 0xA9, shown as U+00A9 so log lines stay valid UTF-8).
std::string stringFromFourCC(std::uint32_t code);

namespace atom {
inline constexpr std::uint32_t ftyp = fourCC("ftyp");
inline constexpr std::uint32_t moov = fourCC("moov");
inline constexpr std::uint32_t mvhd = fourCC("mvhd");
inline constexpr std::uint32_t iods = fourCC("iods");
inline constexpr std::uint32_t trak = fourCC("trak");
inline constexpr std::uint32_t tkhd = fourCC("tkhd");
inline constexpr std::uint32_t tref = fourCC("tref");
inline constexpr std::uint32_t edts = fourCC("edts");
inline constexpr std::uint32_t elst = fourCC("elst");
inline constexpr std::uint32_t mdia = fourCC("mdia");
inline constexpr std::uint32_t mdhd = fourCC("mdhd");
inline constexpr std::uint32_t hdlr = fourCC("hdlr");
inline constexpr std::uint32_t minf = fourCC("minf");
inline constexpr std::uint32_t stbl = fourCC("stbl");
inline constexpr std::uint32_t stsd = fourCC("stsd");
inline constexpr std::uint32_t stts = fourCC("stts");
inline constexpr std::uint32_t stsc = fourCC("stsc");
inline constexpr std::uint32_t stsz = fourCC("stsz");
inline constexpr std::uint32_t stco = fourCC("stco");
inline constexpr std::uint32_t co64 = fourCC("co64");
inline constexpr std::uint32_t udta = fourCC("udta");
inline constexpr std::uint32_t meta = fourCC("meta");
inline constexpr std::uint32_t ilst = fourCC("ilst");
inline constexpr std::uint32_t free = fourCC("free");
inline constexpr std::uint32_t mdat = fourCC("mdat");
}  // namespace atom

}  // namespace quillora
