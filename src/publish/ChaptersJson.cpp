#include "publish/ChaptersJson.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>

#include "foundation/FileHandle.h"
#include "publish/PublishError.h"
#include "publish/StagedOutput.h"
#include "publish/TextEscaping.h"

namespace quillora::publish {

namespace {

constexpr const char* kFormatVersion = "1.2.0";

// Whole milliseconds, so that 0.1 + 0.2 is written as 0.3.
double seconds(double value)
{
    return std::round(std::max(value, 0.0) * 1000) / 1000;
}

std::string pictureName(std::size_t number, std::size_t count, const std::filesystem::path& picture)
{
    const auto width = std::max<std::size_t>(2, std::to_string(count).size());
    std::string extension = picture.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return fmt::format("{:0{}}{}", number, width, extension);
}

std::filesystem::path folderInsideJsonFolder(const std::filesystem::path& jsonPath,
                                             const std::filesystem::path& slidesFolder)
{
    const auto jsonFolder = std::filesystem::absolute(jsonPath).parent_path().lexically_normal();
    const auto relative = std::filesystem::absolute(slidesFolder).lexically_normal().lexically_relative(jsonFolder);
    if (relative.empty() || relative == "." || *relative.begin() == "..") {
        throw PublishError(fmt::format("The slides folder {} must lie inside the folder of {}, so that the chapters "
                                       "can name their pictures relative to it.",
                                       slidesFolder.string(), jsonPath.string()));
    }
    return relative;
}

void setTag(nlohmann::ordered_json& document, const char* field, const Value& tags, const char* key)
{
    if (auto text = tags.stringForKey(key); text && !text->empty()) document[field] = *text;
}

}  // namespace

void writeChaptersJson(const PublishedLecture& lecture, const std::filesystem::path& jsonPath,
                       const std::filesystem::path& slidesFolder, std::string_view baseUrl)
{
    const auto slidesRelative = folderInsideJsonFolder(jsonPath, slidesFolder);
    while (!baseUrl.empty() && baseUrl.back() == '/') baseUrl.remove_suffix(1);

    nlohmann::ordered_json document = {{"version", kFormatVersion}};
    setTag(document, "title", lecture.tags, "title");
    setTag(document, "author", lecture.tags, "author");
    setTag(document, "podcastName", lecture.tags, "class name");
    setTag(document, "description", lecture.tags, "description");

    const bool anyPicture = std::any_of(lecture.chapters.begin(), lecture.chapters.end(),
                                        [](const PublishedChapter& chapter) { return chapter.picture.has_value(); });
    std::optional<StagedFolder> slides;
    if (anyPicture) slides.emplace(slidesFolder);

    auto chapters = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < lecture.chapters.size(); ++i) {
        const auto& chapter = lecture.chapters[i];
        nlohmann::ordered_json entry = {{"startTime", seconds(chapter.start)}};
        if (chapter.end > chapter.start) entry["endTime"] = seconds(chapter.end);
        entry["title"] = chapter.title;
        if (chapter.picture) {
            const auto name = pictureName(i + 1, lecture.chapters.size(), *chapter.picture);
            try {
                FileHandle::copyFile(*chapter.picture, slides->path() / name);
            } catch (const FileError& error) {
                throw PublishError(fmt::format("Cannot copy the picture of slide {} (\"{}\"), {}: {}. Check that it "
                                               "exists and can be read, and that the disk has room.",
                                               i + 1, chapter.title, chapter.picture->string(),
                                               error.code().message()));
            }
            const auto url = urlPath(slidesRelative / name);
            entry["img"] = baseUrl.empty() ? url : fmt::format("{}/{}", baseUrl, url);
        }
        if (chapter.url && !chapter.url->empty()) entry["url"] = *chapter.url;
        chapters.push_back(std::move(entry));
    }
    document["chapters"] = std::move(chapters);

    StagedFile json(jsonPath);
    writeText(json, document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    // Pictures first: the chapters never name a picture that is not in place.
    if (slides) slides->commit();
    json.commit();
}

}  // namespace quillora::publish
