#include "publish/ChapterText.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/TextEncoding.h"
#include "publish/ChapterMarks.h"

namespace quillora::publish {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t";

}  // namespace

ChapterText::ChapterText(std::filesystem::path file, std::string text) : file_(std::move(file)), text_(std::move(text))
{
    if (text_.starts_with(kByteOrderMark)) text_.erase(0, kByteOrderMark.size());
    const std::string_view all = text_;
    std::size_t begin = 0;
    while (begin < all.size()) {
        std::size_t end = all.find('\n', begin);
        if (end == std::string_view::npos) end = all.size();
        std::string_view line = all.substr(begin, end - begin);
        if (line.ends_with('\r')) line.remove_suffix(1);
        lines_.push_back(line);
        begin = end + 1;
    }
}

std::size_t ChapterText::lineAtOffset(std::size_t offset) const
{
    const std::string_view before = std::string_view(text_).substr(0, offset);
    return static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
}

void ChapterText::refuse(std::size_t lineNumber, std::string_view expected) const
{
    throw ChapterMarksError(fmt::format("{}, line {}: expected {}", file_.string(), lineNumber, expected));
}

void ChapterText::requireUTF8() const
{
    for (std::size_t number = 1; number <= lines_.size(); ++number) {
        if (!decodeUTF8(line(number))) refuse(number, "UTF-8 text (save the file as UTF-8)");
    }
}

bool isBlank(std::string_view line)
{
    return line.find_first_not_of(kBlanks) == std::string_view::npos;
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace quillora::publish
