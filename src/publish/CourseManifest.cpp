#include "publish/CourseManifest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <map>

#include "foundation/PropertyList.h"
#include "publish/Companions.h"

namespace quillora::publish {

namespace {

constexpr const char* kFormats[] = {".m4a", ".m4b", ".m4v", ".mov"};

// Reads one dictionary's fields, naming the place ("the course", "lecture 2")
// in every refusal.
class Fields {
public:
    Fields(const Value& value, std::string place, const std::filesystem::path& manifest)
        : value_(value), place_(std::move(place)), manifest_(manifest)
    {
        if (!value.isDictionary()) fail("", "is not a dictionary");
    }

    [[noreturn]] void fail(const std::string& key, const std::string& problem) const
    {
        const std::string field = key.empty() ? "" : fmt::format(": \"{}\"", key);
        throw CourseManifestError(fmt::format("{}: {}{} {}", manifest_.string(), place_, field, problem));
    }

    std::optional<std::string> text(const std::string& key, bool required = false) const
    {
        const Value* found = value_.get(key);
        if (!found || found->isNull()) {
            if (required) fail(key, "is missing");
            return std::nullopt;
        }
        if (!found->asString()) fail(key, "must be text");
        if (required && found->asString()->empty()) fail(key, "is empty");
        return *found->asString();
    }

    // A file that must exist, relative to the manifest's folder.
    std::optional<std::filesystem::path> file(const std::string& key, bool required = false) const
    {
        auto name = text(key, required);
        if (!name) return std::nullopt;
        const auto path = manifest_.parent_path() / *name;
        if (!std::filesystem::is_regular_file(path))
            fail(key, fmt::format("names {}, which does not exist", path.string()));
        return path;
    }

    bool flag(const std::string& key) const
    {
        const Value* found = value_.get(key);
        if (!found) return false;
        if (!found->isBool()) fail(key, "must be true or false");
        return *found->asBool();
    }

    const Value* get(const std::string& key) const { return value_.get(key); }

private:
    const Value& value_;
    std::string place_;
    const std::filesystem::path& manifest_;
};

bool isSlug(const std::string& text)
{
    return !text.empty() && text.front() != '.' && text.front() != '-' &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '_' || c == '.'; });
}

// The recording's name, lower case, with a dash for each run of anything else.
std::string slugOf(const std::filesystem::path& recording)
{
    std::string slug;
    for (unsigned char c : recording.stem().string()) {
        if (std::isalnum(c)) {
            slug += static_cast<char>(std::tolower(c));
        } else if (!slug.empty() && slug.back() != '-') {
            slug += '-';
        }
    }
    while (!slug.empty() && slug.back() == '-') slug.pop_back();
    return slug.empty() ? "lecture" : slug;
}

CourseLecture readLecture(const Value& value, std::size_t number, const Course& course)
{
    CourseLecture lecture;
    lecture.number = number;
    std::string place = fmt::format("lecture {}", number);
    if (auto slug = value.stringForKey("slug")) place += fmt::format(" (\"{}\")", *slug);
    const Fields fields(value, place, course.manifest);
    lecture.recording = *fields.file("recording", true);
    lecture.transitions = fields.file("transitions");
    lecture.chapters = fields.file("chapters");
    if (lecture.transitions && lecture.chapters)
        fields.fail("chapters", "cannot be given with \"transitions\"; give one of them");
    lecture.screenshots = fields.file("screenshots");
    lecture.tags = fields.file("tags");
    lecture.defaults = fields.file("defaults");
    if (!lecture.defaults) lecture.defaults = course.defaults;
    lecture.artwork = fields.file("artwork");
    lecture.title = fields.text("title");
    lecture.description = fields.text("description");
    lecture.slug = fields.text("slug").value_or(slugOf(lecture.recording));
    if (!isSlug(lecture.slug)) {
        fields.fail("slug", "may hold only letters, digits, '-', '_' and '.', and start with a letter or digit");
    }
    if (const Value* date = fields.get("date"); date && !date->isNull()) {
        if (date->isDate()) {
            lecture.date = *date->asDate();
        } else if (!date->asString() || !(lecture.date = parseIsoDate(*date->asString()))) {
            fields.fail("date", "must be a date such as \"2024-09-02\" or \"2024-09-02T10:15:00Z\"");
        }
    }
    return lecture;
}

}  // namespace

std::optional<Date> parseIsoDate(std::string_view text)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    int used = 0;
    const std::string copy(text);
    if (std::sscanf(copy.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &used) != 3 || used != 10) return std::nullopt;
    long offsetSeconds = 0;
    std::string_view rest = text.substr(10);
    if (!rest.empty()) {
        int more = 0;
        if (std::sscanf(copy.c_str() + 10, "T%2d:%2d:%2d%n", &hour, &minute, &second, &more) != 3 || more != 9)
            return std::nullopt;
        rest.remove_prefix(9);
        if (rest == "Z") {
            rest = {};
        } else if (rest.size() == 6 && (rest[0] == '+' || rest[0] == '-') && rest[3] == ':') {
            int offsetHours = 0, offsetMinutes = 0;
            if (std::sscanf(std::string(rest.substr(1)).c_str(), "%2d:%2d", &offsetHours, &offsetMinutes) != 2)
                return std::nullopt;
            offsetSeconds = (rest[0] == '+' ? 1 : -1) * (offsetHours * 3600L + offsetMinutes * 60L);
            rest = {};
        }
        if (!rest.empty()) return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return std::nullopt;
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    const std::time_t utc = timegm(&parts);
    return std::chrono::system_clock::from_time_t(utc - offsetSeconds);
}

Course readCourseManifest(const std::filesystem::path& manifest)
{
    Course course;
    course.manifest = manifest;
    if (!std::filesystem::is_regular_file(manifest)) {
        throw CourseManifestError(fmt::format("The course manifest {} does not exist", manifest.string()));
    }
    Value root;
    try {
        root = readValueFile(manifest);
    } catch (const std::exception& failure) {
        throw CourseManifestError(
            fmt::format("The course manifest {} cannot be read: {}", manifest.string(), failure.what()));
    }
    const Fields fields(root, "the course", manifest);
    course.title = *fields.text("title", true);
    course.author = *fields.text("author", true);
    course.description = *fields.text("description", true);
    course.language = fields.text("language").value_or("en");
    course.artwork = *fields.file("artwork", true);
    course.baseUrl = *fields.text("baseUrl", true);
    if (!course.baseUrl.starts_with("https://") && !course.baseUrl.starts_with("http://")) {
        fields.fail("baseUrl", "must be an http or https URL, the folder the files are published in");
    }
    if (!course.baseUrl.ends_with('/')) course.baseUrl += '/';
    course.link = fields.text("link").value_or(course.baseUrl);
    if (const Value* category = fields.get("category"); category && category->asArray()) {
        for (const auto& name : *category->asArray()) {
            if (!name.asString()) fields.fail("category", "must be text or a list of a category and a subcategory");
            course.category.push_back(*name.asString());
        }
    } else {
        course.category.push_back(fields.text("category").value_or("Education"));
    }
    if (course.category.empty() || course.category.size() > 2) {
        fields.fail("category", "must be text or a list of a category and a subcategory");
    }
    course.defaults = fields.file("defaults");
    course.explicitContent = fields.flag("explicit");
    course.modern = fields.flag("modern");
    course.format = fields.text("format").value_or(".m4a");
    if (std::find(std::begin(kFormats), std::end(kFormats), course.format) == std::end(kFormats)) {
        fields.fail("format", "must be .m4a, .m4b, .m4v or .mov");
    }
    course.also = {"chapters-json"};
    if (const Value* also = fields.get("also")) {
        if (!also->asArray()) fields.fail("also", "must be a list of companions");
        for (const auto& name : *also->asArray()) {
            if (!name.asString() || !companionNamed(*name.asString())) {
                fields.fail("also", "takes chapters-json, webvtt, web and mp3");
            }
            if (std::find(course.also.begin(), course.also.end(), *name.asString()) == course.also.end())
                course.also.push_back(*name.asString());
        }
    }
    if (const Value* loudness = fields.get("loudness")) {
        const auto level = loudness->asReal();
        if (!level || *level < -70 || *level > -5) fields.fail("loudness", "must be a number of LUFS from -70 to -5");
        course.loudness = level;
    }
    const Value* lectures = fields.get("lectures");
    if (!lectures || !lectures->asArray() || lectures->asArray()->empty()) {
        fields.fail("lectures", "must be a list of at least one lecture");
    }
    std::map<std::string, std::size_t> slugs;
    for (const auto& entry : *lectures->asArray()) {
        course.lectures.push_back(readLecture(entry, course.lectures.size() + 1, course));
        const auto& lecture = course.lectures.back();
        if (auto [earlier, added] = slugs.emplace(lecture.slug, lecture.number); !added) {
            throw CourseManifestError(
                fmt::format("{}: lecture {}: \"slug\" {} is lecture {}'s too; give each lecture a \"slug\" of its own",
                            manifest.string(), lecture.number, lecture.slug, earlier->second));
        }
    }
    return course;
}

}  // namespace quillora::publish
