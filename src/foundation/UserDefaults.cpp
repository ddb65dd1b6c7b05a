#include "foundation/UserDefaults.h"

#include <cstdlib>
#include <mutex>

#include "foundation/PropertyList.h"

namespace quillora {

UserDefaults UserDefaults::fromFile(const std::filesystem::path& path)
{
    Value value = readValueFile(path);
    if (!value.isDictionary()) throw FormatError("the defaults file does not hold a dictionary of keys");
    return UserDefaults(value.asDictionary());
}

namespace {
std::mutex& standardMutex()
{
    static std::mutex mutex;
    return mutex;
}
UserDefaults& standardInstance()
{
    static UserDefaults defaults;
    return defaults;
}
}  // namespace

UserDefaults UserDefaults::standardUserDefaults()
{
    std::lock_guard lock(standardMutex());
    return standardInstance();
}

void UserDefaults::setStandardUserDefaults(UserDefaults defaults)
{
    std::lock_guard lock(standardMutex());
    standardInstance() = std::move(defaults);
}

bool UserDefaults::boolForKey(std::string_view key) const
{
    const Value* value = objectForKey(key);
    return value ? value->asBool().value_or(false) : false;
}

bool UserDefaults::isYes(std::string_view key) const
{
    const Value* value = objectForKey(key);
    return value && value->isNumber() && value->asReal() == 1.0;
}

std::int64_t UserDefaults::integerForKey(std::string_view key) const
{
    const Value* value = objectForKey(key);
    if (!value) return 0;
    if (auto text = value->asString()) return std::strtoll(text->c_str(), nullptr, 10);
    return value->asInteger().value_or(0);
}

double UserDefaults::doubleForKey(std::string_view key) const
{
    const Value* value = objectForKey(key);
    if (!value) return 0;
    if (auto text = value->asString()) return std::strtod(text->c_str(), nullptr);
    return value->asReal().value_or(0);
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const
{
    const Value* value = objectForKey(key);
    if (value && value->asString()) return *value->asString();
    return std::nullopt;
}

std::optional<Bytes> UserDefaults::dataForKey(std::string_view key) const
{
    const Value* value = objectForKey(key);
    if (value && value->asData()) return *value->asData();
    return std::nullopt;
}

}  // namespace quillora
