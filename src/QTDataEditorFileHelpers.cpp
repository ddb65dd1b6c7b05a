// Whole-file helpers on top of the search and the edits: the image-type test,
// the file-type rewrite, free-space cleaning, locating a track, and the item
// list reader.
#include <array>
#include <fstream>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"

namespace quillora {

namespace {
constexpr std::string_view kCleanFreeAtoms = "-[QTDataEditor cleanFreeAtoms]";
constexpr std::string_view kCopyTrakAtoms = "-[QTDataEditor copyTRAKAtomsFromFile:atOffset:toFile:]";

// The 24 bytes written after the file-type header by the M4A conversion.
Bytes m4aFileTypeContent()
{
    ByteWriter writer;
    writer
        .putFourCC(fourCC("M4A "))  // major brand
        .putU32BE(0)                // minor version
        .putFourCC(fourCC("M4A "))
        .putFourCC(fourCC("mp42"))
        .putFourCC(fourCC("isom"))
        .putU32BE(0);  // an empty brand slot
    return writer.take();
}
}  // namespace

std::optional<std::string> QTDataEditor::getImageTypeFromFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::array<std::uint8_t, 8> b{};
    in.read(reinterpret_cast<char*>(b.data()), b.size());
    const auto n = static_cast<std::size_t>(in.gcount());
    auto has = [n](std::size_t count) { return n >= count; };

    if (has(4)) {
        const std::uint32_t first = readU32BE(b.data());
        if (first == 0xFFD8FFE0) return "JPEG";
        if (first == 0x89504E47) return "PNG";
    }
    if (has(3) && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF) return "JPEG";
    if (has(2) && ((b[0] == 'I' && b[1] == 'I') || (b[0] == 'M' && b[1] == 'M'))) return "TIFF";
    if (has(3) && b[0] == 'G' && b[1] == 'I' && b[2] == 'F') return "GIF";
    if (has(2) && b[0] == 'B' && b[1] == 'M') return "BMP";
    if (has(4) && b[0] == '8' && b[1] == 'B' && b[2] == 'P' && b[3] == 'S') return "PSD";
    constexpr std::array<std::uint8_t, 8> kPngSignature = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (has(8) && b == kPngSignature) return "PNG";
    return std::nullopt;
}

bool QTDataEditor::convertMovAtPath(const std::filesystem::path& source, const std::filesystem::path& destination)
{
    // Like the file manager's copy, an existing destination is not replaced.
    std::error_code ignored;
    std::filesystem::copy_file(source, destination, ignored);
    sourceFileHandle_ = std::make_shared<FileHandle>(destination, FileHandle::Mode::Updating);
    findAtomOfType(atom::ftyp, 0, 1);

    // Fixed offsets: a 32-byte file-type atom followed by the movie atom.
    FileHandle& file = *sourceFileHandle_;
    file.seekToFileOffset(8);
    file.writeData(m4aFileTypeContent());
    file.seekToFileOffset(36);
    ByteWriter moov;
    moov.putFourCC(atom::moov);
    file.writeData(moov.bytes());
    file.closeFile();
    return true;
}

bool QTDataEditor::cleanFreeAtoms()
{
    logMethod(kCleanFreeAtoms, "Cleaning free atoms...");
    std::int32_t start = 0;
    std::optional<AtomLocation> meta;
    for (std::uint32_t type : {atom::moov, atom::udta, atom::meta}) {
        auto found = findAtomOfType(type, start, 1);
        if (type == atom::udta && !found) return false;
        if (!found) continue;
        start = wrappingAdd(found->offset, 8);
        if (type == atom::meta) meta = found;
    }
    if (!meta) return true;

    auto freeAtom = findAtomOfType(atom::free, wrappingAdd(meta->offset, 12), 1);
    if (!freeAtom) return true;
    logMethod(kCleanFreeAtoms, "Found free atoms in udta");
    removeAtomAtOffset(freeAtom->offset, requireSourceFileHandle());
    return true;
}

bool QTDataEditor::copyTRAKAtomsFromFile(FileHandle& source, std::int32_t /*offset*/, FileHandle& destination)
{
    logMethod(kCopyTrakAtoms, "Copying track atoms...");
    findAtomOfType(atom::mdat, 0, 1, destination);
    auto moov = findAtomOfType(atom::moov, 0, 1, source);
    auto secondTrack = findAtomOfType(atom::trak, moov ? wrappingAdd(moov->offset, 8) : 0, 2, source);
    if (secondTrack && sourceFileHandle_) sourceFileHandle_->seekToFileOffset(secondTrack->offset);
    return true;
}

Value QTDataEditor::readiTunesMetadata()
{
    return Value::dictionary();
}

}  // namespace quillora
