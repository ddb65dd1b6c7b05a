// A read-only, bounds-checked view of a file's atom tree, for showing a file
// to a person (quillora atoms, quillora inspect) and for tests. Unlike the
// editor's search, each walk stays inside its parent.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/FileHandle.h"

namespace quillora::toolbox {

struct AtomNode {
    std::uint32_t type = 0;
    std::int64_t offset = 0;
    std::int64_t size = 0;  // header included
    int depth = 0;
    std::int64_t childrenOffset = 0;  // where its children start, when it has any
    std::int64_t headerSize = 8;      // 16 when the size is a 64-bit one after the type

    std::int64_t payloadOffset() const { return offset + headerSize; }
    std::int64_t payloadSize() const { return size - headerSize; }
};

struct AtomTree {
    std::vector<AtomNode> atoms;  // in file order, parents before children
    std::vector<std::string> problems;
    // The last top-level atom runs past the end of the file: a recording cut
    // short. Its children are not read.
    bool cutShort = false;

    // The first atom along a path of types from the top ("moov", "trak", ...).
    std::optional<AtomNode> find(std::initializer_list<std::uint32_t> path) const;
    std::vector<AtomNode> childrenOf(const AtomNode& parent) const;
    std::optional<AtomNode> childOfType(const AtomNode& parent, std::uint32_t type) const;
    std::vector<AtomNode> topLevel() const;
};

// Reads the whole tree. A file that does not begin with a plausible atom
// is reported through the problems list with nothing in atoms.
AtomTree readAtomTree(FileHandle& file);
AtomTree readAtomTree(const std::filesystem::path& path);

// Containers whose children are shown, and where those children start
// after the container's header.
std::optional<std::int64_t> childOffsetOfContainer(std::uint32_t type, std::uint32_t parentType);

}  // namespace quillora::toolbox
