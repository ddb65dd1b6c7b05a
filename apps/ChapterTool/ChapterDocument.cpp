#include "ChapterDocument.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <pugixml.hpp>

#include "foundation/HexDigit.h"

namespace quillora::chaptertool {

namespace {

std::string withoutPercentEscapes(std::string_view text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigitValue(text[i + 1]) >= 0 &&
            hexDigitValue(text[i + 2]) >= 0) {
            plain += static_cast<char>(hexDigitValue(text[i + 1]) * 16 + hexDigitValue(text[i + 2]));
            i += 2;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

// "HH:MM:SS.mmm" (the fraction optional) in seconds.
double secondsFromStartTime(std::string_view text)
{
    int hours = 0, minutes = 0;
    double seconds = 0;
    char extra = 0;
    const std::string copy(text);
    if (std::sscanf(copy.c_str(), "%d:%d:%lf%c", &hours, &minutes, &seconds, &extra) != 3 || hours < 0 || minutes < 0 ||
        minutes > 59 || seconds < 0 || seconds >= 60) {
        throw DocumentError(fmt::format("the start time \"{}\" is not HH:MM:SS.mmm", text));
    }
    return hours * 3600.0 + minutes * 60.0 + seconds;
}

}  // namespace

Value readChapterDocument(const std::filesystem::path& path, std::uint32_t timeScale)
{
    pugi::xml_document document;
    const auto parsed = document.load_file(path.c_str());
    if (!parsed) throw DocumentError(fmt::format("{} is not an XML document: {}", path.string(), parsed.description()));
    const auto root = document.child("chapters");
    if (!root) throw DocumentError(fmt::format("{} has no \"chapters\" element", path.string()));

    Array transitions;
    std::string lastTitle;
    for (const auto& chapter : root.children("chapter")) {
        const auto where = [&] { return fmt::format("chapter {}", transitions.size() + 1); };
        const auto start = chapter.attribute("starttime");
        if (!start) throw DocumentError(where() + " has no \"starttime\"");
        const auto picture = chapter.child("picture");
        if (!picture) throw DocumentError(where() + " has no \"picture\"");
        double seconds = 0;
        try {
            seconds = secondsFromStartTime(start.value());
        } catch (const DocumentError& failure) {
            throw DocumentError(where() + ": " + failure.what());
        }
        if (const auto title = chapter.child("title")) lastTitle = title.text().get();

        auto record = Value::dictionary({{"timeValue", static_cast<std::int64_t>(std::llround(seconds * timeScale))},
                                         {"slideTitle", lastTitle},
                                         {"imagePath", withoutPercentEscapes(picture.text().get())}});
        if (const auto link = chapter.child("link")) {
            record.asDictionary()->set("linkURL",
                                       Value::dictionary({{"title", std::string(link.text().get())},
                                                          {"url", std::string(link.attribute("href").value())}}));
        }
        transitions.push_back(std::move(record));
    }
    return Value::array(std::move(transitions));
}

}  // namespace quillora::chaptertool
