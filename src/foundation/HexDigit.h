// The value of one hexadecimal digit, either case.
#pragma once

namespace quillora {

// 0 to 15, or -1 for a character that is no hexadecimal digit.
constexpr int hexDigitValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace quillora
