// A property-list value: the currency of parameters, tags, transitions and
// preferences. Arrays and dictionaries are shared by reference, so a change
// made through one holder (a writer updating a transition's "imagePath") is
// seen by every other holder of the same container.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/Bytes.h"

namespace quillora {

class Value;

using Date = std::chrono::system_clock::time_point;

// An ordered sequence of values.
using Array = std::vector<Value>;

class Dictionary;

using ArrayRef = std::shared_ptr<Array>;
using DictionaryRef = std::shared_ptr<Dictionary>;

class Value {
public:
    using Storage =
        std::variant<std::monostate, bool, std::int64_t, double, std::string, Bytes, Date, ArrayRef, DictionaryRef>;

    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool b) : storage_(b) {}
    Value(int i) : storage_(static_cast<std::int64_t>(i)) {}
    Value(std::int64_t i) : storage_(i) {}
    Value(double d) : storage_(d) {}
    Value(const char* s) : storage_(std::string(s)) {}
    Value(std::string s) : storage_(std::move(s)) {}
    Value(Bytes b) : storage_(std::move(b)) {}
    Value(Date d) : storage_(d) {}
    Value(ArrayRef a) : storage_(std::move(a)) {}
    Value(DictionaryRef d) : storage_(std::move(d)) {}

    static Value array(Array items = {}) { return Value(std::make_shared<Array>(std::move(items))); }
    static Value dictionary(std::initializer_list<std::pair<std::string, Value>> entries = {});

    bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }
    bool isBool() const { return std::holds_alternative<bool>(storage_); }
    bool isInteger() const { return std::holds_alternative<std::int64_t>(storage_); }
    bool isReal() const { return std::holds_alternative<double>(storage_); }
    bool isNumber() const { return isInteger() || isReal() || isBool(); }
    bool isString() const { return std::holds_alternative<std::string>(storage_); }
    bool isData() const { return std::holds_alternative<Bytes>(storage_); }
    bool isDate() const { return std::holds_alternative<Date>(storage_); }
    bool isArray() const { return std::holds_alternative<ArrayRef>(storage_) && std::get<ArrayRef>(storage_); }
    bool isDictionary() const
    {
        return std::holds_alternative<DictionaryRef>(storage_) && std::get<DictionaryRef>(storage_);
    }

    // Typed views. Numbers convert among themselves the way the host's number
    // objects do (a boolean is 0 or 1, a real is truncated toward zero).
    std::optional<bool> asBool() const;
    std::optional<std::int64_t> asInteger() const;
    std::optional<double> asReal() const;
    const std::string* asString() const { return std::get_if<std::string>(&storage_); }
    const Bytes* asData() const { return std::get_if<Bytes>(&storage_); }
    std::optional<Date> asDate() const;
    ArrayRef asArray() const { return isArray() ? std::get<ArrayRef>(storage_) : nullptr; }
    DictionaryRef asDictionary() const { return isDictionary() ? std::get<DictionaryRef>(storage_) : nullptr; }

    // Dictionary look-ups; a non-dictionary or a missing key gives nothing.
    const Value* get(std::string_view key) const;
    std::optional<std::string> stringForKey(std::string_view key) const;
    std::optional<std::int64_t> integerForKey(std::string_view key) const;

    const Storage& storage() const { return storage_; }

    // Deep equality: containers compare by contents.
    friend bool operator==(const Value& a, const Value& b);

private:
    Storage storage_;
};

// A dictionary that keeps its keys in insertion order.
class Dictionary {
public:
    using Entry = std::pair<std::string, Value>;

    const Value* find(std::string_view key) const;
    Value* find(std::string_view key);
    bool contains(std::string_view key) const { return find(key) != nullptr; }
    // Replaces the value of an existing key in place, or appends the key.
    void set(std::string key, Value value);
    bool remove(std::string_view key);
    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    const std::vector<Entry>& entries() const { return entries_; }
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }

private:
    std::vector<Entry> entries_;
};

}  // namespace quillora
