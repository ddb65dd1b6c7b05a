#include "ExportInputs.h"

#include <fmt/format.h>

#include <system_error>

#include "foundation/PropertyList.h"
#include "toolbox/Movie.h"

namespace quillora::app {

namespace {

Value readFile(const std::filesystem::path& path, std::string_view what)
{
    if (!std::filesystem::is_regular_file(path))
        throw InputError(fmt::format("{} {} does not exist", what, path.string()));
    try {
        return readValueFile(path);
    } catch (const std::exception& failure) {
        throw InputError(fmt::format("{} {} cannot be read: {}", what, path.string(), failure.what()));
    }
}

std::filesystem::path copyPicture(const std::filesystem::path& source, const std::filesystem::path& folder,
                                  std::size_t index)
{
    std::filesystem::create_directories(folder);
    auto copy = folder / fmt::format("{:03}-{}", index + 1, source.filename().string());
    std::filesystem::copy_file(source, copy, std::filesystem::copy_options::overwrite_existing);
    return copy;
}

}  // namespace

Value readTransitions(const std::filesystem::path& path, const std::filesystem::path& pictureFolder)
{
    Value transitions = readFile(path, "The transitions file");
    auto records = transitions.asArray();
    if (!records) throw InputError(fmt::format("{}: expected an array of transitions", path.string()));
    const auto base = path.parent_path();
    for (std::size_t i = 0; i < records->size(); ++i) {
        auto where = [&] { return fmt::format("{}: transition {}", path.string(), i + 1); };
        auto record = (*records)[i].asDictionary();
        if (!record) throw InputError(where() + " is not a dictionary");
        const Value* time = record->find("timeValue");
        if (!time || !(time->isInteger() || time->isReal()) || time->asInteger().value_or(-1) < 0) {
            throw InputError(where() + " has no \"timeValue\" (a whole number of the recording's time units)");
        }
        const Value* image = record->find("imagePath");
        if (!image || !image->asString()) throw InputError(where() + " has no \"imagePath\"");
        std::filesystem::path picture = *image->asString();
        if (picture.is_relative()) picture = base / picture;
        if (!std::filesystem::is_regular_file(picture)) {
            throw InputError(fmt::format("{}: the picture {} does not exist", where(), picture.string()));
        }
        if (const Value* link = record->find("linkURL"); link && !link->isNull() && !link->isDictionary()) {
            throw InputError(where() + ": \"linkURL\" must be a dictionary with \"title\" and \"url\"");
        }
        record->set("imagePath", copyPicture(picture, pictureFolder, i).string());
    }
    return transitions;
}

Value readTags(const std::filesystem::path& path)
{
    Value tags = readFile(path, "The tags file");
    auto entries = tags.asDictionary();
    if (!entries) throw InputError(fmt::format("{}: expected a dictionary of tags", path.string()));
    for (const auto& [key, value] : *entries) {
        if (!value.asString()) throw InputError(fmt::format("{}: the tag \"{}\" is not text", path.string(), key));
    }
    return tags;
}

UserDefaults readDefaults(const std::filesystem::path& path)
{
    Value values = readFile(path, "The defaults file");
    auto entries = values.asDictionary();
    if (!entries) throw InputError(fmt::format("{}: expected a dictionary of preferences", path.string()));
    for (const char* key : {"textTrackFontColor", "textTrackBackgroundColor"}) {
        if (Value* colour = entries->find(key); colour && colour->asString()) {
            const std::string& text = *colour->asString();
            *colour = Value(Bytes(text.begin(), text.end()));
        }
    }
    return UserDefaults(entries);
}

void checkRecording(const std::filesystem::path& path)
{
    if (!std::filesystem::is_regular_file(path))
        throw InputError(fmt::format("The recording {} does not exist", path.string()));
    std::string error;
    if (!toolbox::Movie::movieWithFile(path, &error)) {
        throw InputError(fmt::format("The recording {} is not a movie file: {}", path.string(), error));
    }
}

}  // namespace quillora::app
