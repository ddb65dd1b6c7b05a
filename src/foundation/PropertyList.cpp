#include "foundation/PropertyList.h"

#include <plist/plist.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>

namespace quillora {

namespace {

using PlistPtr = std::unique_ptr<void, decltype(&plist_free)>;

// Deeper nesting than any real transitions or preferences file is refused
// before it can exhaust the stack of the recursive conversions below.
constexpr int kMaximumNesting = 256;

// Seconds between 1970 and the property list epoch, 2001-01-01.
constexpr std::int64_t kPlistEpochOffset = 978307200;

// Walks the tree without reading any value, so the nesting is known before
// anything recursive (the conversion below, the XML writer) runs over it.
void checkNesting(plist_t node, int depth)
{
    if (depth > kMaximumNesting) throw FormatError("property list nested too deeply");
    if (plist_get_node_type(node) == PLIST_ARRAY) {
        const std::uint32_t count = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < count; ++i) checkNesting(plist_array_get_item(node, i), depth + 1);
    } else if (plist_get_node_type(node) == PLIST_DICT) {
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            plist_t item = nullptr;
            plist_dict_next_item(node, it, nullptr, &item);
            if (!item) break;
            checkNesting(item, depth + 1);
        }
        std::free(it);
    }
}

// The library aborts the process when asked for a string or key holding a
// NUL character; its XML form shows them without harm.
void checkNoNulCharacters(plist_t root)
{
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    const bool nul = xml && std::memchr(xml, 0, length) != nullptr;
    plist_to_xml_free(xml);
    if (nul) throw FormatError("a string or key of the property list holds a NUL character");
}

// Once the tree is known to be shallow enough and free of NUL characters.
Value valueFromPlistNode(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return Value(b != 0);
    }
    case PLIST_UINT: {
        std::uint64_t u = 0;
        plist_get_uint_val(node, &u);
        return Value(static_cast<std::int64_t>(u));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return Value(d);
    }
    case PLIST_STRING: {
        char* s = nullptr;
        plist_get_string_val(node, &s);
        std::string text = s ? s : "";
        std::free(s);
        return Value(std::move(text));
    }
    case PLIST_DATA: {
        char* d = nullptr;
        std::uint64_t length = 0;
        plist_get_data_val(node, &d, &length);
        Bytes bytes(reinterpret_cast<std::uint8_t*>(d), reinterpret_cast<std::uint8_t*>(d) + length);
        std::free(d);
        return Value(std::move(bytes));
    }
    case PLIST_DATE: {
        std::int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        auto since1970 = std::chrono::seconds(sec + kPlistEpochOffset) + std::chrono::microseconds(usec);
        return Value(Date(std::chrono::duration_cast<Date::duration>(since1970)));
    }
    case PLIST_ARRAY: {
        Array items;
        std::uint32_t count = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < count; ++i) items.push_back(valueFromPlistNode(plist_array_get_item(node, i)));
        return Value::array(std::move(items));
    }
    case PLIST_DICT: {
        auto dict = std::make_shared<Dictionary>();
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, it, &key, &item);
            if (!key) break;
            std::string name = key;
            std::free(key);
            dict->set(std::move(name), valueFromPlistNode(item));
        }
        std::free(it);
        return Value(dict);
    }
    default:
        return Value();
    }
}

plist_t plistNodeFromValue(const Value& value)
{
    return std::visit(
        [](const auto& v) -> plist_t {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                return plist_new_string("");
            } else if constexpr (std::is_same_v<T, bool>) {
                return plist_new_bool(v ? 1 : 0);
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                return plist_new_uint(static_cast<std::uint64_t>(v));
            } else if constexpr (std::is_same_v<T, double>) {
                return plist_new_real(v);
            } else if constexpr (std::is_same_v<T, std::string>) {
                return plist_new_string(v.c_str());
            } else if constexpr (std::is_same_v<T, Bytes>) {
                return plist_new_data(reinterpret_cast<const char*>(v.data()), v.size());
            } else if constexpr (std::is_same_v<T, Date>) {
                auto micros = std::chrono::duration_cast<std::chrono::microseconds>(v.time_since_epoch()).count();
                micros -= kPlistEpochOffset * 1000000;
                auto sec = static_cast<std::int32_t>(micros / 1000000);
                auto usec = static_cast<std::int32_t>(micros % 1000000);
                return plist_new_date(sec, usec);
            } else if constexpr (std::is_same_v<T, ArrayRef>) {
                plist_t array = plist_new_array();
                if (v) {
                    for (const auto& item : *v) plist_array_append_item(array, plistNodeFromValue(item));
                }
                return array;
            } else {
                plist_t dict = plist_new_dict();
                if (v) {
                    for (const auto& [key, item] : *v) plist_dict_set_item(dict, key.c_str(), plistNodeFromValue(item));
                }
                return dict;
            }
        },
        value.storage());
}

Value valueFromJsonNode(const nlohmann::ordered_json& node, int depth)
{
    if (depth > kMaximumNesting) throw FormatError("JSON nested too deeply");
    switch (node.type()) {
    case nlohmann::ordered_json::value_t::boolean:
        return Value(node.get<bool>());
    case nlohmann::ordered_json::value_t::number_integer:
        return Value(node.get<std::int64_t>());
    case nlohmann::ordered_json::value_t::number_unsigned:
        return Value(static_cast<std::int64_t>(node.get<std::uint64_t>()));
    case nlohmann::ordered_json::value_t::number_float:
        return Value(node.get<double>());
    case nlohmann::ordered_json::value_t::string:
        return Value(node.get<std::string>());
    case nlohmann::ordered_json::value_t::array: {
        Array items;
        for (const auto& item : node) items.push_back(valueFromJsonNode(item, depth + 1));
        return Value::array(std::move(items));
    }
    case nlohmann::ordered_json::value_t::object: {
        auto dict = std::make_shared<Dictionary>();
        for (const auto& [key, item] : node.items()) dict->set(key, valueFromJsonNode(item, depth + 1));
        return Value(dict);
    }
    default:
        return Value();
    }
}

nlohmann::ordered_json jsonNodeFromValue(const Value& value)
{
    return std::visit(
        [](const auto& v) -> nlohmann::ordered_json {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                return nullptr;
            } else if constexpr (std::is_same_v<T, Bytes>) {
                return nlohmann::ordered_json::binary(std::vector<std::uint8_t>(v));
            } else if constexpr (std::is_same_v<T, Date>) {
                return std::chrono::duration<double>(v.time_since_epoch()).count();
            } else if constexpr (std::is_same_v<T, ArrayRef>) {
                auto array = nlohmann::ordered_json::array();
                if (v) {
                    for (const auto& item : *v) array.push_back(jsonNodeFromValue(item));
                }
                return array;
            } else if constexpr (std::is_same_v<T, DictionaryRef>) {
                auto object = nlohmann::ordered_json::object();
                if (v) {
                    for (const auto& [key, item] : *v) object[key] = jsonNodeFromValue(item);
                }
                return object;
            } else {
                return v;
            }
        },
        value.storage());
}

}  // namespace

Value propertyListFromBytes(const Bytes& data)
{
    if (data.empty()) throw FormatError("empty property list");
    plist_t root = nullptr;
    const char* raw = reinterpret_cast<const char*>(data.data());
    auto length = static_cast<std::uint32_t>(data.size());
    if (plist_is_binary(raw, length)) {
        plist_from_bin(raw, length, &root);
    } else {
        plist_from_xml(raw, length, &root);
    }
    if (!root) throw FormatError("not a property list");
    PlistPtr owner(root, plist_free);
    checkNesting(root, 0);
    checkNoNulCharacters(root);
    return valueFromPlistNode(root);
}

std::string xmlPropertyListFromValue(const Value& value)
{
    PlistPtr root(plistNodeFromValue(value), plist_free);
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    std::string text(xml ? xml : "", length);
    plist_to_xml_free(xml);
    return text;
}

Value valueFromJson(std::string_view text)
{
    try {
        return valueFromJsonNode(nlohmann::ordered_json::parse(text), 0);
    } catch (const nlohmann::json::exception& error) {
        throw FormatError(error.what());
    }
}

std::string jsonFromValue(const Value& value, int indent)
{
    return jsonNodeFromValue(value).dump(indent);
}

Bytes readWholeFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path.string());
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Value readValueFile(const std::filesystem::path& path)
{
    Bytes data = readWholeFile(path);
    std::size_t first = 0;
    while (first < data.size() && std::isspace(data[first])) ++first;
    if (first < data.size() && (data[first] == '{' || data[first] == '[')) {
        return valueFromJson(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
    }
    return propertyListFromBytes(data);
}

void writePropertyListFile(const std::filesystem::path& path, const Value& value)
{
    std::string xml = xmlPropertyListFromValue(value);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << xml;
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace quillora
