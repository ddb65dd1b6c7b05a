// The host's user preferences for one export: a dictionary read from a file
// the host names (JSON or a property list), with typed getters that answer
// the way the host platform's defaults do for a missing key.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "foundation/Value.h"

namespace quillora {

class UserDefaults {
public:
    UserDefaults() : values_(std::make_shared<Dictionary>()) {}
    explicit UserDefaults(DictionaryRef values) : values_(values ? std::move(values) : std::make_shared<Dictionary>())
    {
    }

    // Throws FormatError when the file is not a dictionary in a known form.
    static UserDefaults fromFile(const std::filesystem::path& path);

    // The process's preferences, as the host loaded them; the plug-in reads
    // them at export time. Empty until the host sets them.
    static UserDefaults standardUserDefaults();
    static void setStandardUserDefaults(UserDefaults defaults);

    const Value* objectForKey(std::string_view key) const { return values_->find(key); }
    bool boolForKey(std::string_view key) const;             // missing: false
    std::int64_t integerForKey(std::string_view key) const;  // missing: 0
    double doubleForKey(std::string_view key) const;         // missing: 0
    std::optional<std::string> stringForKey(std::string_view key) const;
    std::optional<Bytes> dataForKey(std::string_view key) const;
    // The value compares equal to YES: a boolean true or the number 1 (a
    // text such as "YES" does not).
    bool isYes(std::string_view key) const;

    void set(std::string key, Value value) { values_->set(std::move(key), std::move(value)); }
    const DictionaryRef& dictionary() const { return values_; }

private:
    DictionaryRef values_;
};

}  // namespace quillora
