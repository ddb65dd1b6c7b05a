#include "host/ErrorStrings.h"

#include <fmt/format.h>

#include <mutex>

#include "foundation/PropertyList.h"

namespace quillora {

namespace {

// Reads the tokens of a strings file: quoted strings, '=' and ';', with
// comments and blanks skipped in between.
class StringsScanner {
public:
    explicit StringsScanner(std::string_view text) : text_(text)
    {
        constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
        if (text_.starts_with(byteOrderMark)) position_ = byteOrderMark.size();
    }

    bool atEnd()
    {
        skipBlanksAndComments();
        return position_ >= text_.size();
    }

    std::string quotedString()
    {
        skipBlanksAndComments();
        if (position_ >= text_.size() || text_[position_] != '"') fail("expected a quoted string");
        ++position_;
        std::string result;
        while (position_ < text_.size() && text_[position_] != '"') {
            char c = text_[position_++];
            if (c == '\n') ++line_;
            if (c == '\\') c = escapedCharacter();
            result += c;
        }
        if (position_ >= text_.size()) fail("a quoted string is not closed");
        ++position_;
        return result;
    }

    void expect(char punctuation)
    {
        skipBlanksAndComments();
        if (position_ >= text_.size() || text_[position_] != punctuation)
            fail(fmt::format("expected '{}'", punctuation));
        ++position_;
    }

private:
    char escapedCharacter()
    {
        if (position_ >= text_.size()) fail("the text ends inside an escape");
        switch (text_[position_++]) {
        case '"':
            return '"';
        case '\\':
            return '\\';
        case 'n':
            return '\n';
        case 't':
            return '\t';
        case 'r':
            return '\r';
        default:
            fail("unknown escape");
        }
    }

    void skipBlanksAndComments()
    {
        while (position_ < text_.size()) {
            const std::string_view rest = text_.substr(position_);
            if (rest.starts_with("//")) {
                const auto end = rest.find('\n');
                position_ = end == std::string_view::npos ? text_.size() : position_ + end;
            } else if (rest.starts_with("/*")) {
                const auto end = rest.find("*/", 2);
                if (end == std::string_view::npos) fail("a comment is not closed");
                for (char c : rest.substr(0, end)) line_ += c == '\n' ? 1 : 0;
                position_ += end + 2;
            } else if (rest.front() == '\n') {
                ++line_;
                ++position_;
            } else if (rest.front() == ' ' || rest.front() == '\t' || rest.front() == '\r') {
                ++position_;
            } else {
                return;
            }
        }
    }

    [[noreturn]] void fail(const std::string& what) const
    {
        throw FormatError(fmt::format("strings file, line {}: {}", line_, what));
    }

    std::string_view text_;
    std::size_t position_ = 0;
    int line_ = 1;
};

std::mutex installedTableMutex;
std::shared_ptr<const ErrorStrings> installedTable = std::make_shared<ErrorStrings>();

}  // namespace

ErrorStrings ErrorStrings::fromText(std::string_view text)
{
    ErrorStrings table;
    StringsScanner scanner(text);
    while (!scanner.atEnd()) {
        std::string key = scanner.quotedString();
        scanner.expect('=');
        std::string value = scanner.quotedString();
        scanner.expect(';');
        table.strings_.insert_or_assign(std::move(key), std::move(value));
    }
    return table;
}

ErrorStrings ErrorStrings::fromFile(const std::filesystem::path& path)
{
    const Bytes contents = readWholeFile(path);
    return fromText(std::string_view(reinterpret_cast<const char*>(contents.data()), contents.size()));
}

std::string ErrorStrings::lookup(std::string_view key) const
{
    const auto found = strings_.find(key);
    return found == strings_.end() ? std::string(key) : found->second;
}

void ErrorStrings::setErrorStrings(std::shared_ptr<const ErrorStrings> table)
{
    if (!table) table = std::make_shared<ErrorStrings>();
    const std::lock_guard lock(installedTableMutex);
    installedTable = std::move(table);
}

std::shared_ptr<const ErrorStrings> ErrorStrings::errorStrings()
{
    const std::lock_guard lock(installedTableMutex);
    return installedTable;
}

}  // namespace quillora
