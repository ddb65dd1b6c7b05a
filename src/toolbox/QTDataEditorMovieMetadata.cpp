// Movie metadata through our toolbox: reading every item of a movie in the
// three storage and key forms, setting the common items, and the user's
// language for their locale.
#include <cstring>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/TextEncoding.h"
#include "foundation/UserDefaults.h"
#include "metadata/MetaDataFormatting.h"
#include "toolbox/MetaData.h"

namespace quillora {

using namespace toolbox;

namespace {

constexpr std::string_view kGetMetaData =
    "-[QTDataEditor getMetaDataFromMovie:dataStorageFormatType:dataKeyFormatType:]";
constexpr std::string_view kSetMetaData = "-[QTDataEditor setMetaData:asType:]";
constexpr std::string_view kLangCode = "-[QTDataEditor langCode]";
constexpr std::string_view kUpdateMovie = "-[QTDataEditor updateMovie]";
constexpr std::uint32_t kUTF8DataType = 1;

struct KeyName {
    std::string_view from;
    std::string_view to;
};
// Short keys as GetUnsignedIntegerBEDataAsString shows a native OSType.
constexpr std::array<KeyName, 6> kShortKeyNames = {{{"0xa96e616d", "title"},
                                                    {"0xa9415254", "author"},
                                                    {"0x74766e6e", "university"},
                                                    {"0x74767368", "class name"},
                                                    {"0x7476656e", "class number"},
                                                    {"0xa9737772", "software"}}};
// The last one is not a known key; kept as it has always been.
constexpr std::array<KeyName, 3> kAnyKeyNames = {
    {{"\u00A9ART", "author"}, {"\u00A9nam", "title"}, {"manU\u00A9", "nut"}}};

constexpr std::array<KeyName, 4> kCommonKeys = {
    {{"author", "auth"}, {"title", "name"}, {"Information", "info"}, {"software", "soft"}}};

std::string typeName(std::uint32_t dataType)
{
    switch (dataType) {
    case 0:
        return "Binary";
    case 1:
        return "UTF-8";
    case 2:
        return "UTF-16BE";
    case 3:
        return "Mac-Encoded Text";
    case 21:
        return "Signed Integer (Big-Endian)";
    case 22:
        return "Unsigned Integer (Big-Endian)";
    case 23:
        return "32-bit Float (Big-Endian)";
    case 24:
        return "64-bit Float (Big-Endian)";
    default:
        return "undefined";
    }
}

std::string renamed(std::string key, std::span<const KeyName> names)
{
    for (const auto& name : names) {
        if (key == name.from) return std::string(name.to);
    }
    return key;
}

}  // namespace

Value QTDataEditor::getMetaDataFromMovie(Movie& movie, std::uint32_t dataStorageFormatType,
                                         std::uint32_t dataKeyFormatType)
{
    logMethod(kGetMetaData, "Getting Metadata from movie");
    Value result = Value::dictionary();
    QTMetaDataRef metaData;
    QTCopyMovieMetaData(movie, metaData);
    QTMetaDataItem item = kQTMetaDataItemUninitialized;
    while (QTMetaDataGetNextItem(metaData, dataStorageFormatType, item, dataKeyFormatType, &item) == noErr &&
           item != kQTMetaDataItemUninitialized) {
        Bytes key;
        QTMetaDataGetItemProperty(metaData, item, kPropertyClass_MetaDataItem, kQTMetaDataItemPropertyID_Key, key);
        std::string keyText(key.begin(), key.end());
        if (dataKeyFormatType == kQTMetaDataKeyFormatiTunesShortForm && key.size() == 4) {
            // The key is an OSType: a number in the machine's own byte order.
            const std::uint32_t osType = readU32BE(key.data());
            std::uint8_t native[4];
            std::memcpy(native, &osType, 4);
            keyText = renamed(GetUnsignedIntegerBEDataAsString(native, 4).value_or(""), kShortKeyNames);
        }
        Bytes dataType;
        QTMetaDataGetItemProperty(metaData, item, kPropertyClass_MetaDataItem, kQTMetaDataItemPropertyID_DataType,
                                  dataType);
        const std::uint32_t type = dataType.size() == 4 ? readU32BE(dataType.data()) : 0;
        std::size_t size = 0;
        QTMetaDataGetItemValue(metaData, item, nullptr, 0, &size);
        Bytes value(size);
        QTMetaDataGetItemValue(metaData, item, value.data(), value.size(), nullptr);
        const std::string valueText =
            type >= 1 && type <= 3 ? std::string(value.begin(), value.end()) : "(" + typeName(type) + ")";
        result.asDictionary()->set(renamed(keyText, kAnyKeyNames), valueText);
    }
    return result;
}

Value QTDataEditor::getMetaDataForFileAtPath(const std::string& path)
{
    Value result = Value::dictionary();
    auto movie = Movie::movieWithFile(path);
    auto read = [&](std::uint32_t storage, std::uint32_t keys) {
        return movie ? getMetaDataFromMovie(*movie, storage, keys) : Value::dictionary();
    };
    result.asDictionary()->set("iTunesShortForm",
                               read(kQTMetaDataStorageFormatiTunes, kQTMetaDataKeyFormatiTunesShortForm));
    result.asDictionary()->set("iTunesLongForm",
                               read(kQTMetaDataStorageFormatiTunes, kQTMetaDataKeyFormatiTunesLongForm));
    result.asDictionary()->set("QuickTimeNative",
                               read(kQTMetaDataStorageFormatQuickTime, kQTMetaDataKeyFormatQuickTime));
    return result;
}

bool QTDataEditor::setMetaData(const Value& tags, std::uint32_t storageFormat)
{
    logMethod(kSetMetaData, "Setting MetaData");
    if (tags.isNull()) return true;  // no tags: nothing to set
    auto entries = tags.asDictionary();
    QUILLORA_ASSERT(entries && sourceMovie_, std::string(kSetMetaData), "no tags or no movie");
    entries->set("software", "Quillora");
    QTMetaDataRef metaData;
    QTCopyMovieMetaData(*sourceMovie_, metaData);
    for (const auto& [name, value] : *entries) {
        auto common =
            std::find_if(kCommonKeys.begin(), kCommonKeys.end(), [&](const auto& k) { return k.from == name; });
        if (common == kCommonKeys.end()) continue;
        const std::string* text = value.asString();
        QUILLORA_ASSERT(text && decodeUTF8(*text), std::string(kSetMetaData), "UTF8String failed!");
        const Bytes key = [&] {
            ByteWriter writer(4);
            writer.putString(common->to);
            return writer.take();
        }();
        QTMetaDataItem item = kQTMetaDataItemUninitialized;
        const OSErr added = QTMetaDataAddItem(metaData, storageFormat, kQTMetaDataKeyFormatCommon, key.data(),
                                              key.size(), text->data(), text->size(), kUTF8DataType, &item);
        QUILLORA_ASSERT(added == noErr, std::string(kSetMetaData), "QTMetaDataAddItem failed!");
        const std::string language = langCode();
        QTMetaDataSetItemProperty(metaData, item, kPropertyClass_MetaDataItem, kQTMetaDataItemPropertyID_Locale,
                                  language.size() + 1, language.c_str());
    }
    return true;
}

std::string QTDataEditor::langCode()
{
    const UserDefaults defaults = UserDefaults::standardUserDefaults();
    const Value* languages = defaults.objectForKey("AppleLanguages");
    QUILLORA_ASSERT(languages, std::string(kLangCode), "objectForKey failed!");
    const auto list = languages->asArray();
    const std::string first = list && !list->empty() && list->front().asString() ? *list->front().asString() : "";
    const Bytes roman = macRomanFromUTF8(first, true).value_or(Bytes{});
    return std::string(roman.begin(), roman.end());
}

void QTDataEditor::updateMovie()
{
    logMethod(kUpdateMovie, "Updating the Movie");
    if (sourceMovie_) sourceMovie_->updateMovieFile();
}

}  // namespace quillora
