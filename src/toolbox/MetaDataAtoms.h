// A movie's metadata as atoms. Native storage ('mdta') is the movie's own
// 'meta': a handler of subtype 'mdta', a 'keys' table of reverse-DNS names
// and an 'ilst' whose items are named by their key's index. iTunes storage
// ('itms') is moov/udta/meta/ilst with four-byte item names ('itsk' keys)
// or '----' items carrying a long name ('itlk' keys).
#pragma once

#include <string>
#include <vector>

#include "foundation/FileHandle.h"
#include "toolbox/AtomTree.h"
#include "toolbox/Movie.h"

namespace quillora {
class TrackAtoms;
}

namespace quillora::toolbox {

inline constexpr std::uint32_t kQTMetaDataStorageFormatQuickTime = 0x6D647461;    // 'mdta'
inline constexpr std::uint32_t kQTMetaDataStorageFormatiTunes = 0x69746D73;       // 'itms'
inline constexpr std::uint32_t kQTMetaDataKeyFormatQuickTime = 0x6D647461;        // 'mdta'
inline constexpr std::uint32_t kQTMetaDataKeyFormatiTunesShortForm = 0x6974736B;  // 'itsk'
inline constexpr std::uint32_t kQTMetaDataKeyFormatiTunesLongForm = 0x69746C6B;   // 'itlk'
inline constexpr std::uint32_t kQTMetaDataKeyFormatCommon = 0x636F6D6E;           // 'comn'

// Both storages: the movie's own 'meta' first, then the user data's. A
// 'meta' with or without version and flags, and keyed items in either place.
std::vector<MetaDataItem> readMetaDataItems(FileHandle& file, const AtomTree& tree);

// The movie-level 'meta' holding the native items, or nothing when there are none.
Bytes nativeMetaDataAtom(TrackAtoms& atoms, const std::vector<MetaDataItem>& items);

// The four bytes of a 'data' atom's locale: country (two letters) then
// language (ISO 639-2/T, packed in 15 bits); zero for what is not given.
std::uint32_t packedLocale(const std::string& locale);
std::string localeFromPacked(std::uint32_t packed);

}  // namespace quillora::toolbox
