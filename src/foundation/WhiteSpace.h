// White space and line ends as the host platform counts them when it trims
// text: Unicode's, not only ASCII's.
#pragma once

#include <string_view>

namespace quillora {

// The separators of Unicode (categories Zs, Zl and Zp), the controls U+0009
// to U+000D and U+0085.
bool isWhiteSpaceOrLineEnd(char32_t c);

// The text without the white space and line ends at either end. Bytes that
// are not UTF-8 are kept as they are.
std::string_view trimmedWhiteSpaceAndLineEnds(std::string_view text);

}  // namespace quillora
