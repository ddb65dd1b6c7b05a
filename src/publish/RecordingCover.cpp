#include "publish/RecordingCover.h"

#include <fmt/format.h>

#include <string_view>

#include "foundation/FourCC.h"
#include "publish/PublishError.h"
#include "publish/StagedOutput.h"
#include "toolbox/MetaDataAtoms.h"

namespace quillora::publish {

namespace {

constexpr std::uint32_t kCoverItem = fourCC("covr");

// The 'data' atom's well-known types for pictures.
const char* extensionForDataType(std::uint32_t dataType)
{
    switch (dataType) {
    case 13:
        return ".jpg";
    case 14:
        return ".png";
    case 27:
        return ".bmp";
    default:
        return nullptr;
    }
}

}  // namespace

std::optional<std::filesystem::path> extractRecordingCover(const std::filesystem::path& recording,
                                                           const std::filesystem::path& outputStem)
{
    std::vector<toolbox::MetaDataItem> items;
    try {
        auto file = FileHandle::forReading(recording);
        items = toolbox::readMetaDataItems(file, toolbox::readAtomTree(file));
    } catch (const FileError& error) {
        throw PublishError(fmt::format("Cannot read the cover of {}: {}. Check that the recording exists and can be "
                                       "read.",
                                       recording.string(), error.code().message()));
    }
    for (const auto& item : items) {
        const bool cover = item.storage == toolbox::kQTMetaDataStorageFormatiTunes && item.key.size() == 4 &&
                           readU32BE(item.key.data()) == kCoverItem;
        const char* extension = extensionForDataType(item.dataType);
        if (!cover || !extension || item.value.empty()) continue;
        auto output = outputStem;
        output += extension;
        writeWholeFile(output, std::string_view(reinterpret_cast<const char*>(item.value.data()), item.value.size()));
        return output;
    }
    return std::nullopt;
}

}  // namespace quillora::publish
