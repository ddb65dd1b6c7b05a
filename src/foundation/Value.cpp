#include "foundation/Value.h"

#include <cmath>

namespace quillora {

const Value* Dictionary::find(std::string_view key) const
{
    for (const auto& entry : entries_) {
        if (entry.first == key) return &entry.second;
    }
    return nullptr;
}

Value* Dictionary::find(std::string_view key)
{
    for (auto& entry : entries_) {
        if (entry.first == key) return &entry.second;
    }
    return nullptr;
}

void Dictionary::set(std::string key, Value value)
{
    if (Value* existing = find(key)) {
        *existing = std::move(value);
        return;
    }
    entries_.emplace_back(std::move(key), std::move(value));
}

bool Dictionary::remove(std::string_view key)
{
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
        if (it->first == key) {
            entries_.erase(it);
            return true;
        }
    }
    return false;
}

Value Value::dictionary(std::initializer_list<std::pair<std::string, Value>> entries)
{
    auto dict = std::make_shared<Dictionary>();
    for (const auto& entry : entries) dict->set(entry.first, entry.second);
    return Value(dict);
}

std::optional<bool> Value::asBool() const
{
    if (auto b = std::get_if<bool>(&storage_)) return *b;
    if (auto i = std::get_if<std::int64_t>(&storage_)) return *i != 0;
    if (auto d = std::get_if<double>(&storage_)) return *d != 0.0;
    if (auto s = std::get_if<std::string>(&storage_)) {
        // The host's string-to-boolean: a leading Y, y, T, t or a non-zero digit.
        std::size_t i = 0;
        while (i < s->size() && ((*s)[i] == ' ' || (*s)[i] == '+' || (*s)[i] == '-' || (*s)[i] == '0')) ++i;
        if (i == s->size()) return false;
        char c = (*s)[i];
        return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
    }
    return std::nullopt;
}

std::optional<std::int64_t> Value::asInteger() const
{
    if (auto i = std::get_if<std::int64_t>(&storage_)) return *i;
    if (auto d = std::get_if<double>(&storage_)) {
        if (!std::isfinite(*d)) return std::nullopt;
        return static_cast<std::int64_t>(*d);
    }
    if (auto b = std::get_if<bool>(&storage_)) return *b ? 1 : 0;
    return std::nullopt;
}

std::optional<double> Value::asReal() const
{
    if (auto d = std::get_if<double>(&storage_)) return *d;
    if (auto i = std::get_if<std::int64_t>(&storage_)) return static_cast<double>(*i);
    if (auto b = std::get_if<bool>(&storage_)) return *b ? 1.0 : 0.0;
    return std::nullopt;
}

std::optional<Date> Value::asDate() const
{
    if (auto d = std::get_if<Date>(&storage_)) return *d;
    return std::nullopt;
}

const Value* Value::get(std::string_view key) const
{
    auto dict = asDictionary();
    return dict ? dict->find(key) : nullptr;
}

std::optional<std::string> Value::stringForKey(std::string_view key) const
{
    const Value* v = get(key);
    if (v && v->asString()) return *v->asString();
    return std::nullopt;
}

std::optional<std::int64_t> Value::integerForKey(std::string_view key) const
{
    const Value* v = get(key);
    return v ? v->asInteger() : std::nullopt;
}

bool operator==(const Value& a, const Value& b)
{
    if (a.storage_.index() != b.storage_.index()) return false;
    if (auto x = a.asArray()) {
        auto y = b.asArray();
        if (x == y) return true;
        if (!y || x->size() != y->size()) return false;
        for (std::size_t i = 0; i < x->size(); ++i) {
            if (!((*x)[i] == (*y)[i])) return false;
        }
        return true;
    }
    if (a.isDictionary() || b.isDictionary()) {
        auto x = a.asDictionary();
        auto y = b.asDictionary();
        if (x == y) return true;
        if (!x || !y || x->size() != y->size()) return false;
        for (const auto& [key, value] : *x) {
            const Value* other = y->find(key);
            if (!other || !(value == *other)) return false;
        }
        return true;
    }
    return a.storage_ == b.storage_;
}

}  // namespace quillora
