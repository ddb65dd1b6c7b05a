#include "publish/TextEscaping.h"
#include "foundation/HexDigit.h"

#include <fmt/format.h>

namespace quillora::publish {

namespace {

std::string escaped(std::string_view text, bool quotes)
{
    std::string result;
    result.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += quotes ? "&quot;" : "\"";
            break;
        case '\'':
            result += quotes ? "&#39;" : "'";
            break;
        default:
            result += c;
        }
    }
    return result;
}

bool unreserved(unsigned char byte)
{
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
           byte == '-' || byte == '.' || byte == '_' || byte == '~';
}

}  // namespace

std::string escapeMarkup(std::string_view text)
{
    return escaped(text, false);
}

std::string escapeMarkupAttribute(std::string_view text)
{
    return escaped(text, true);
}

std::string urlPath(const std::filesystem::path& relative)
{
    std::string result;
    for (const auto& segment : relative) {
        if (!result.empty()) result += '/';
        for (unsigned char byte : segment.string()) {
            if (unreserved(byte)) {
                result += static_cast<char>(byte);
            } else {
                result += fmt::format("%{:02X}", byte);
            }
        }
    }
    return result;
}

std::filesystem::path pathFromUrlPath(std::string_view url)
{
    std::string path;
    for (std::size_t i = 0; i < url.size(); ++i) {
        const int high = url[i] == '%' && i + 2 < url.size() ? hexDigitValue(url[i + 1]) : -1;
        const int low = high >= 0 ? hexDigitValue(url[i + 2]) : -1;
        if (low >= 0) {
            path += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            path += url[i];
        }
    }
    return path;
}

}  // namespace quillora::publish
