#include "foundation/WhiteSpace.h"

#include "foundation/TextEncoding.h"

namespace quillora {

bool isWhiteSpaceOrLineEnd(char32_t c)
{
    if ((c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680) return true;
    if (c >= 0x2000 && c <= 0x200A) return true;
    return c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

std::string_view trimmedWhiteSpaceAndLineEnds(std::string_view text)
{
    std::size_t start = text.size();
    std::size_t end = 0;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t at = i;
        const auto c = nextCodePoint(text, i);
        if (c && isWhiteSpaceOrLineEnd(*c)) continue;
        if (start == text.size()) start = at;
        end = i;
    }
    return start < end ? text.substr(start, end - start) : std::string_view();
}

}  // namespace quillora
