// A course: one podcast feed holding a semester of lectures. The manifest
// (JSON or a property list) names the feed's texts and artwork, where it is
// published, and each lecture's inputs, as paths relative to the manifest.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora::publish {

// A manifest that cannot be used; the message names the lecture and the field.
class CourseManifestError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CourseLecture {
    std::size_t number = 0;  // its place in the manifest, from 1
    std::string slug;        // the published files' names and the item's identity
    std::filesystem::path recording;
    std::optional<std::filesystem::path> transitions;
    std::optional<std::filesystem::path> chapters;  // a chapter file in place of transitions
    std::optional<std::filesystem::path> screenshots;
    std::optional<std::filesystem::path> tags;
    std::optional<std::filesystem::path> defaults;
    std::optional<std::filesystem::path> artwork;  // the episode's own
    std::optional<std::string> title;              // the feed's, over the tag "title"
    std::optional<std::string> description;        // over the tag "description"
    std::optional<Date> date;                      // publication date
};

struct Course {
    std::filesystem::path manifest;
    std::string title;
    std::string author;
    std::string description;
    std::string language;
    std::filesystem::path artwork;
    std::vector<std::string> category;  // a category, then its subcategory if any
    bool explicitContent = false;
    std::string baseUrl;  // ends in "/"
    std::string link;     // the course's web page; the base URL unless given
    std::string format = ".m4a";
    std::vector<std::string> also;                  // companion names; "chapters-json" always, the feed links it
    std::optional<std::filesystem::path> defaults;  // for a lecture without its own
    std::optional<double> loudness;
    bool modern = false;
    std::vector<CourseLecture> lectures;

    std::string feedUrl() const { return baseUrl + "feed.xml"; }
};

// Throws CourseManifestError for a manifest that is missing, unreadable or
// malformed, a missing input file, or two lectures with one slug.
Course readCourseManifest(const std::filesystem::path& manifest);

// "2024-09-02", "2024-09-02T10:15:00Z", "2024-09-02T10:15:00+02:00"; nullopt otherwise.
std::optional<Date> parseIsoDate(std::string_view text);

}  // namespace quillora::publish
