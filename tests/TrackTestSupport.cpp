#include "TrackTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "TestSupport.h"
#include "foundation/FourCC.h"

namespace quillora::test {

WrittenFile::WrittenFile(const std::filesystem::path& path) : bytes(readFile(path)), tree(toolbox::readAtomTree(path))
{
    EXPECT_TRUE(tree.problems.empty()) << (tree.problems.empty() ? "" : tree.problems.front());
    for (const auto& node : tree.atoms) {
        if (node.type == atom::trak && node.depth == 1) traks.push_back(node);
    }
}

Bytes WrittenFile::below(const toolbox::AtomNode& parent, std::initializer_list<std::uint32_t> path) const
{
    toolbox::AtomNode node = parent;
    for (std::uint32_t type : path) {
        const auto children = tree.childrenOf(node);
        const auto found = std::ranges::find(children, type, &toolbox::AtomNode::type);
        if (found == children.end()) {
            ADD_FAILURE() << "no " << stringFromFourCC(type) << " below " << stringFromFourCC(node.type);
            return {};
        }
        node = *found;
    }
    return at(static_cast<std::uint64_t>(node.offset), static_cast<std::size_t>(node.size));
}

Bytes WrittenFile::at(std::uint64_t offset, std::size_t length) const
{
    EXPECT_LE(offset + length, bytes.size());
    if (offset + length > bytes.size()) return {};
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(start, start + static_cast<std::ptrdiff_t>(length));
}

std::vector<std::uint32_t> WrittenFile::table(const toolbox::AtomNode& trak, std::uint32_t type) const
{
    const Bytes t = below(trak, {atom::mdia, atom::minf, atom::stbl, type});
    const std::size_t head = type == atom::stsz ? 20 : 16, stride = type == atom::stts ? 8 : 4;
    std::vector<std::uint32_t> entries;
    if (t.size() < head) return entries;
    EXPECT_EQ(t.size(), head + stride * readU32BE(&t[head - 4])) << stringFromFourCC(type);
    EXPECT_EQ(type == atom::stsz ? readU32BE(&t[12]) : 0u, 0u) << "a common sample size";
    for (std::size_t i = head; i + stride <= t.size(); i += stride) {
        EXPECT_EQ(stride == 8 ? readU32BE(&t[i]) : 1u, 1u) << "samples in a time-to-sample entry";
        entries.push_back(readU32BE(&t[i + stride - 4]));
    }
    return entries;
}

void WrittenFile::expectSamples(const toolbox::AtomNode& trak, const std::vector<Bytes>& samples) const
{
    const auto offsets = table(trak, atom::stco), sizes = table(trak, atom::stsz);
    ASSERT_EQ(offsets.size(), samples.size());
    ASSERT_EQ(sizes.size(), samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(sizes[i], samples[i].size()) << "sample " << i;
        EXPECT_EQ(at(offsets[i], samples[i].size()), samples[i]) << "sample " << i;
    }
}

WrittenFile afterWriting(const std::filesystem::path& path,
                         const std::function<bool(QTDataEditor&, FileHandle&)>& write)
{
    {
        QTDataEditor editor;
        FileHandle file(path, FileHandle::Mode::Updating);
        EXPECT_TRUE(write(editor, file));
    }
    return WrittenFile(path);
}

Bytes u16s(const std::vector<std::uint16_t>& values)
{
    ByteWriter w;
    for (auto v : values) w.putU16BE(v);
    return w.take();
}

Bytes u32s(const std::vector<std::uint32_t>& values)
{
    ByteWriter w;
    for (auto v : values) w.putU32BE(v);
    return w.take();
}

Bytes chars(std::string_view text)
{
    return Bytes(text.begin(), text.end());
}

Bytes pascal(std::string_view text)
{
    return join({Bytes{static_cast<std::uint8_t>(text.size())}, chars(text)});
}

Bytes join(std::initializer_list<Bytes> parts)
{
    ByteWriter w;
    for (const Bytes& part : parts) w.putBytes(part);
    return w.take();
}

Bytes box(std::string_view type, std::initializer_list<Bytes> parts)
{
    const Bytes payload = join(parts);
    return join({u32s({static_cast<std::uint32_t>(payload.size() + 8)}), chars(type), payload});
}

Bytes tkhd(std::uint32_t flags, std::uint32_t trackID, std::uint32_t duration, std::uint32_t size)
{
    // Layer, alternate group and volume all come out zero.
    return box("tkhd", {u32s({flags, 0xC2F2F59A, 0xC2F2F59B, trackID, 0, duration, 0, 0, 0, 0}), kIdentityMatrixBytes,
                        u32s({size, size})});
}

Bytes hdlr(std::string_view type, std::string_view subtype, std::string_view maker, std::uint32_t flags,
           std::uint32_t mask, const Bytes& name)
{
    return box("hdlr", {u32s({0}), chars(type), chars(subtype), chars(maker), u32s({flags, mask}), name});
}

Bytes trak(const Bytes& tkhd, std::uint32_t duration, const Bytes& mdhdDuration, const Bytes& mediaHandler,
           const Bytes& mediaHeader, std::uint32_t dataMask, const Bytes& entry, const Bytes& tables)
{
    const Bytes elst = box("elst", {u32s({0, 1, duration, 0, 0x00010000})});
    const Bytes mdhd = box("mdhd", {u32s({0, 0xC2F2F59A, 0xC2F2F59B, 600}), mdhdDuration, u32s({0})});
    const Bytes dataHandler = hdlr("dhlr", "alis", "appl", 0x10000001, dataMask, pascal("Apple Alias Data Handler"));
    const Bytes dinf = box("dinf", {box("dref", {u32s({0, 1}), box("alis", {u32s({1})})})});
    const Bytes stbl = box("stbl", {box("stsd", {u32s({0, 1}), entry}), box("stsc", {u32s({0, 1, 1, 1, 1})}), tables});
    return box("trak", {tkhd, box("edts", {elst}),
                        box("mdia", {mdhd, mediaHandler, box("minf", {mediaHeader, dataHandler, dinf, stbl})})});
}

Bytes stts(const std::vector<std::uint32_t>& durations)
{
    std::vector<std::uint32_t> fields = {0, static_cast<std::uint32_t>(durations.size())};
    for (auto d : durations) fields.insert(fields.end(), {1, d});
    return box("stts", {u32s(fields)});
}

Bytes textSample(std::string_view text)
{
    return join({u16s({static_cast<std::uint16_t>(text.size())}), chars(text)});
}

Bytes chapterSample(std::string_view title)
{
    return join({textSample(title), Bytes{0, 0, 0, 12, 'e', 'n', 'c', 'd', 0, 0, 1, 0}});
}

Bytes linkSample(std::string_view title, std::string_view url)
{
    const auto length = static_cast<std::uint16_t>(url.size());
    return join({textSample(title), u32s({14u + length}), chars("href"), u16s({0, length}),
                 Bytes{static_cast<std::uint8_t>(length)}, chars(url), Bytes{0}});
}

}  // namespace quillora::test
