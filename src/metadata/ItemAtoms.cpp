#include "metadata/ItemAtoms.h"

#include <algorithm>
#include <array>
#include <string>

#include "foundation/FourCC.h"
#include "foundation/TextEncoding.h"

namespace quillora {

namespace {

struct M4aTag {
    std::string_view key;
    std::uint32_t itemType;
};

// Tag key to item type, in the order the supported list keeps. The shared
// types ("author"/"artist", "none"/"copyright", both podcast keys as purl)
// are deliberate.
// clang-format off
constexpr std::array<M4aTag, 19> kM4aTags = {{
    {"author", fourCC("\251ART")},
    {"title", fourCC("\251nam")},
    {"artist", fourCC("\251ART")},
    {"none", fourCC("\251cpy")},
    {"university", fourCC("tvnn")},
    {"class name", fourCC("tvsh")},
    {"class number", fourCC("tven")},
    {"software", fourCC("\251swr")},
    {"album", fourCC("\251alb")},
    {"tracknum", fourCC("trkn")},
    {"comment", fourCC("\251cmt")},
    {"year", fourCC("\251day")},
    {"copyright", fourCC("\251cpy")},
    {"description", fourCC("\251des")},
    {"podcastflag", fourCC("pcst")},
    {"category", fourCC("catg")},
    {"keyword", fourCC("keyw")},
    {"podcastURL", fourCC("purl")},
    {"podcastGUID", fourCC("purl")},
}};
// clang-format on

constexpr std::string_view kSoftwareKey = "software";
constexpr std::string_view kSoftwareName = "Quillora";

constexpr std::uint32_t kDataAtom = fourCC("data");
constexpr std::uint32_t kUTF8TextIndicator = 1;

Bytes itemAtom(AtomFactory& factory, std::uint32_t itemType, std::string_view value, ItemText text)
{
    const std::size_t length = text == ItemText::wholeUTF8 ? value.size() : std::min(utf16Length(value), value.size());
    ByteWriter data;
    data.putU32BE(kUTF8TextIndicator).putU32BE(0).putString(value.substr(0, length));
    return factory.createAtomOfType(itemType, factory.createAtomOfType(kDataAtom, data.bytes()));
}

}  // namespace

Value supportedTagKeys()
{
    Array keys;
    for (const auto& tag : kM4aTags) keys.emplace_back(std::string(tag.key));
    return Value::array(std::move(keys));
}

std::optional<std::uint32_t> itemTypeForTagKey(std::string_view key)
{
    auto tag = std::ranges::find(kM4aTags, key, &M4aTag::key);
    if (tag == kM4aTags.end()) return std::nullopt;
    return tag->itemType;
}

void stampSoftwareName(Dictionary& tags)
{
    tags.set(std::string(kSoftwareKey), Value(std::string(kSoftwareName)));
}

Bytes itemAtoms(AtomFactory& factory, const Dictionary& tags, ItemText text)
{
    ByteWriter items;
    for (const auto& [key, value] : tags) {
        auto itemType = itemTypeForTagKey(key);
        const std::string* string = value.asString();
        if (!itemType || !string) continue;
        items.putBytes(itemAtom(factory, *itemType, *string, text));
    }
    return items.take();
}

}  // namespace quillora
