// The search primitive: one linear walk along a chain of atom headers.
#include "QTDataEditor.h"

#include "foundation/FourCC.h"
#include "foundation/Log.h"

namespace quillora {

namespace {
constexpr std::string_view kFindInFile = "-[QTDataEditor findAtomOfType:withOffset:andIndex:inFile:toIndex:atomSize:]";
constexpr std::string_view kFindInSource = "-[QTDataEditor findAtomOfType:withOffset:andIndex:toIndex:atomSize:]";
}  // namespace

std::optional<AtomLocation> QTDataEditor::findAtomOfType(std::uint32_t type, std::int32_t offset, int index,
                                                         FileHandle& file)
{
    return search(type, offset, index, file, kFindInFile);
}

std::optional<AtomLocation> QTDataEditor::findAtomOfType(std::uint32_t type, std::int32_t offset, int index)
{
    return search(type, offset, index, requireSourceFileHandle(), kFindInSource);
}

std::optional<AtomLocation> QTDataEditor::search(std::uint32_t type, std::int32_t offset, int index, FileHandle& file,
                                                 std::string_view method)
{
    if (atomDebugging_) {
        logMethod(method, "Searching for atom of type {} with a offset of {}...", stringFromFourCC(type), offset);
    }
    const std::uint32_t length = scanLength(file);
    const bool anyType = type == static_cast<std::uint32_t>(kQTInfoAnyAtomType_);
    std::int32_t current = offset;
    int counter = 1;
    for (;;) {
        auto header = readAtomHeader(file, current);
        if (!header) break;
        if (atomDebugging_) {
            logMethod(method, "Atom of type {} at offset {} with size {} ", stringFromFourCC(header->type), current,
                      header->size);
        }
        if (counter == index && (header->type == type || anyType)) {
            if (atomDebugging_) {
                logMethod(method, "Found atom of type {} at offset {} of size {}", stringFromFourCC(header->type),
                          current, header->size);
            }
            return AtomLocation{current, header->size};
        }
        current = wrappingAdd(current, header->size);
        if (header->type == type) ++counter;
        if (header->size <= 0) break;
        if (static_cast<std::uint32_t>(current) > length - 8u) break;
    }
    if (atomDebugging_) logMethod(method, "Read to the end.");
    return std::nullopt;
}

std::int32_t QTDataEditor::getSizeOfAtom(const Bytes& atom)
{
    if (atom.size() < 4) return 0;
    return static_cast<std::int32_t>(readU32BE(atom.data()));
}

}  // namespace quillora
