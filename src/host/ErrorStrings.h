// The host's "errorStrings" table: the texts of the error alerts, keyed by
// a short reason. The host loads it once from a strings file and installs it
// for the whole process; the plug-in's error records read the host's table,
// never a table of their own.
//
// The file format is the host platform's ".strings" format, in UTF-8:
//
//     /* A comment */
//     // Another comment
//     "Could not add chapters" = "The chapters could not be added.";
//     "Could not add chapters-recovery" = "Check the slide titles.";
//
// Keys and values are double-quoted; the escapes \" \\ \n \t and \r are
// understood; blanks and line breaks may stand anywhere between the tokens.
// When a key appears twice the later value wins.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace quillora {

class ErrorStrings {
public:
    ErrorStrings() = default;

    // Throws FormatError naming the line of the first mistake.
    static ErrorStrings fromText(std::string_view text);
    // Throws FormatError, or std::runtime_error when the file cannot be read.
    static ErrorStrings fromFile(const std::filesystem::path& path);

    // The text for a key, or the key itself when the table does not hold it.
    std::string lookup(std::string_view key) const;
    std::size_t size() const { return strings_.size(); }

    // The table of this process: empty until the host installs one, so that
    // every lookup then gives back its key. Safe to call from any thread; a
    // caller keeps the table it got alive while the host installs another.
    static void setErrorStrings(std::shared_ptr<const ErrorStrings> table);
    static std::shared_ptr<const ErrorStrings> errorStrings();

private:
    std::map<std::string, std::string, std::less<>> strings_;
};

}  // namespace quillora
