// The iTunes item list's children: one item atom holding one text 'data'
// atom per supported tag, and the supported tags themselves.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "foundation/Bytes.h"
#include "foundation/Value.h"
#include "layout/AtomFactory.h"

namespace quillora {

// How much of a value an item holds.
enum class ItemText {
    // The plug-in's: as many UTF-8 bytes as the value has UTF-16 units, so
    // text beyond ASCII loses its last bytes (sizes and bytes still agree).
    cutToUTF16Length,
    // Every byte of the value.
    wholeUTF8,
};

// The 19 tag keys the item list knows, in their fixed order.
Value supportedTagKeys();
// The item type a tag key is written as, or nothing for a key it leaves out.
std::optional<std::uint32_t> itemTypeForTagKey(std::string_view key);

// Sets the "software" entry the export stamps into every item list.
void stampSoftwareName(Dictionary& tags);

// The item atoms of the supported tags with text values, in the
// dictionary's order.
Bytes itemAtoms(AtomFactory& factory, const Dictionary& tags, ItemText text);

}  // namespace quillora
