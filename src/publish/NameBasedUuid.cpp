#include "publish/NameBasedUuid.h"

#include <array>
#include <cstdint>

#include "foundation/HexDigit.h"
#include "publish/PublishError.h"

extern "C" {
#include <libavutil/hash.h>
}

namespace quillora::publish {

namespace {

std::array<std::uint8_t, 16> uuidBytes(std::string_view text)
{
    std::array<std::uint8_t, 16> bytes{};
    std::size_t filled = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '-' && (i == 8 || i == 13 || i == 18 || i == 23)) continue;
        const int high = hexDigitValue(text[i]);
        const int low = i + 1 < text.size() ? hexDigitValue(text[i + 1]) : -1;
        if (high < 0 || low < 0 || filled == bytes.size()) throw PublishError("not a UUID: " + std::string(text));
        bytes[filled++] = static_cast<std::uint8_t>(high * 16 + low);
        ++i;
    }
    if (filled != bytes.size() || text.size() != 36) throw PublishError("not a UUID: " + std::string(text));
    return bytes;
}

}  // namespace

std::string nameBasedUuid(std::string_view namespaceUuid, std::string_view name)
{
    const auto space = uuidBytes(namespaceUuid);
    AVHashContext* sha1 = nullptr;
    if (av_hash_alloc(&sha1, "SHA160") < 0 || !sha1) throw PublishError("SHA-1 is not available");
    av_hash_init(sha1);
    av_hash_update(sha1, space.data(), space.size());
    av_hash_update(sha1, reinterpret_cast<const std::uint8_t*>(name.data()), name.size());
    std::array<std::uint8_t, 20> digest{};
    av_hash_final(sha1, digest.data());
    av_hash_freep(&sha1);
    digest[6] = static_cast<std::uint8_t>((digest[6] & 0x0F) | 0x50);  // version 5
    digest[8] = static_cast<std::uint8_t>((digest[8] & 0x3F) | 0x80);  // the RFC 4122 variant
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kDigits[digest[i] >> 4];
        text += kDigits[digest[i] & 0x0F];
    }
    return text;
}

std::string podcastGuid(std::string_view feedUrl)
{
    if (const auto scheme = feedUrl.find("://"); scheme != std::string_view::npos) feedUrl.remove_prefix(scheme + 3);
    while (feedUrl.ends_with('/')) feedUrl.remove_suffix(1);
    return nameBasedUuid(kPodcastGuidNamespace, feedUrl);
}

}  // namespace quillora::publish
