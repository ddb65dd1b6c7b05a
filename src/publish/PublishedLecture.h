// What the companion files are made from: the chapters of a published
// lecture, its tags and its cover, as the export command hands them over.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora::publish {

struct PublishedChapter {
    double start = 0;  // seconds
    double end = 0;    // seconds (the next chapter's start, or the recording's length)
    std::string title;
    std::optional<std::string> url;  // the slide's link
    std::optional<std::string> linkTitle;
    std::optional<std::filesystem::path> picture;  // the redrawn slide picture (JPEG or PNG), may be absent
};

struct PublishedLecture {
    std::vector<PublishedChapter> chapters;
    double duration = 0;  // the recording's length in seconds
    // "title", "author", "copyright", "university", "class name", "class number", "description", ...
    Value tags = Value::dictionary();
    std::optional<std::filesystem::path> cover;  // made by makeCover, if any
};

}  // namespace quillora::publish
