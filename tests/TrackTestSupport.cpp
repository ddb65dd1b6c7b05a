#include "TrackTestSupport.h"

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "foundation/FourCC.h"

namespace quillora::test {

WrittenFile::WrittenFile(const std::filesystem::path& path) : bytes_(readFile(path)), tree_(toolbox::readAtomTree(path))
{
    EXPECT_TRUE(tree_.problems.empty()) << (tree_.problems.empty() ? "" : tree_.problems.front());
}

std::vector<toolbox::AtomNode> WrittenFile::traks() const
{
    std::vector<toolbox::AtomNode> found;
    if (auto moov = tree_.find({atom::moov})) {
        for (const auto& node : tree_.childrenOf(*moov)) {
            if (node.type == atom::trak) found.push_back(node);
        }
    }
    return found;
}

toolbox::AtomNode WrittenFile::lastTrak() const
{
    auto all = traks();
    EXPECT_FALSE(all.empty());
    return all.empty() ? toolbox::AtomNode{} : all.back();
}

std::optional<toolbox::AtomNode> WrittenFile::nodeBelow(const toolbox::AtomNode& parent,
                                                        std::initializer_list<std::uint32_t> path) const
{
    std::optional<toolbox::AtomNode> current = parent;
    for (std::uint32_t type : path) {
        const auto children = tree_.childrenOf(*current);
        current.reset();
        for (const auto& child : children) {
            if (child.type == type) {
                current = child;
                break;
            }
        }
        if (!current) return std::nullopt;
    }
    return current;
}

Bytes WrittenFile::atomBelow(const toolbox::AtomNode& parent, std::initializer_list<std::uint32_t> path) const
{
    auto node = nodeBelow(parent, path);
    EXPECT_TRUE(node.has_value()) << "atom missing below " << stringFromFourCC(parent.type);
    return node ? bytesAt(static_cast<std::uint64_t>(node->offset), static_cast<std::size_t>(node->size)) : Bytes{};
}

std::vector<std::uint32_t> WrittenFile::childTypes(const toolbox::AtomNode& parent,
                                                   std::initializer_list<std::uint32_t> path) const
{
    std::vector<std::uint32_t> types;
    if (auto node = nodeBelow(parent, path)) {
        for (const auto& child : tree_.childrenOf(*node)) types.push_back(child.type);
    }
    return types;
}

Bytes WrittenFile::bytesAt(std::uint64_t offset, std::size_t length) const
{
    EXPECT_LE(offset + length, bytes_.size());
    if (offset + length > bytes_.size()) return {};
    return Bytes(bytes_.begin() + static_cast<std::ptrdiff_t>(offset),
                 bytes_.begin() + static_cast<std::ptrdiff_t>(offset + length));
}

namespace {

std::vector<std::uint32_t> tableEntries(const Bytes& table, std::size_t headerBytes, std::size_t stride)
{
    std::vector<std::uint32_t> entries;
    if (table.size() < headerBytes) return entries;
    ByteReader reader(table);
    reader.skip(12);
    const std::uint32_t count = reader.getU32BE();
    reader.seek(headerBytes);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (stride == 8) {
            EXPECT_EQ(reader.getU32BE(), 1u) << "sample count of a time-to-sample entry";
        }
        entries.push_back(reader.getU32BE());
    }
    EXPECT_EQ(reader.remaining(), 0u);
    return entries;
}

}  // namespace

std::vector<std::uint32_t> WrittenFile::sampleSizes(const toolbox::AtomNode& trak) const
{
    const Bytes stsz = atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stsz});
    if (stsz.size() < 20) return {};
    EXPECT_EQ(readU32BE(stsz.data() + 12), 0u) << "a common sample size";
    // The count sits one field later than in the other tables.
    Bytes shifted(stsz.begin() + 4, stsz.end());
    return tableEntries(shifted, 16, 4);
}

std::vector<std::uint32_t> WrittenFile::sampleDurations(const toolbox::AtomNode& trak) const
{
    return tableEntries(atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stts}), 16, 8);
}

std::vector<std::uint32_t> WrittenFile::chunkOffsets(const toolbox::AtomNode& trak) const
{
    return tableEntries(atomBelow(trak, {atom::mdia, atom::minf, atom::stbl, atom::stco}), 16, 4);
}

Bytes expectedAtom(std::string_view type, const Bytes& payload)
{
    ByteWriter w;
    w.putU32BE(static_cast<std::uint32_t>(payload.size() + 8)).putString(type).putBytes(payload);
    return w.take();
}

Bytes lengthPrefixed(std::string_view text)
{
    ByteWriter w;
    w.putU8(static_cast<std::uint8_t>(text.size())).putString(text);
    return w.take();
}

namespace {
void putIdentityMatrix(ByteWriter& w)
{
    for (std::uint32_t v : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u}) w.putU32BE(v);
}
}  // namespace

Bytes expectedTkhd(std::uint32_t flags, std::uint32_t trackID, std::uint32_t duration, std::uint32_t size)
{
    ByteWriter w;
    w.putU8(0).putU8(0).putU8(0).putU8(static_cast<std::uint8_t>(flags));
    w.putU32BE(0xC2F2F59A).putU32BE(0xC2F2F59B).putU32BE(trackID).putU32BE(0).putU32BE(duration);
    w.putZeros(8);
    w.putZeros(8);  // layer, alternate group, volume, reserved: all come out zero
    putIdentityMatrix(w);
    w.putU32BE(size).putU32BE(size);
    return expectedAtom("tkhd", w.bytes());
}

Bytes expectedEdts(std::uint32_t duration)
{
    ByteWriter elst;
    elst.putU32BE(0).putU32BE(1).putU32BE(duration).putU32BE(0).putU32BE(0x00010000);
    return expectedAtom("edts", expectedAtom("elst", elst.bytes()));
}

Bytes expectedMdhd(std::uint32_t duration, bool littleEndianDuration)
{
    ByteWriter w;
    w.putU32BE(0).putU32BE(0xC2F2F59A).putU32BE(0xC2F2F59B).putU32BE(600);
    for (int i = 0; i < 4; ++i) {
        const int shift = littleEndianDuration ? 8 * i : 24 - 8 * i;
        w.putU8(static_cast<std::uint8_t>(duration >> shift));
    }
    w.putU16BE(0).putU16BE(0);
    return expectedAtom("mdhd", w.bytes());
}

Bytes expectedHdlr(std::string_view type, std::string_view subtype, std::string_view manufacturer, std::uint32_t flags,
                   std::uint32_t mask, const Bytes& name)
{
    ByteWriter w;
    w.putU32BE(0).putString(type).putString(subtype).putString(manufacturer).putU32BE(flags).putU32BE(mask);
    w.putBytes(name);
    return expectedAtom("hdlr", w.bytes());
}

Bytes expectedDataHdlr(std::uint32_t mask)
{
    return expectedHdlr("dhlr", "alis", "appl", 0x10000001, mask, lengthPrefixed("Apple Alias Data Handler"));
}

Bytes expectedDinf()
{
    ByteWriter dref;
    dref.putU32BE(0).putU32BE(1).putBytes(expectedAtom("alis", Bytes{0, 0, 0, 1}));
    return expectedAtom("dinf", expectedAtom("dref", dref.bytes()));
}

Bytes expectedStsc()
{
    ByteWriter w;
    w.putU32BE(0).putU32BE(1).putU32BE(1).putU32BE(1).putU32BE(1);
    return expectedAtom("stsc", w.bytes());
}

}  // namespace quillora::test
