// A podcast's chapters in the JSON form podcast apps read:
// {"version": "1.2.0", "chapters": [{"startTime": 0, "title": "...",
// "img": "...", "url": "...", "toc": false}, ...]}. Chapters left out of the
// table of contents are chapters all the same.
#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "foundation/Log.h"
#include "publish/ChapterFileReaders.h"
#include "publish/TextEscaping.h"

namespace quillora::publish {

namespace {

using Json = nlohmann::json;

// The parser's own words, without its "[json.exception...] " tag and the
// "parse error at line L, column C: " that the message replaces.
std::string_view parserWords(std::string_view message)
{
    if (const std::size_t tag = message.find("] "); message.starts_with('[') && tag != std::string_view::npos) {
        message.remove_prefix(tag + 2);
    }
    if (const std::size_t column = message.find(", column "); column != std::string_view::npos) {
        if (const std::size_t colon = message.find(": ", column); colon != std::string_view::npos) {
            message.remove_prefix(colon + 2);
        }
    }
    return message;
}

std::optional<std::string> optionalText(const Json& chapter, const char* key, const std::string& where)
{
    const auto found = chapter.find(key);
    if (found == chapter.end() || found->is_null()) return std::nullopt;
    if (!found->is_string()) throw ChapterMarksError(fmt::format("{}: expected \"{}\" as text", where, key));
    return found->get<std::string>();
}

// A picture given by a web address cannot be fetched here; a relative URL is
// a file taken from the chapter file's folder.
std::optional<std::filesystem::path> localPicture(const std::string& image, const std::filesystem::path& file,
                                                  const std::string& where)
{
    if (image.empty()) return std::nullopt;
    if (image.find("://") != std::string::npos) {
        logf("{}: the picture {} is on the web and is not fetched; the chapter is left without a picture", where,
             image);
        return std::nullopt;
    }
    const std::filesystem::path picture = pathFromUrlPath(image);
    return picture.is_absolute() ? picture : std::filesystem::absolute(file).parent_path() / picture;
}

}  // namespace

std::vector<PlacedMark> readChaptersJson(const ChapterText& text)
{
    const std::string file = text.file().string();
    Json document;
    try {
        document = Json::parse(text.text());
    } catch (const Json::parse_error& error) {
        text.refuse(text.lineAtOffset(error.byte == 0 ? 0 : error.byte - 1),
                    fmt::format("JSON ({})", parserWords(error.what())));
    } catch (const Json::exception& error) {  // a number too large for any time
        throw ChapterMarksError(fmt::format("{}: expected JSON chapters ({})", file, parserWords(error.what())));
    }
    const auto chapters = document.find("chapters");
    if (chapters == document.end() || !chapters->is_array()) {
        throw ChapterMarksError(fmt::format("{} is JSON but holds no chapters: expected an object with a "
                                            "\"chapters\" array, as podcast chapter files have",
                                            file));
    }
    std::vector<PlacedMark> marks;
    for (const Json& chapter : *chapters) {
        std::string place = fmt::format("chapter {}", marks.size() + 1);
        const std::string where = fmt::format("{}, {}", file, place);
        const auto start = chapter.find("startTime");
        if (start == chapter.end() || !start->is_number()) {
            throw ChapterMarksError(fmt::format("{}: expected \"startTime\" as a number of seconds", where));
        }
        ChapterMark mark{start->get<double>(),
                         optionalText(chapter, "title", where).value_or(""),
                         optionalText(chapter, "url", where),
                         {}};
        if (mark.url && mark.url->empty()) mark.url.reset();
        if (auto image = optionalText(chapter, "img", where)) mark.picture = localPicture(*image, text.file(), where);
        marks.push_back({std::move(mark), std::move(place)});
    }
    return marks;
}

}  // namespace quillora::publish
