#include "toolbox/ChapterListReader.h"

#include <fmt/format.h>

#include <stdexcept>

#include "foundation/Bytes.h"
#include "foundation/FourCC.h"
#include "toolbox/SampleTable.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kChapterList = fourCC("chpl");
constexpr double kUnitsPerSecond = 10'000'000;

}  // namespace

std::vector<TimedText> readChapterList(FileHandle& file, const AtomTree& tree, std::vector<std::string>& problems)
{
    std::vector<TimedText> chapters;
    const auto list = tree.find({atom::moov, atom::udta, kChapterList});
    if (!list) return chapters;
    const Bytes payload = readAtomPayload(file, *list);
    ByteReader reader(payload);
    std::size_t count = 0;
    try {
        const std::uint8_t version = reader.getU8();
        reader.skip(3);                    // flags
        if (version >= 1) reader.skip(4);  // reserved
        count = reader.getU8();
        while (chapters.size() < count) {
            const double start = static_cast<double>(reader.getU64BE()) / kUnitsPerSecond;
            const auto name = reader.getBytes(reader.getU8());
            chapters.push_back(TimedText{start, 0, std::string(name.begin(), name.end()), ""});
        }
    } catch (const std::out_of_range&) {
        problems.push_back(
            fmt::format("the chapter list is cut short after {} of {} chapters", chapters.size(), count));
    }
    return chapters;
}

}  // namespace quillora::toolbox
