// A chapter file's text as numbered lines, for the readers of the text
// formats: without a UTF-8 byte-order mark, and with CR LF line ends read as
// LF. A refusal names the file, the line and what was expected there.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quillora::publish {

class ChapterText {
public:
    ChapterText(std::filesystem::path file, std::string text);
    // The lines are views into the text, which must not move.
    ChapterText(const ChapterText&) = delete;
    ChapterText& operator=(const ChapterText&) = delete;

    const std::filesystem::path& file() const { return file_; }
    // Without the byte-order mark; lines are views into it.
    std::string_view text() const { return text_; }
    std::size_t lineCount() const { return lines_.size(); }
    // Numbered from 1, without the line end.
    std::string_view line(std::size_t number) const { return lines_.at(number - 1); }
    // The number of the line that holds a byte of text().
    std::size_t lineAtOffset(std::size_t offset) const;

    // Throws ChapterMarksError "FILE, line N: expected ...".
    [[noreturn]] void refuse(std::size_t lineNumber, std::string_view expected) const;
    // Refuses the first line that is not UTF-8.
    void requireUTF8() const;

private:
    std::filesystem::path file_;
    std::string text_;
    std::vector<std::string_view> lines_;
};

bool isBlank(std::string_view line);
std::string_view trimmed(std::string_view text);

}  // namespace quillora::publish
