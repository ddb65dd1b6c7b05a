// In-place edits: build an atom, grow one, cut one out, then repair the file:
// the size of every enclosing atom and the chunk offsets of the tracks whose
// chunks moved. The tail of the file moves through FileHandle's insert and
// remove primitive, never through a whole-tail buffer.
#include <algorithm>
#include <array>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"

namespace quillora {

namespace {
constexpr std::string_view kCreateAtom = "-[QTDataEditor createAtomOfType:withData:]";
constexpr std::string_view kAppendData = "-[QTDataEditor appendData:toAtomAtOffset:inFile:]";
constexpr std::string_view kAppendChild = "-[QTDataEditor appendChildAtom:toParentAtOffset:inFile:childPosition:]";
constexpr std::string_view kRemoveAtom = "-[QTDataEditor removeAtomAtOffset:inFile:]";
constexpr std::string_view kUpdateParentSize = "-[QTDataEditor updateParentSize:forChildAtOffset:inFile:addition:]";
constexpr std::string_view kFindParents =
    "-[QTDataEditor findParentAtomsOfChildAtOffset:readOffset:inFile:toIndex:updateSize:addition:]";
constexpr std::string_view kUpdateSTCO = "-[QTDataEditor updateSTCOAtomsInFile:editOffset:withNewOffet:addition:]";

// The path from the top of the file to a track's chunk offsets.
constexpr std::array<std::uint32_t, 6> kChunkOffsetPath = {atom::moov, atom::trak, atom::mdia,
                                                           atom::minf, atom::stbl, atom::stco};
// Only the first five tracks have their chunk offsets shifted.
constexpr int kTracksWithShiftedChunks = 5;

// Entries are read and rewritten a block at a time, so a table of any length
// (or a damaged count) costs bounded memory.
constexpr std::size_t kChunkOffsetBlock = 16384;

// Shifts every chunk offset greater than the edit offset; entries equal to
// or below it stay. A count that runs past the end of the file is cut to the
// entries that are there.
void shiftChunkOffsets(FileHandle& file, std::int64_t tableOffset, std::uint32_t count, std::int32_t editOffset,
                       std::int32_t delta, bool addition)
{
    const std::int64_t available = std::max<std::int64_t>(0, file.length() - tableOffset) / 4;
    const std::int64_t entries = std::min<std::int64_t>(count, available);
    for (std::int64_t first = 0; first < entries; first += kChunkOffsetBlock) {
        const auto block = static_cast<std::size_t>(std::min<std::int64_t>(kChunkOffsetBlock, entries - first));
        const std::int64_t blockOffset = tableOffset + first * 4;
        file.seekToFileOffset(blockOffset);
        Bytes table = file.readDataOfLength(block * 4);
        bool changed = false;
        ByteWriter rewritten(table.size());
        for (std::size_t i = 0; i < block; ++i) {
            auto value = static_cast<std::int32_t>(readU32BE(table.data() + i * 4));
            if (value > editOffset) {
                value = addition ? wrappingAdd(value, delta) : wrappingSubtract(value, delta);
                changed = true;
            }
            rewritten.putI32BE(value);
        }
        if (changed) {
            file.seekToFileOffset(blockOffset);
            file.writeData(rewritten.bytes());
        }
    }
}

void writeSize(FileHandle& file, std::int32_t offset, std::int32_t size)
{
    ByteWriter writer;
    writer.putI32BE(size);
    file.seekToFileOffset(offset);
    file.writeData(writer.bytes());
}

// The end of an atom that can take more bytes: a damaged size that puts it
// before the start of the file or past its end names no place to insert at,
// and inserting there would grow the file by far more than the data given.
std::optional<std::int32_t> insertionPoint(FileHandle& file, std::int32_t atomOffset, std::int32_t atomSize)
{
    const std::int32_t end = wrappingAdd(atomOffset, atomSize);
    if (end < 0 || end > file.length()) return std::nullopt;
    return end;
}
}  // namespace

Bytes QTDataEditor::createAtomOfType(std::uint32_t type, std::span<const std::uint8_t> data)
{
    if (atomDebugging_) logMethod(kCreateAtom, "Creating atom of type {}", stringFromFourCC(type));
    ByteWriter writer(data.size() + 8);
    writer.putU32BE(static_cast<std::uint32_t>(data.size() + 8)).putFourCC(type).putBytes(data);
    return writer.take();
}

std::int32_t QTDataEditor::appendData(std::span<const std::uint8_t> data, std::int32_t atomOffset, FileHandle& file)
{
    const auto length = static_cast<std::int32_t>(data.size());
    if (atomDebugging_) logMethod(kAppendData, "Appending data of size {} to atom at offset {}...", length, atomOffset);
    auto header = readAtomHeader(file, atomOffset);
    if (!header) return -1;
    const auto insertAt = insertionPoint(file, atomOffset, header->size);
    if (!insertAt) return -1;
    const std::int32_t end = *insertAt;

    file.insertBytes(end, data);
    file.synchronizeFile();
    writeSize(file, atomOffset, wrappingAdd(header->size, length));
    updateParentSize(length, atomOffset, file, true);
    updateSTCOAtomsInFile(file, end, length, true);
    return end;
}

std::int32_t QTDataEditor::appendChildAtom(std::span<const std::uint8_t> atom, std::int32_t parentOffset,
                                           FileHandle& file, std::int32_t& childPosition)
{
    const auto length = static_cast<std::int32_t>(atom.size());
    if (atomDebugging_) {
        logMethod(kAppendChild, "Appending child atom of size {} to parent at offset {}...", length, parentOffset);
    }
    auto header = readAtomHeader(file, parentOffset);
    if (!header) return 1;
    const auto insertAt = insertionPoint(file, parentOffset, header->size);
    if (!insertAt) return 1;
    const std::int32_t end = *insertAt;

    file.insertBytes(end, atom);
    writeSize(file, parentOffset, wrappingAdd(header->size, length));
    file.synchronizeFile();
    updateParentSize(length, parentOffset, file, true);
    updateSTCOAtomsInFile(file, end, length, true);
    file.synchronizeFile();
    childPosition = end;
    return 1;
}

bool QTDataEditor::removeAtomAtOffset(std::int32_t offset, FileHandle& file)
{
    if (atomDebugging_) logMethod(kRemoveAtom, "Removing atom at offset {}...", offset);
    auto header = readAtomHeader(file, offset);
    // A negative size names no range that could be cut out.
    if (!header || header->size < 0) return false;

    file.removeBytes(offset, header->size);
    updateParentSize(header->size, offset, file, false);
    updateSTCOAtomsInFile(file, offset, header->size, false);
    return true;
}

bool QTDataEditor::updateParentSize(std::int32_t delta, std::int32_t childOffset, FileHandle& file, bool addition)
{
    if (atomDebugging_) logMethod(kUpdateParentSize, "Updating parent size for child at offset {}...", childOffset);
    std::int32_t readOffset = 0;
    for (;;) {
        std::int32_t parent = 0;
        bool found = findParentAtomsOfChildAtOffset(childOffset, readOffset, file, parent, delta, addition);
        if (!found) break;
        // The line shows the search's result, not the parent's offset.
        if (atomDebugging_) logMethod(kUpdateParentSize, "Parent found at {}", found ? 1 : 0);
        readOffset = wrappingAdd(parent, 8);
        // Each level starts inside the one above; a wrap past 2 GiB would
        // start the walk over, so it ends the descent instead.
        if (readOffset <= parent) break;
    }
    return true;
}

bool QTDataEditor::findParentAtomsOfChildAtOffset(std::int32_t childOffset, std::int32_t readOffset, FileHandle& file,
                                                  std::int32_t& parentOffset, std::int32_t delta, bool addition)
{
    if (atomDebugging_) {
        logMethod(kFindParents, "Finding parent atoms of child at offset {} file with initial offset {}", childOffset,
                  readOffset);
    }
    const std::uint32_t length = scanLength(file);
    std::int32_t current = readOffset;
    for (;;) {
        auto header = readAtomHeader(file, current);
        if (!header) break;
        if (atomDebugging_) {
            logMethod(kFindParents, "Atom of type {} and size {} at position {}", stringFromFourCC(header->type),
                      header->size, current);
        }
        if (current < childOffset && childOffset < wrappingAdd(current, header->size)) {
            parentOffset = current;
            if (delta != 0) {
                writeSize(file, current,
                          addition ? wrappingAdd(header->size, delta) : wrappingSubtract(header->size, delta));
            }
            return true;
        }
        current = wrappingAdd(current, header->size);
        if (header->size <= 0) break;
        if (static_cast<std::uint32_t>(current) > length - 8u) break;
    }
    if (atomDebugging_) logMethod(kFindParents, "Read to the end.");
    return false;
}

bool QTDataEditor::updateSTCOAtomsInFile(FileHandle& file, std::int32_t editOffset, std::int32_t withNewOffet,
                                         bool addition)
{
    if (atomDebugging_) logMethod(kUpdateSTCO, "Updating stco atoms with new offset... {}", withNewOffet);
    for (int track = 1; track <= kTracksWithShiftedChunks; ++track) {
        if (atomDebugging_) logMethod(kUpdateSTCO, "Updating stco on track {} with offset {}...", track, withNewOffet);
        std::int32_t start = 0;
        std::optional<AtomLocation> chunkOffsets;
        for (std::uint32_t type : kChunkOffsetPath) {
            auto found = findAtomOfType(type, start, type == atom::trak ? track : 1, file);
            if (!found) continue;  // the next level searches again below the last atom found
            start = wrappingAdd(found->offset, 8);
            if (type == atom::stco) chunkOffsets = found;
        }
        if (!chunkOffsets) continue;

        file.seekToFileOffset(chunkOffsets->offset);
        Bytes head = file.readDataOfLength(16);
        if (head.size() < 16) continue;
        shiftChunkOffsets(file, static_cast<std::int64_t>(chunkOffsets->offset) + 16, readU32BE(head.data() + 12),
                          editOffset, withNewOffet, addition);
    }
    return true;
}

bool QTDataEditor::isLastAtomInFile(std::uint32_t type, int index)
{
    kQTInfoAnyAtomType_ = 0;
    auto found = findAtomOfType(type, 0, index);
    if (!found) return false;
    return !findAtomOfType(static_cast<std::uint32_t>(kQTInfoAnyAtomType_), wrappingAdd(found->offset, found->size), 1);
}

}  // namespace quillora
