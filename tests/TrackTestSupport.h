// Reading back the tracks the writers added, with the bounds-checked tree
// reader, and the expected bytes of the atoms all tracks share, built here
// field by field so the writers are checked against the layout, not against
// themselves.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "foundation/Bytes.h"
#include "toolbox/AtomTree.h"

namespace quillora::test {

class WrittenFile {
public:
    explicit WrittenFile(const std::filesystem::path& path);

    std::vector<toolbox::AtomNode> traks() const;
    toolbox::AtomNode lastTrak() const;
    // The whole atom (header included) along a path of types below a node.
    Bytes atomBelow(const toolbox::AtomNode& parent, std::initializer_list<std::uint32_t> path) const;
    std::vector<std::uint32_t> childTypes(const toolbox::AtomNode& parent,
                                          std::initializer_list<std::uint32_t> path) const;
    Bytes bytesAt(std::uint64_t offset, std::size_t length) const;

    // The sample tables of a track, read entry by entry.
    std::vector<std::uint32_t> sampleSizes(const toolbox::AtomNode& trak) const;
    std::vector<std::uint32_t> sampleDurations(const toolbox::AtomNode& trak) const;  // each count must be 1
    std::vector<std::uint32_t> chunkOffsets(const toolbox::AtomNode& trak) const;

    const Bytes& bytes() const { return bytes_; }
    const toolbox::AtomTree& tree() const { return tree_; }

private:
    std::optional<toolbox::AtomNode> nodeBelow(const toolbox::AtomNode& parent,
                                               std::initializer_list<std::uint32_t> path) const;
    Bytes bytes_;
    toolbox::AtomTree tree_;
};

Bytes expectedAtom(std::string_view type, const Bytes& payload);
Bytes expectedTkhd(std::uint32_t flags, std::uint32_t trackID, std::uint32_t duration, std::uint32_t size);
Bytes expectedEdts(std::uint32_t duration);
Bytes expectedMdhd(std::uint32_t duration, bool littleEndianDuration);
Bytes expectedHdlr(std::string_view type, std::string_view subtype, std::string_view manufacturer, std::uint32_t flags,
                   std::uint32_t mask, const Bytes& name);
Bytes expectedDataHdlr(std::uint32_t mask);  // "Apple Alias Data Handler"
Bytes expectedDinf();
Bytes expectedStsc();
Bytes lengthPrefixed(std::string_view text);  // one length byte

}  // namespace quillora::test
