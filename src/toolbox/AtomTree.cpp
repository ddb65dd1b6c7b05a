#include "toolbox/AtomTree.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/FourCC.h"

namespace quillora::toolbox {

namespace {

constexpr int kMaximumDepth = 16;

bool plausibleType(std::uint32_t type)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        auto c = static_cast<unsigned char>(type >> shift);
        if (c != 0xA9 && (c < 0x20 || c > 0x7E)) return false;
    }
    return true;
}

void readLevel(FileHandle& file, std::int64_t begin, std::int64_t end, int depth, std::uint32_t parentType,
               AtomTree& tree)
{
    std::int64_t offset = begin;
    while (offset + 8 <= end) {
        file.seekToFileOffset(offset);
        Bytes header = file.readDataOfLength(static_cast<std::size_t>(std::min<std::int64_t>(16, end - offset)));
        if (header.size() < 8) break;
        std::uint64_t size = readU32BE(header.data());
        const std::uint32_t type = readU32BE(header.data() + 4);
        std::int64_t headerSize = 8;
        if (size == 1 && header.size() == 16) {
            // Media data of 4 GiB or more: a 64-bit size follows the type.
            size = (std::uint64_t{readU32BE(header.data() + 8)} << 32) | readU32BE(header.data() + 12);
            headerSize = 16;
        } else if (size == 0 && depth == 0) {
            size = static_cast<std::uint64_t>(end - offset);  // runs to the end of the file
        }
        // The items of a movie's own metadata list are named by key index.
        const bool namedByIndex = parentType == atom::ilst;
        if (size < static_cast<std::uint64_t>(headerSize) || (!namedByIndex && !plausibleType(type)) ||
            (size > static_cast<std::uint64_t>(end - offset) && depth > 0)) {
            tree.problems.push_back(
                fmt::format("bad atom header at offset {} (size {}, type {:08x})", offset, size, type));
            return;
        }
        if (size > static_cast<std::uint64_t>(end - offset)) {
            tree.cutShort = true;
            tree.problems.push_back(
                fmt::format("the file is cut short: the '{}' atom at offset {} has {} of its {} bytes",
                            stringFromFourCC(type), offset, end - offset, size));
            return;
        }
        AtomNode node{type, offset, static_cast<std::int64_t>(size), depth, 0, headerSize};
        auto childStart = childOffsetOfContainer(type, parentType);
        if (type == atom::meta && node.payloadSize() >= 8) {
            // A movie's own 'meta' has no version and flags: its handler follows the header.
            file.seekToFileOffset(node.payloadOffset() + 4);
            const Bytes next = file.readDataOfLength(4);
            if (next.size() == 4 && readU32BE(next.data()) == atom::hdlr) childStart = 0;
        }
        if (childStart) node.childrenOffset = node.payloadOffset() + *childStart;
        tree.atoms.push_back(node);
        if (childStart && depth < kMaximumDepth)
            readLevel(file, node.childrenOffset, offset + node.size, depth + 1, type, tree);
        offset += node.size;
    }
    if (offset != end && offset + 8 > end && offset < end) {
        tree.problems.push_back(fmt::format("{} stray bytes at offset {}", end - offset, offset));
    }
}

}  // namespace

std::optional<std::int64_t> childOffsetOfContainer(std::uint32_t type, std::uint32_t parentType)
{
    // Every item of an iTunes list holds 'data' children.
    if (parentType == atom::ilst) return 0;
    switch (type) {
    case atom::moov:
    case atom::trak:
    case atom::mdia:
    case atom::minf:
    case atom::stbl:
    case atom::udta:
    case atom::edts:
    case atom::tref:
    case atom::ilst:
    case fourCC("dinf"):
    case fourCC("tapt"):  // a track's sizes per aperture mode
    case fourCC("mvex"):  // the defaults of a fragmented file's tracks
    case fourCC("moof"):  // a fragment of a file written as it was recorded
    case fourCC("traf"):
        return 0;
    case atom::meta:
        return 4;  // past its version and flags
    default:
        return std::nullopt;
    }
}

AtomTree readAtomTree(FileHandle& file)
{
    AtomTree tree;
    readLevel(file, 0, file.length(), 0, 0, tree);
    return tree;
}

AtomTree readAtomTree(const std::filesystem::path& path)
{
    FileHandle file(path, FileHandle::Mode::Reading);
    return readAtomTree(file);
}

std::optional<AtomNode> AtomTree::find(std::initializer_list<std::uint32_t> path) const
{
    std::optional<AtomNode> current;
    for (std::uint32_t type : path) {
        const auto candidates = current ? childrenOf(*current) : topLevel();
        current.reset();
        for (const auto& node : candidates) {
            if (node.type == type) {
                current = node;
                break;
            }
        }
        if (!current) return std::nullopt;
    }
    return current;
}

std::vector<AtomNode> AtomTree::childrenOf(const AtomNode& parent) const
{
    // Atoms are stored in file order, parents before children, so a parent's
    // descendants follow it directly: only they are walked, never the whole
    // tree, which keeps a file of many atoms linear to show.
    std::vector<AtomNode> children;
    auto node = std::lower_bound(atoms.begin(), atoms.end(), parent.offset,
                                 [](const AtomNode& atom, std::int64_t offset) { return atom.offset < offset; });
    if (node == atoms.end() || node->offset != parent.offset) return children;
    for (++node; node != atoms.end() && node->offset < parent.offset + parent.size; ++node) {
        if (node->depth == parent.depth + 1) children.push_back(*node);
    }
    return children;
}

std::optional<AtomNode> AtomTree::childOfType(const AtomNode& parent, std::uint32_t type) const
{
    for (const auto& node : childrenOf(parent)) {
        if (node.type == type) return node;
    }
    return std::nullopt;
}

std::vector<AtomNode> AtomTree::topLevel() const
{
    std::vector<AtomNode> nodes;
    for (const auto& node : atoms) {
        if (node.depth == 0) nodes.push_back(node);
    }
    return nodes;
}

}  // namespace quillora::toolbox
