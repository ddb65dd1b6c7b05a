// Property lists of the host platform (XML and binary) and JSON, as Values.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "foundation/Value.h"

namespace quillora {

class FormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads a property list in XML or binary form; throws FormatError.
Value propertyListFromBytes(const Bytes& data);
// Writes the XML form.
std::string xmlPropertyListFromValue(const Value& value);

// JSON: objects keep their key order; integers stay integers.
Value valueFromJson(std::string_view text);
std::string jsonFromValue(const Value& value, int indent = 2);

// A file in any of the three forms, told apart by its first bytes: JSON
// ("{" or "[" after blanks), binary ("bplist") or XML property list.
Value readValueFile(const std::filesystem::path& path);
void writePropertyListFile(const std::filesystem::path& path, const Value& value);

Bytes readWholeFile(const std::filesystem::path& path);

}  // namespace quillora
