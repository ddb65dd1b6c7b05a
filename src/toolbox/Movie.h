// The start of our movie toolbox: a movie opened from a file, read from its
// atoms. It answers what the writers ask of a recording: its time scale,
// its duration in that time scale, and its tracks.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillora::toolbox {

struct MovieTrack {
    std::uint32_t trackID = 0;
    std::uint32_t handlerType = 0;  // 'soun', 'text', 'vide', ...
    std::uint32_t mediaTimeScale = 0;
    std::uint64_t mediaDuration = 0;
    std::uint64_t duration = 0;  // from the track header, in the movie's time scale
};

class Movie {
public:
    // Opens the movie at path. On failure returns nothing and, when error is
    // given, puts a sentence saying what is wrong there.
    static std::unique_ptr<Movie> movieWithFile(const std::filesystem::path& path, std::string* error = nullptr);

    const std::filesystem::path& path() const { return path_; }
    std::uint32_t timeScale() const { return timeScale_; }
    // The movie's duration in its own time scale.
    std::uint64_t duration() const { return duration_; }
    const std::vector<MovieTrack>& tracks() const { return tracks_; }

private:
    std::filesystem::path path_;
    std::uint32_t timeScale_ = 0;
    std::uint64_t duration_ = 0;
    std::vector<MovieTrack> tracks_;
};

}  // namespace quillora::toolbox
