#include "ExportInputs.h"

#include <fmt/format.h>

#include <system_error>
#include <vips/vips8>

#include "InputChecks.h"
#include "foundation/FileHandle.h"
#include "foundation/PropertyList.h"
#include "images/PicturePreparation.h"
#include "layout/ColorData.h"

namespace quillora::app {

namespace {

// Longer titles are left out of messages rather than fill the terminal.
constexpr std::size_t kLongestTitleShown = 80;

// The picture as the resizer is to draw it: a byte copy, or an upright,
// reduced or decoded one (see placePicture).
std::filesystem::path copyPicture(const std::filesystem::path& source, const PictureHeader& header,
                                  std::optional<double> frame, const std::filesystem::path& folder, std::size_t index)
{
    std::filesystem::create_directories(folder);
    auto copy = folder / fmt::format("{:03}-{}", index + 1, source.filename().string());
    try {
        return placePicture(source, header, frame, copy);
    } catch (const vips::VError& refused) {
        const std::string message = imageLibraryMessage(refused);
        if (header.formatNeedingDecoder) {
            throw InputError(fmt::format("The picture {} cannot be read: {}", source.string(),
                                         undecodedFormatProblem(*header.formatNeedingDecoder, message)));
        }
        throw InputError(
            fmt::format("The picture {} cannot be prepared in {}: {}", source.string(), folder.string(), message));
    }
}

}  // namespace

Value readInputFile(const std::filesystem::path& path, std::string_view what)
{
    if (!std::filesystem::is_regular_file(path))
        throw InputError(fmt::format("{} {} does not exist", what, path.string()));
    try {
        return readValueFile(path);
    } catch (const std::exception& failure) {
        throw InputError(fmt::format("{} {} cannot be read: {}", what, path.string(), failure.what()));
    }
}

Transitions readTransitions(const std::filesystem::path& path, const std::filesystem::path& pictureFolder,
                            std::uint64_t recordingDuration, const TransitionRules& rules)
{
    Value transitions = readInputFile(path, "The transitions file");
    auto records = transitions.asArray();
    if (!records) throw InputError(fmt::format("{}: expected an array of transitions", path.string()));
    const auto base = path.parent_path();
    std::vector<std::filesystem::path> pictures;
    std::vector<std::string> warnings;
    std::optional<std::int64_t> previousTime;
    for (std::size_t i = 0; i < records->size(); ++i) {
        auto record = (*records)[i].asDictionary();
        std::string where = fmt::format("{}: transition {}", path.string(), i + 1);
        if (!record) throw InputError(where + " is not a dictionary");
        if (auto title = (*records)[i].stringForKey("slideTitle"); title && title->size() <= kLongestTitleShown) {
            where += fmt::format(" (\"{}\")", *title);
        }
        const Value* image = record->find("imagePath");
        if (!image || !image->asString()) throw InputError(where + " has no \"imagePath\"");
        std::filesystem::path picture = *image->asString();
        if (picture.is_relative()) picture = base / picture;
        if (!std::filesystem::is_regular_file(picture)) {
            throw InputError(fmt::format("{}: the picture {} does not exist", where, picture.string()));
        }
        previousTime = checkTransition(*record, picture, where, previousTime, recordingDuration, rules, warnings);
        pictures.push_back(picture);
    }
    // The checks above opened every picture, so their headers read.
    std::vector<PictureHeader> headers;
    for (const auto& picture : pictures) headers.push_back(readPictureHeader(picture));
    const std::optional<double> frame = rules.largestFrame ? rules.largestFrame : largestFrameFor(headers);
    for (std::size_t i = 0; i < records->size(); ++i) {
        const auto copy = copyPicture(pictures[i], headers[i], frame, pictureFolder, i);
        (*records)[i].asDictionary()->set("imagePath", copy.string());
    }
    return {transitions, pictures, warnings, frame};
}

Value readTags(const std::filesystem::path& path)
{
    Value tags = readInputFile(path, "The tags file");
    auto entries = tags.asDictionary();
    if (!entries) throw InputError(fmt::format("{}: expected a dictionary of tags", path.string()));
    for (const auto& [key, value] : *entries) {
        if (!value.asString()) throw InputError(fmt::format("{}: the tag \"{}\" is not text", path.string(), key));
    }
    return tags;
}

UserDefaults readDefaults(const std::filesystem::path& path)
{
    Value values = readInputFile(path, "The defaults file");
    auto entries = values.asDictionary();
    if (!entries) throw InputError(fmt::format("{}: expected a dictionary of preferences", path.string()));
    for (const char* key : {"textTrackFontColor", "textTrackBackgroundColor"}) {
        Value* colour = entries->find(key);
        if (!colour) continue;
        const std::optional<std::string> text = colour->asString() ? std::optional(*colour->asString()) : std::nullopt;
        if (text) *colour = Value(Bytes(text->begin(), text->end()));
        if (colour->asData() && colorComponentsFromData(*colour->asData())) continue;
        const std::string given = text               ? fmt::format("\"{}\"", *text)
                                  : colour->asData() ? std::string("data that holds no RGB or white colour")
                                                     : std::string("not a colour");
        throw InputError(fmt::format("{}: \"{}\" is {}; give a CSS colour name (\"red\", \"transparent\"), #RGB, "
                                     "#RGBA, #RRGGBB or #RRGGBBAA",
                                     path.string(), key, given));
    }
    return UserDefaults(entries);
}

}  // namespace quillora::app
