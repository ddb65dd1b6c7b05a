// The colour names of CSS: the 148 named colours and "transparent".
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace quillora {

// The colour as 0xRRGGBBAA (opaque but for "transparent", which is
// 0x00000000); the name in any case. Nothing for a name CSS does not know.
std::optional<std::uint32_t> cssNamedColor(std::string_view name);

// The 148 names, in alphabetical order ("transparent" is not among them).
std::vector<std::string_view> cssColorNames();

}  // namespace quillora
