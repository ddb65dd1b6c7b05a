#include "toolbox/MetaDataAtoms.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "foundation/FourCC.h"
#include "layout/TrackAtoms.h"
#include "toolbox/SampleTable.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kKeys = fourCC("keys");
constexpr std::uint32_t kData = fourCC("data");
constexpr std::uint32_t kLongItem = fourCC("----");
constexpr std::uint32_t kItemName = fourCC("name");

struct LanguageName {
    std::string_view twoLetters;
    std::string_view threeLetters;
};
// The languages a host is likely to prefer; others are stored as unspecified.
constexpr std::array<LanguageName, 16> kLanguages = {{{"en", "eng"},
                                                      {"fr", "fra"},
                                                      {"de", "deu"},
                                                      {"es", "spa"},
                                                      {"it", "ita"},
                                                      {"nl", "nld"},
                                                      {"pt", "por"},
                                                      {"sv", "swe"},
                                                      {"da", "dan"},
                                                      {"fi", "fin"},
                                                      {"nb", "nob"},
                                                      {"ja", "jpn"},
                                                      {"zh", "zho"},
                                                      {"ko", "kor"},
                                                      {"ru", "rus"},
                                                      {"pl", "pol"}}};

std::uint16_t packLanguage(std::string_view threeLetters)
{
    std::uint16_t code = 0;
    for (char c : threeLetters) code = static_cast<std::uint16_t>((code << 5) | (c - 0x60));
    return code;
}

// Type, locale and value of an item's 'data' child.
bool readData(FileHandle& file, const AtomTree& tree, const AtomNode& item, MetaDataItem& into)
{
    auto data = tree.childOfType(item, kData);
    if (!data) return false;
    const Bytes payload = readAtomPayload(file, *data);
    if (payload.size() < 8) return false;
    into.dataType = readU32BE(payload.data()) & 0x00FFFFFF;
    into.locale = localeFromPacked(readU32BE(payload.data() + 4));
    into.value.assign(payload.begin() + 8, payload.end());
    return true;
}

std::vector<Bytes> readKeys(const Bytes& keys)
{
    std::vector<Bytes> names;
    try {
        ByteReader reader(keys);
        reader.skip(4);
        const std::uint32_t count = reader.getU32BE();
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint32_t size = reader.getU32BE();
            reader.skip(4);  // the namespace, 'mdta'
            if (size < 8) break;
            const auto name = reader.getBytes(size - 8);
            names.emplace_back(name.begin(), name.end());
        }
    } catch (const std::out_of_range&) {
    }
    return names;
}

// Items named by their key's index in the 'keys' table.
void readKeyed(FileHandle& file, const AtomTree& tree, const AtomNode& keys, const AtomNode& ilst,
               std::vector<MetaDataItem>& items)
{
    const auto names = readKeys(readAtomPayload(file, keys));
    for (const auto& node : tree.childrenOf(ilst)) {
        if (node.type == 0 || node.type > names.size()) continue;
        MetaDataItem item{
            kQTMetaDataStorageFormatQuickTime, kQTMetaDataKeyFormatQuickTime, names[node.type - 1], 0, {}, {}};
        if (readData(file, tree, node, item)) items.push_back(std::move(item));
    }
}

void readITunes(FileHandle& file, const AtomTree& tree, const AtomNode& ilst, std::vector<MetaDataItem>& items)
{
    for (const auto& node : tree.childrenOf(ilst)) {
        MetaDataItem item{kQTMetaDataStorageFormatiTunes, kQTMetaDataKeyFormatiTunesShortForm, {}, 0, {}, {}};
        if (node.type == kLongItem) {
            item.keyFormat = kQTMetaDataKeyFormatiTunesLongForm;
            if (auto name = tree.childOfType(node, kItemName)) {
                const Bytes payload = readAtomPayload(file, *name);
                if (payload.size() > 4) item.key.assign(payload.begin() + 4, payload.end());
            }
        } else {
            ByteWriter key(4);
            key.putFourCC(node.type);
            item.key = key.take();
        }
        if (readData(file, tree, node, item)) items.push_back(std::move(item));
    }
}

// A 'meta' with a 'keys' table holds keyed items wherever it is (recorders
// put it in the user data too); one without holds iTunes items.
void readMeta(FileHandle& file, const AtomTree& tree, const AtomNode& meta, std::vector<MetaDataItem>& items)
{
    auto ilst = tree.childOfType(meta, atom::ilst);
    if (!ilst) return;
    if (auto keys = tree.childOfType(meta, kKeys)) {
        readKeyed(file, tree, *keys, *ilst, items);
    } else {
        readITunes(file, tree, *ilst, items);
    }
}

}  // namespace

std::vector<MetaDataItem> readMetaDataItems(FileHandle& file, const AtomTree& tree)
{
    std::vector<MetaDataItem> items;
    if (auto meta = tree.find({atom::moov, atom::meta})) readMeta(file, tree, *meta, items);
    if (auto meta = tree.find({atom::moov, atom::udta, atom::meta})) readMeta(file, tree, *meta, items);
    return items;
}

Bytes nativeMetaDataAtom(TrackAtoms& atoms, const std::vector<MetaDataItem>& items)
{
    ByteWriter keys;
    ByteWriter list;
    std::uint32_t count = 0;
    for (const auto& item : items) {
        if (item.storage != kQTMetaDataStorageFormatQuickTime) continue;
        ++count;
        keys.putU32BE(static_cast<std::uint32_t>(item.key.size() + 8)).putFourCC(kQTMetaDataKeyFormatQuickTime);
        keys.putBytes(item.key);
        ByteWriter data;
        data.putU32BE(item.dataType).putU32BE(packedLocale(item.locale)).putBytes(item.value);
        const Bytes dataAtom = atoms.atom(kData, data.bytes());
        list.putBytes(atoms.atom(count, dataAtom));
    }
    if (count == 0) return {};
    ByteWriter keysPayload;
    keysPayload.putU32BE(0).putU32BE(count).putBytes(keys.bytes());
    const Bytes hdlr = atoms.hdlr({0, kQTMetaDataStorageFormatQuickTime, 0, 0, 0, pascalName("")});
    const Bytes keysAtom = atoms.atom(kKeys, keysPayload.bytes());
    const Bytes ilst = atoms.atom(atom::ilst, list.bytes());
    // The movie's own 'meta' is a plain container: no version and flags.
    return atoms.container(atom::meta, {hdlr, keysAtom, ilst});
}

std::uint32_t packedLocale(const std::string& locale)
{
    const std::string language = locale.substr(0, locale.find_first_of("_-"));
    std::uint16_t packedLanguage = 0;
    for (const auto& known : kLanguages) {
        if (known.twoLetters == language || known.threeLetters == language)
            packedLanguage = packLanguage(known.threeLetters);
    }
    std::uint16_t country = 0;
    const auto separator = locale.find_first_of("_-");
    if (separator != std::string::npos && locale.size() >= separator + 3) {
        country = static_cast<std::uint16_t>((static_cast<unsigned char>(locale[separator + 1]) << 8) |
                                             static_cast<unsigned char>(locale[separator + 2]));
    }
    return (std::uint32_t{country} << 16) | packedLanguage;
}

std::string localeFromPacked(std::uint32_t packed)
{
    const std::uint16_t packedLanguage = packed & 0x7FFF;
    std::string locale;
    for (const auto& known : kLanguages) {
        if (packLanguage(known.threeLetters) == packedLanguage && packedLanguage != 0) locale = known.twoLetters;
    }
    const std::uint16_t country = static_cast<std::uint16_t>(packed >> 16);
    if (country != 0 && !locale.empty()) {
        locale += '_';
        locale += static_cast<char>(country >> 8);
        locale += static_cast<char>(country & 0xFF);
    }
    return locale;
}

}  // namespace quillora::toolbox
