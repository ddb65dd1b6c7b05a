// The transformation every track and movie header holds.
#pragma once

#include <array>
#include <cstdint>

namespace quillora {

// A 3x3 transformation: a, b, u, c, d, v, tx, ty, w; u, v and w are 2.30,
// the others 16.16.
using Matrix = std::array<std::int32_t, 9>;
inline constexpr Matrix kIdentityMatrix = {0x00010000, 0, 0, 0, 0x00010000, 0, 0, 0, 0x40000000};

}  // namespace quillora
