// The iTunes-style item list: moov / udta / meta (with its hdlr) / ilst, one
// item atom holding one text `data` atom per supported tag. Missing
// containers are created and an existing ilst is replaced whole; every change
// goes through the editing primitives so sizes and chunk offsets stay right.
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "metadata/ItemAtoms.h"

namespace quillora {

namespace {
constexpr std::string_view kAddMetadataToFile = "-[QTDataEditor addMetadata:toFile:path:]";
constexpr std::string_view kAddMetadataToPath = "-[QTDataEditor addMetadata:toFileAtPath:]";

constexpr std::uint32_t kHandlerMetadataDirectory = fourCC("mdir");
constexpr std::uint32_t kHandlerManufacturer = fourCC("appl");

// The meta atom's version and flags sit before its children.
constexpr std::int32_t kMetaVersionAndFlags = 4;

Bytes metadataHandlerAtom(QTDataEditor& editor)
{
    ByteWriter payload;
    payload
        .putU32BE(0)  // version and flags
        .putU32BE(0)  // predefined
        .putFourCC(kHandlerMetadataDirectory)
        .putFourCC(kHandlerManufacturer)
        .putU32BE(0)
        .putU32BE(0)
        .putU8(0)
        .putU8(0);
    return editor.createAtomOfType(atom::hdlr, payload.bytes());
}

Bytes metaAtom(QTDataEditor& editor)
{
    ByteWriter payload;
    payload.putU32BE(0).putBytes(metadataHandlerAtom(editor));
    return editor.createAtomOfType(atom::meta, payload.bytes());
}

// The dictionary as one readable line: {key = "value"; ...}.
std::string describeTags(const Value& tags)
{
    std::string text = "{";
    if (auto dictionary = tags.asDictionary()) {
        for (const auto& [key, value] : *dictionary) {
            const std::string* string = value.asString();
            text += fmt::format("{} = \"{}\"; ", key, string ? *string : std::string("?"));
        }
    }
    return text + "}";
}

// Logs, records the supported keys, stamps the software name into the
// caller's dictionary and returns the item atoms in the dictionary's order.
Bytes prepareItems(QTDataEditor& editor, const Value& tags, std::string_view method)
{
    logMethod(method, "Writing MetaData {}", describeTags(tags));
    editor.setSupportedM4aTags(supportedTagKeys());
    auto dictionary = tags.asDictionary();
    if (!dictionary) return {};
    stampSoftwareName(*dictionary);
    return itemAtoms(editor, *dictionary, ItemText::cutToUTF16Length);
}

// Walks moov/udta/meta, creating what is missing, then puts the new ilst last
// in meta in place of any old one. Each search starts 8 bytes past the last
// atom actually found (not past one just created), and a missing moov is not
// noticed: the walk goes on from offset 0.
void writeItemList(QTDataEditor& editor, const Bytes& items, FileHandle& file)
{
    std::int32_t lastFound = 0;
    auto find = [&](std::uint32_t type, std::int32_t start) {
        auto hit = editor.findAtomOfType(type, start, 1, file);
        if (hit) lastFound = hit->offset;
        return hit;
    };
    auto findOrAppend = [&](std::uint32_t type, std::int32_t parent, const Bytes& emptyAtom) {
        if (auto hit = find(type, wrappingAdd(lastFound, 8))) return hit->offset;
        std::int32_t position = 0;
        editor.appendChildAtom(emptyAtom, parent, file, position);
        return position;
    };

    find(atom::moov, 0);
    const std::int32_t moovOffset = lastFound;
    const std::int32_t udtaOffset = findOrAppend(atom::udta, moovOffset, editor.createAtomOfType(atom::udta, {}));
    const std::int32_t metaOffset = findOrAppend(atom::meta, udtaOffset, metaAtom(editor));

    const std::int32_t ilstStart = wrappingAdd(wrappingAdd(lastFound, 8), kMetaVersionAndFlags);
    if (auto oldList = editor.findAtomOfType(atom::ilst, ilstStart, 1, file)) {
        editor.removeAtomAtOffset(oldList->offset, file);
    }
    std::int32_t ignored = 0;
    editor.appendChildAtom(editor.createAtomOfType(atom::ilst, items), metaOffset, file, ignored);
}

// Read and dropped, as the older entry point always did; a missing file is
// no concern.
void readWholeFileIgnoringResult(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) return;
    Bytes unused{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
}  // namespace

bool QTDataEditor::addMetadata(const Value& tags, FileHandle& file, const std::string& /*path*/)
{
    const Bytes items = prepareItems(*this, tags, kAddMetadataToFile);
    writeItemList(*this, items, file);
    return true;
}

bool QTDataEditor::addMetadata(const Value& tags, const std::filesystem::path& path)
{
    const Bytes items = prepareItems(*this, tags, kAddMetadataToPath);
    std::optional<FileHandle> file;
    try {
        file.emplace(path, FileHandle::Mode::Updating);
    } catch (const FileError&) {
        // A file that cannot be opened is left alone; this entry point
        // reports nothing and answers YES.
    }
    if (file) {
        writeItemList(*this, items, *file);
        file->closeFile();
    }
    if (!tempSourceFilePath_.empty()) readWholeFileIgnoringResult(tempSourceFilePath_);
    return true;
}

}  // namespace quillora
