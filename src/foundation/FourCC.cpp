#include "foundation/FourCC.h"

namespace quillora {

std::uint32_t fourCCFromString(std::string_view text)
{
    std::uint32_t code = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        unsigned char c = i < text.size() ? static_cast<unsigned char>(text[i]) : ' ';
        code = (code << 8) | c;
    }
    return code;
}

std::string stringFromFourCC(std::uint32_t code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        auto c = static_cast<unsigned char>(code >> shift);
        if (c < 0x80) {
            text.push_back(static_cast<char>(c));
        } else {
            // Latin-1 byte to UTF-8.
            text.push_back(static_cast<char>(0xC0 | (c >> 6)));
            text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return text;
}

}  // namespace quillora
