#include "toolbox/MetaData.h"

#include <cstring>

#include "foundation/FourCC.h"

namespace quillora::toolbox {

namespace {

MetaDataItem* itemOf(const QTMetaDataRef& metaData, QTMetaDataItem item)
{
    if (!metaData.movie || item == 0 || item > metaData.movie->metaData().size()) return nullptr;
    return &metaData.movie->metaData()[item - 1];
}

}  // namespace

std::string nativeKeyForCommonKey(std::uint32_t commonKey)
{
    switch (commonKey) {
    case fourCC("auth"):
        return "com.apple.quicktime.author";
    case fourCC("name"):
        return "com.apple.quicktime.displayname";
    case fourCC("info"):
        return "com.apple.quicktime.information";
    case fourCC("soft"):
        return "com.apple.quicktime.software";
    default:
        return "";
    }
}

OSErr QTCopyMovieMetaData(Movie& movie, QTMetaDataRef& metaData)
{
    metaData.movie = &movie;
    return noErr;
}

OSErr QTMetaDataGetNextItem(const QTMetaDataRef& metaData, std::uint32_t storageFormat, QTMetaDataItem item,
                            std::uint32_t keyFormat, QTMetaDataItem* nextItem)
{
    if (!metaData.movie || !nextItem) return paramErr;
    const auto& items = metaData.movie->metaData();
    for (QTMetaDataItem next = item + 1; next <= items.size(); ++next) {
        const MetaDataItem& candidate = items[next - 1];
        if (candidate.storage == storageFormat && (keyFormat == 0 || candidate.keyFormat == keyFormat)) {
            *nextItem = next;
            return noErr;
        }
    }
    *nextItem = kQTMetaDataItemUninitialized;
    return noErr;
}

OSErr QTMetaDataGetItemProperty(const QTMetaDataRef& metaData, QTMetaDataItem item, std::uint32_t propertyClass,
                                std::uint32_t propertyID, Bytes& value)
{
    const MetaDataItem* found = itemOf(metaData, item);
    if (!found) return kQTMetaDataInvalidItemErr;
    if (propertyClass != kPropertyClass_MetaDataItem) return paramErr;
    ByteWriter writer;
    switch (propertyID) {
    case kQTMetaDataItemPropertyID_Key:
        writer.putBytes(found->key);
        break;
    case kQTMetaDataItemPropertyID_DataType:
        writer.putU32BE(found->dataType);
        break;
    case kQTMetaDataItemPropertyID_Locale:
        writer.putString(found->locale).putU8(0);
        break;
    default:
        return paramErr;
    }
    value = writer.take();
    return noErr;
}

OSErr QTMetaDataGetItemValue(const QTMetaDataRef& metaData, QTMetaDataItem item, void* value, std::size_t valueSize,
                             std::size_t* actualSize)
{
    const MetaDataItem* found = itemOf(metaData, item);
    if (!found) return kQTMetaDataInvalidItemErr;
    if (actualSize) *actualSize = found->value.size();
    if (value && valueSize >= found->value.size() && !found->value.empty()) {
        std::memcpy(value, found->value.data(), found->value.size());
    }
    return noErr;
}

OSErr QTMetaDataAddItem(const QTMetaDataRef& metaData, std::uint32_t storageFormat, std::uint32_t keyFormat,
                        const void* key, std::size_t keySize, const void* value, std::size_t valueSize,
                        std::uint32_t dataType, QTMetaDataItem* item)
{
    if (!metaData.movie || !key || (valueSize > 0 && !value)) return paramErr;
    const auto* keyBytes = static_cast<const std::uint8_t*>(key);
    MetaDataItem added{storageFormat, keyFormat, Bytes(keyBytes, keyBytes + keySize), dataType, "", {}};
    if (keyFormat == kQTMetaDataKeyFormatCommon) {
        if (storageFormat != kQTMetaDataStorageFormatQuickTime || keySize != 4) return kQTMetaDataInvalidKeyFormatErr;
        const std::string native = nativeKeyForCommonKey(readU32BE(keyBytes));
        if (native.empty()) return kQTMetaDataInvalidKeyFormatErr;
        added.keyFormat = kQTMetaDataKeyFormatQuickTime;
        added.key.assign(native.begin(), native.end());
    }
    const auto* valueBytes = static_cast<const std::uint8_t*>(value);
    if (valueSize > 0) added.value.assign(valueBytes, valueBytes + valueSize);
    metaData.movie->metaData().push_back(std::move(added));
    if (item) *item = metaData.movie->metaData().size();
    return noErr;
}

OSErr QTMetaDataSetItemProperty(const QTMetaDataRef& metaData, QTMetaDataItem item, std::uint32_t propertyClass,
                                std::uint32_t propertyID, std::size_t size, const void* value)
{
    MetaDataItem* found = itemOf(metaData, item);
    if (!found) return kQTMetaDataInvalidItemErr;
    if (propertyClass != kPropertyClass_MetaDataItem || propertyID != kQTMetaDataItemPropertyID_Locale || !value) {
        return paramErr;
    }
    const auto* text = static_cast<const char*>(value);
    found->locale.assign(text, strnlen(text, size));
    return noErr;
}

}  // namespace quillora::toolbox
