// Reading back the tracks the writers added, with the bounds-checked tree
// reader, and expected bytes built here field by field, so the writers are
// checked against the layout, not against themselves.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "QTDataEditor.h"
#include "foundation/Bytes.h"
#include "toolbox/AtomTree.h"

namespace quillora::test {

struct WrittenFile {
    explicit WrittenFile(const std::filesystem::path& path);
    // The whole atom along a path of types below a node; empty (and a failure) when missing.
    Bytes below(const toolbox::AtomNode& parent, std::initializer_list<std::uint32_t> path) const;
    Bytes at(std::uint64_t offset, std::size_t length) const;
    // The entries of a track's stsz, stts (durations, each for one sample) or stco.
    std::vector<std::uint32_t> table(const toolbox::AtomNode& trak, std::uint32_t type) const;
    // Each sample has its size and lies at its chunk offset.
    void expectSamples(const toolbox::AtomNode& trak, const std::vector<Bytes>& samples) const;

    Bytes bytes;
    toolbox::AtomTree tree;
    std::vector<toolbox::AtomNode> traks;
};

// Runs writers that must succeed on an updating handle, then reads the file back.
WrittenFile afterWriting(const std::filesystem::path& path,
                         const std::function<bool(QTDataEditor&, FileHandle&)>& write);

Bytes u16s(const std::vector<std::uint16_t>& values);  // big-endian
Bytes u32s(const std::vector<std::uint32_t>& values);
Bytes chars(std::string_view text);
Bytes pascal(std::string_view text);  // one length byte
Bytes join(std::initializer_list<Bytes> parts);
Bytes box(std::string_view type, std::initializer_list<Bytes> parts);

inline const Bytes kIdentityMatrixBytes = u32s({0x00010000, 0, 0, 0, 0x00010000, 0, 0, 0, 0x40000000});
Bytes tkhd(std::uint32_t flags, std::uint32_t trackID, std::uint32_t duration, std::uint32_t size);
Bytes hdlr(std::string_view type, std::string_view subtype, std::string_view maker, std::uint32_t flags,
           std::uint32_t mask, const Bytes& name);
// The whole track: tkhd, edts, and mdia holding the media header, handlers, the
// one sample description and the tables after stsc.
Bytes trak(const Bytes& tkhd, std::uint32_t duration, const Bytes& mdhdDuration, const Bytes& mediaHandler,
           const Bytes& mediaHeader, std::uint32_t dataMask, const Bytes& entry, const Bytes& tables);
Bytes stts(const std::vector<std::uint32_t>& durations);  // one sample an entry

Bytes textSample(std::string_view text);  // a 16-bit length, as notes are
Bytes chapterSample(std::string_view title);
Bytes linkSample(std::string_view title, std::string_view url);

}  // namespace quillora::test
