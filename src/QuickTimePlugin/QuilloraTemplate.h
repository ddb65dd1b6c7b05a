// A named, stored export setting: which plug-in exports, in which output
// form (".mov", ".m4a", ".m4b", ".m4v"), with which tags. The host keeps
// templates as dictionaries of the four keys below and stores them in
// ".quilloraTemplate" files (XML property lists).
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "foundation/Value.h"

namespace quillora {

inline constexpr std::string_view kQuilloraTemplateNameKey = "name";
inline constexpr std::string_view kQuilloraTemplateFormatKey = "format";
inline constexpr std::string_view kQuilloraTemplatePluginClassNameKey = "pluginClassName";
inline constexpr std::string_view kQuilloraTemplateTagsKey = "tags";
inline constexpr std::string_view kQuilloraTemplatePathExtension = "quilloraTemplate";

// objectForKey / setObject with a key that is not one of the four.
class UnknownTemplateKey : public std::invalid_argument {
public:
    explicit UnknownTemplateKey(std::string_view key)
        : std::invalid_argument("a template has no value for the key \"" + std::string(key) + "\"")
    {
    }
};

class QuilloraTemplate {
public:
    QuilloraTemplate() = default;
    // Takes the four values from the dictionary as they are; a missing key
    // (or a dictionary that is none) leaves the field empty.
    explicit QuilloraTemplate(const Value& dictionary);
    static QuilloraTemplate templateWithDictionaryRepresentation(const Value& dictionary);

    // The four keys always; an empty field is the null value.
    Value dictionaryRepresentation() const;

    // The field named by one of the four keys; any other key throws UnknownTemplateKey.
    Value objectForKey(std::string_view key) const;
    void setObject(Value object, std::string_view key);

    // The typed views: nothing when the field is empty or not text.
    std::optional<std::string> name() const;
    void setName(std::optional<std::string> name);
    std::optional<std::string> format() const;
    void setFormat(std::optional<std::string> format);
    std::optional<std::string> pluginClassName() const;
    void setPluginClassName(std::optional<std::string> pluginClassName);
    // The tags dictionary, shared with whoever else holds it; null when empty.
    Value tags() const { return tags_; }
    void setTags(Value tags) { tags_ = std::move(tags); }

    // A template file. An XML property list cannot hold a null value, so an
    // empty field is left out of the file and reads back as empty. Reading
    // throws FormatError for a file that does not hold a dictionary.
    static QuilloraTemplate templateWithContentsOfFile(const std::filesystem::path& path);
    void writeToFile(const std::filesystem::path& path) const;

    friend bool operator==(const QuilloraTemplate&, const QuilloraTemplate&) = default;

private:
    // The field a key names, const or not, for objectForKey and setObject.
    template <typename Template> static auto& field(Template& self, std::string_view key);

    Value name_;
    Value pluginClassName_;
    Value format_;
    Value tags_;
};

}  // namespace quillora
