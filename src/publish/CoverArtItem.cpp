#include "publish/CoverArtItem.h"

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/PropertyList.h"
#include "publish/PublishError.h"

namespace quillora::publish {

namespace {

constexpr std::uint32_t kCoverItem = fourCC("covr");
constexpr std::uint32_t kDataAtom = fourCC("data");
// The item list's type codes of pictures.
constexpr std::uint32_t kJpegData = 13;
constexpr std::uint32_t kPngData = 14;

}  // namespace

void addCoverArt(const std::filesystem::path& podcast, const std::filesystem::path& picture)
{
    Bytes image;
    try {
        image = readWholeFile(picture);
    } catch (const std::exception& failure) {
        throw PublishError("The cover " + picture.string() + " cannot be read: " + failure.what());
    }
    const bool png = image.size() > 4 && image[0] == 0x89 && image[1] == 'P' && image[2] == 'N' && image[3] == 'G';
    ByteWriter data(8 + image.size());
    data.putU32BE(png ? kPngData : kJpegData).putU32BE(0).putBytes(image);

    FileHandle file(podcast, FileHandle::Mode::Updating);
    QTDataEditor editor;
    // A search runs on past its parent's end; only a child found inside counts.
    auto childOf = [&](std::uint32_t type, const AtomLocation& parent,
                       std::int32_t skip) -> std::optional<AtomLocation> {
        auto child = editor.findAtomOfType(type, parent.offset + 8 + skip, 1, file);
        if (child && child->offset < parent.offset + parent.size) return child;
        return std::nullopt;
    };
    std::optional<AtomLocation> ilst = editor.findAtomOfType(atom::moov, 0, 1, file);
    if (ilst) ilst = childOf(atom::udta, *ilst, 0);
    if (ilst) ilst = childOf(atom::meta, *ilst, 0);
    if (ilst) ilst = childOf(atom::ilst, *ilst, 4);  // past the meta atom's version and flags
    if (!ilst) throw PublishError("The podcast " + podcast.string() + " has no item list to add the cover to");
    if (auto old = childOf(kCoverItem, *ilst, 0)) editor.removeAtomAtOffset(old->offset, file);
    std::int32_t position = 0;
    editor.appendChildAtom(editor.createAtomOfType(kCoverItem, editor.createAtomOfType(kDataAtom, data.bytes())),
                           ilst->offset, file, position);
    file.closeFile();
}

}  // namespace quillora::publish
