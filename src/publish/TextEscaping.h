// The two ways text leaves the companions escaped: as markup (HTML, WebVTT
// cue text) and as a URL path; and a URL path read back.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quillora::publish {

// & < > as character references: enough for element and cue text.
std::string escapeMarkup(std::string_view text);
// Also " and ', for attribute values.
std::string escapeMarkupAttribute(std::string_view text);

// A relative path as a URL path: each segment's bytes percent-encoded except
// the unreserved characters, the segments joined with "/".
std::string urlPath(const std::filesystem::path& relative);
// The path a relative URL names: percent escapes decoded ("%20" is a blank), a
// '%' not followed by two hex digits kept as it is.
std::filesystem::path pathFromUrlPath(std::string_view url);

}  // namespace quillora::publish
