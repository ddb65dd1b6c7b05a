#include "toolbox/AtomContainer.h"

#include <algorithm>
#include <vector>

namespace quillora::toolbox {

namespace {

constexpr QTAtomID kRootAtomID = 1;
constexpr std::size_t kChildCountOffset = 14;

struct AtomView {
    std::uint32_t size;
    QTAtomType type;
    QTAtomID id;
    std::uint16_t childCount;
};

AtomView viewAt(const Bytes& bytes, std::size_t offset)
{
    ByteReader reader{std::span<const std::uint8_t>(bytes).subspan(offset, kQTAtomHeaderSize)};
    AtomView view{reader.getU32BE(), reader.getU32BE(), reader.getI32BE(), 0};
    reader.skip(2);
    view.childCount = reader.getU16BE();
    return view;
}

// The atoms from the root down to target, each one holding the next.
std::vector<std::size_t> pathTo(const Bytes& bytes, std::size_t target)
{
    std::vector<std::size_t> path{kQTAtomContainerHeaderSize};
    while (path.back() != target) {
        const std::size_t parent = path.back();
        const AtomView view = viewAt(bytes, parent);
        std::size_t child = parent + kQTAtomHeaderSize;
        std::size_t found = 0;
        for (std::uint16_t i = 0; i < view.childCount; ++i) {
            const std::uint32_t size = viewAt(bytes, child).size;
            if (target >= child && target < child + size) found = child;
            child += size;
        }
        if (found == 0) return {};
        path.push_back(found);
    }
    return path;
}

}  // namespace

OSErr QTNewAtomContainer(QTAtomContainer& container)
{
    container = NewHandleClear(kQTAtomContainerHeaderSize);
    if (!container) return MemError();
    ByteWriter root(kQTAtomHeaderSize);
    root.putU32BE(kQTAtomHeaderSize).putFourCC(kQTAtomContainerRootType).putI32BE(kRootAtomID);
    root.putU16BE(0).putU16BE(0).putU32BE(0);
    return PtrAndHand(root.bytes().data(), container, root.size());
}

OSErr QTInsertChild(const QTAtomContainer& container, QTAtom parent, QTAtomType type, QTAtomID id, std::int16_t index,
                    std::int32_t dataSize, const void* data, QTAtom* newAtom)
{
    if (!container || dataSize < 0 || (dataSize > 0 && !data)) return paramErr;
    Bytes& bytes = container->bytes;
    const std::size_t parentOffset =
        parent == kParentAtomIsContainer ? kQTAtomContainerHeaderSize : static_cast<std::size_t>(parent);
    if (parentOffset + kQTAtomHeaderSize > bytes.size()) return cannotFindAtomErr;
    const auto path = pathTo(bytes, parentOffset);
    if (path.empty()) return cannotFindAtomErr;

    // Where the new atom goes, and the first free ID of its type.
    const AtomView parentView = viewAt(bytes, parentOffset);
    std::size_t at = parentOffset + kQTAtomHeaderSize;
    std::size_t insertAt = parentOffset + parentView.size;
    QTAtomID freeID = 1;
    int sameType = 0;
    for (std::uint16_t i = 0; i < parentView.childCount; ++i) {
        const AtomView child = viewAt(bytes, at);
        if (child.type == type) {
            if (++sameType == index && insertAt == parentOffset + parentView.size) insertAt = at;
            freeID = std::max(freeID, child.id + 1);
        }
        at += child.size;
    }
    ByteWriter atom(kQTAtomHeaderSize + static_cast<std::size_t>(dataSize));
    atom.putU32BE(static_cast<std::uint32_t>(kQTAtomHeaderSize + dataSize)).putFourCC(type);
    atom.putI32BE(id == 0 ? freeID : id).putU16BE(0).putU16BE(0).putU32BE(0);
    if (dataSize > 0)
        atom.putBytes(std::span(static_cast<const std::uint8_t*>(data), static_cast<std::size_t>(dataSize)));

    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(insertAt), atom.bytes().begin(), atom.bytes().end());
    for (std::size_t ancestor : path)
        overwriteU32BE(bytes, ancestor, viewAt(bytes, ancestor).size + static_cast<std::uint32_t>(atom.size()));
    const std::uint16_t count = static_cast<std::uint16_t>(parentView.childCount + 1);
    overwriteU16BE(bytes, parentOffset + kChildCountOffset, count);
    if (newAtom) *newAtom = static_cast<QTAtom>(insertAt);
    return noErr;
}

std::optional<std::span<const std::uint8_t>> findQTAtomData(std::span<const std::uint8_t> container,
                                                            std::initializer_list<QTAtomType> path)
{
    if (container.size() < kQTAtomContainerHeaderSize + kQTAtomHeaderSize) return std::nullopt;
    std::span<const std::uint8_t> atom = container.subspan(kQTAtomContainerHeaderSize);
    try {
        for (QTAtomType type : path) {
            ByteReader parent(atom);
            const std::uint32_t parentSize = parent.getU32BE();
            parent.skip(10);
            const std::uint16_t children = parent.getU16BE();
            parent.skip(4);
            if (parentSize > atom.size()) return std::nullopt;
            std::span<const std::uint8_t> found;
            for (std::uint16_t i = 0; i < children && found.empty(); ++i) {
                const std::size_t at = parent.position();
                const std::uint32_t size = parent.getU32BE();
                const std::uint32_t childType = parent.getU32BE();
                if (size < kQTAtomHeaderSize || at + size > parentSize) return std::nullopt;
                if (childType == type) found = atom.subspan(at, size);
                parent.seek(at + size);
            }
            if (found.empty()) return std::nullopt;
            atom = found;
        }
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
    return atom.subspan(kQTAtomHeaderSize);
}

OSErr QTDisposeAtomContainer(QTAtomContainer& container)
{
    if (!container) return nilHandleErr;
    DisposeHandle(container);
    return noErr;
}

}  // namespace quillora::toolbox
