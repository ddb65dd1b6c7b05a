// Colours as the host hands them to the text-track writers: data holding
// either plain text (a CSS colour name, "#RGB", "#RGBA", "#RRGGBB" or
// "#RRGGBBAA") or a colour object in the host platform's old typed-stream
// archive (RGB or white, calibrated or device; other colour spaces are not
// read).
#pragma once

#include <cstdint>
#include <optional>

#include "foundation/Bytes.h"

namespace quillora {

// Device RGB components, each from 0 to 1 (stored values outside that range
// are clamped).
struct ColorComponents {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 0;
};

// Nothing when the data holds no colour.
std::optional<ColorComponents> colorComponentsFromData(const Bytes& data);

// Three 16-bit components as native numbers; whoever writes them into a
// file puts them big-endian.
struct RGBColor {
    std::uint16_t red = 0;
    std::uint16_t green = 0;
    std::uint16_t blue = 0;
};

// Each of red, green and blue premultiplied by alpha, times 65535, truncated.
// NO, and color untouched, when the data holds no colour.
bool QRGetRGBColorFromData(const Bytes& data, RGBColor& color);

}  // namespace quillora
