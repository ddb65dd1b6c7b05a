// The toolbox's metadata calls over a movie's items (Movie::metaData()).
// An item is named by its position plus one; kQTMetaDataItemUninitialized
// starts a walk. Common keys ('comn') are stored in native storage under
// their reverse-DNS names.
#pragma once

#include <cstdint>
#include <string>

#include "toolbox/MetaDataAtoms.h"
#include "toolbox/Toolbox.h"

namespace quillora::toolbox {

using QTMetaDataItem = std::uint64_t;
inline constexpr QTMetaDataItem kQTMetaDataItemUninitialized = 0;
inline constexpr std::uint32_t kPropertyClass_MetaDataItem = 0x6D646974;         // 'mdit'
inline constexpr std::uint32_t kQTMetaDataItemPropertyID_Key = 0x6B657920;       // 'key '
inline constexpr std::uint32_t kQTMetaDataItemPropertyID_DataType = 0x64747970;  // 'dtyp'
inline constexpr std::uint32_t kQTMetaDataItemPropertyID_Locale = 0x6C6F6320;    // 'loc '
inline constexpr OSErr kQTMetaDataInvalidItemErr = -2097;
inline constexpr OSErr kQTMetaDataInvalidKeyFormatErr = -2098;

struct QTMetaDataRef {
    Movie* movie = nullptr;
};

// The reverse-DNS name of a common key ('auth', 'name', 'info', 'soft'), or empty.
std::string nativeKeyForCommonKey(std::uint32_t commonKey);

OSErr QTCopyMovieMetaData(Movie& movie, QTMetaDataRef& metaData);
// The next item after item in the storage format (and key format, when not 0).
OSErr QTMetaDataGetNextItem(const QTMetaDataRef& metaData, std::uint32_t storageFormat, QTMetaDataItem item,
                            std::uint32_t keyFormat, QTMetaDataItem* nextItem);
// The key, the data type (4 bytes, big-endian) or the locale (a C string with its zero).
OSErr QTMetaDataGetItemProperty(const QTMetaDataRef& metaData, QTMetaDataItem item, std::uint32_t propertyClass,
                                std::uint32_t propertyID, Bytes& value);
// With value null or too small, only actualSize is given.
OSErr QTMetaDataGetItemValue(const QTMetaDataRef& metaData, QTMetaDataItem item, void* value, std::size_t valueSize,
                             std::size_t* actualSize);
OSErr QTMetaDataAddItem(const QTMetaDataRef& metaData, std::uint32_t storageFormat, std::uint32_t keyFormat,
                        const void* key, std::size_t keySize, const void* value, std::size_t valueSize,
                        std::uint32_t dataType, QTMetaDataItem* item);
OSErr QTMetaDataSetItemProperty(const QTMetaDataRef& metaData, QTMetaDataItem item, std::uint32_t propertyClass,
                                std::uint32_t propertyID, std::size_t size, const void* value);

}  // namespace quillora::toolbox
