#include "tracks/ColorData.h"

#include <cctype>
#include <string_view>

namespace quillora {

namespace {

int hexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// "#RRGGBB" or "#RRGGBBAA", blanks around it allowed.
std::optional<ColorComponents> colorFromText(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && (std::isspace(static_cast<unsigned char>(text.back())) || text.back() == '\0')) {
        text.remove_suffix(1);
    }
    if (text.empty() || text.front() != '#') return std::nullopt;
    text.remove_prefix(1);
    if (text.size() != 6 && text.size() != 8) return std::nullopt;
    double channels[4] = {0, 0, 0, 1};
    for (std::size_t i = 0; i < text.size(); i += 2) {
        int high = hexDigit(text[i]);
        int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        channels[i / 2] = (high * 16 + low) / 255.0;
    }
    return ColorComponents{channels[0], channels[1], channels[2], channels[3]};
}

}  // namespace

std::optional<ColorComponents> colorComponentsFromData(const Bytes& data)
{
    return colorFromText(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

bool QRGetRGBColorFromData(const Bytes& data, RGBColor& color)
{
    auto components = colorComponentsFromData(data);
    if (!components) return false;
    auto scale = [&](double c) { return static_cast<std::uint16_t>(c * components->alpha * 65535.0); };
    color = {scale(components->red), scale(components->green), scale(components->blue)};
    return true;
}

}  // namespace quillora
