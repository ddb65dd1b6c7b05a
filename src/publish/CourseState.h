// What a course's output folder remembers between runs: for each published
// lecture, the hash of the inputs it was exported from and what landed; and
// the content hash of every input file, found again by its size, time and
// inode so that an unchanged semester is not read again. Kept in the folder
// as one JSON file that is replaced whole, so an interrupted run leaves the
// last complete state.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace quillora::publish {

struct PublishRecord {
    std::string inputs;  // the hash of the inputs it was exported from
    std::string file;    // the podcast's name in the folder
    std::uintmax_t bytes = 0;
    double seconds = 0;
    std::optional<std::string> artwork;  // the episode's own artwork, its name in the folder
    std::int64_t firstPublished = 0;     // seconds since 1970, for a lecture without a date
};

class CourseState {
public:
    static constexpr const char* kFileName = ".course-state.json";

    // The folder's state; an empty one when there is none yet. A state file
    // that cannot be read is set aside as such (every lecture is then
    // exported again) rather than stopping the course.
    explicit CourseState(std::filesystem::path folder);

    // The file's SHA-256; read again only when its size, time or inode changed.
    // Throws PublishError when it cannot be read.
    std::string contentHash(const std::filesystem::path& file);

    std::map<std::string, PublishRecord> lectures;  // by slug
    std::optional<std::string> artworkInputs;       // the hash the course's artwork was made from

    // Writes the state when it differs from what is in the folder, through a
    // temporary file renamed onto it. Only the fingerprints of files hashed
    // since it was loaded are kept.
    void save();

private:
    struct Fingerprint {
        std::uintmax_t size = 0;
        std::int64_t modified = 0;  // nanoseconds
        std::uint64_t inode = 0;
        std::string sha256;
    };

    std::filesystem::path folder_;
    std::map<std::string, Fingerprint> fingerprints_;
    std::set<std::string> used_;
    std::string savedText_;
};

}  // namespace quillora::publish
