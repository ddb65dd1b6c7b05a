#include "publish/WebPage.h"

#include <fmt/format.h>

#include <cctype>
#include <fstream>
#include <nlohmann/json.hpp>

#include "publish/PublishError.h"
#include "publish/StagedOutput.h"
#include "publish/TextEscaping.h"
#include "publish/WebPageAssets.h"

namespace quillora::publish {

namespace {

nlohmann::ordered_json readChapters(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw PublishError(fmt::format("Cannot make the web page: its chapters file {} cannot be read. Write the "
                                       "chapters file first.",
                                       path.string()));
    }
    try {
        return nlohmann::ordered_json::parse(in);
    } catch (const nlohmann::json::exception& error) {
        throw PublishError(fmt::format("Cannot make the web page: its chapters file {} is not valid JSON ({}). "
                                       "Write the chapters file again.",
                                       path.string(), error.what()));
    }
}

// JSON inside <script> ends at the first "</script": every "<" (only ever
// inside a string) becomes its \u escape, which JSON reads back the same.
std::string scriptSafeJson(const nlohmann::ordered_json& document)
{
    std::string text = document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::string safe;
    for (char c : text) safe += c == '<' ? std::string("\\u003c") : std::string(1, c);
    return safe;
}

std::string tagText(const Value& value)
{
    if (const auto* text = value.asString()) return *text;
    if (value.isInteger()) return std::to_string(*value.asInteger());
    return {};
}

std::string tagLabel(std::string key)
{
    if (!key.empty()) key[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(key[0])));
    return key;
}

// Every text tag but the title, which is the heading.
std::string tagList(const Value& tags)
{
    std::string items;
    if (auto dictionary = tags.asDictionary()) {
        for (const auto& [key, value] : *dictionary) {
            const auto text = tagText(value);
            if (key == "title" || text.empty()) continue;
            items +=
                fmt::format("<div><dt>{}</dt><dd>{}</dd></div>\n", escapeMarkup(tagLabel(key)), escapeMarkup(text));
        }
    }
    return items.empty() ? "" : "<dl class=\"tags\">\n" + items + "</dl>\n";
}

}  // namespace

void writeWebPage(const PublishedLecture& lecture, const std::filesystem::path& htmlPath,
                  std::string_view mediaFileName, std::string_view chaptersFileName)
{
    const auto chapters = readChapters(htmlPath.parent_path() / chaptersFileName);
    const auto title = lecture.tags.stringForKey("title").value_or(htmlPath.stem().string());
    const auto language = lecture.tags.stringForKey("language");

    std::string page = "<!DOCTYPE html>\n<html";
    if (language && !language->empty()) page += " lang=\"" + escapeMarkupAttribute(*language) + "\"";
    page += ">\n<head>\n<meta charset=\"utf-8\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
    page += "<title>" + escapeMarkup(title) + "</title>\n<style>" + kWebPageStyle + "</style>\n</head>\n";
    page += "<body data-chapters=\"" + escapeMarkupAttribute(urlPath(chaptersFileName)) + "\">\n";
    page += "<header>\n<h1>" + escapeMarkup(title) + "</h1>\n" + tagList(lecture.tags) + "</header>\n";
    page += "<main>\n<div>\n<audio id=\"player\" controls preload=\"metadata\" src=\"" +
            escapeMarkupAttribute(urlPath(mediaFileName)) + "\"></audio>\n";
    page += "<figure>\n<img id=\"slide\" alt=\"\" hidden>\n"
            "<figcaption id=\"slide-title\" aria-live=\"polite\"></figcaption>\n</figure>\n";
    page += "<p id=\"slide-link\" hidden>Link: <a></a></p>\n"
            "<noscript><p>The slides and the chapter list need JavaScript; the recording plays without it."
            "</p></noscript>\n</div>\n";
    page += "<nav aria-label=\"Chapters\">\n<ol id=\"chapters\"></ol>\n</nav>\n</main>\n";
    page += "<script type=\"application/json\" id=\"chapters-data\">" + scriptSafeJson(chapters) + "</script>\n";
    page += std::string("<script>") + kWebPageScript + "</script>\n</body>\n</html>\n";
    writeWholeFile(htmlPath, page);
}

}  // namespace quillora::publish
