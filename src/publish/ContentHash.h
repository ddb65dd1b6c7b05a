// SHA-256 content hashes, in lower-case hex, of texts and of whole files.
// A course remembers them to tell which lectures' inputs changed.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quillora::publish {

std::string sha256OfText(std::string_view text);
// Reads the file in pieces; throws PublishError when it cannot be read.
std::string sha256OfFile(const std::filesystem::path& path);

}  // namespace quillora::publish
