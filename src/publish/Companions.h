// The files written beside a podcast so that every listener's app shows the
// slides: JSON chapters with the slide pictures, WebVTT chapters, a web page,
// an MP3 with ID3 chapters. They are made from the same transitions, redrawn
// pictures and prepared recording as the podcast, which they never change.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "foundation/Value.h"
#include "publish/PublishedLecture.h"

namespace quillora::publish {

enum class Companion { chaptersJson, webVtt, webPage, mp3 };

// The companion a name given on the command line stands for ("chapters-json",
// "webvtt", "web", "mp3").
std::optional<Companion> companionNamed(std::string_view name);

struct CompanionRequest {
    std::set<Companion> companions;
    std::string baseUrl;                  // where the files are published; empty: relative links
    std::optional<std::int64_t> bitrate;  // of the MP3
};

// The lecture as the companions show it: one chapter per slide (a blank title
// named "Chapter N", as the podcast names it), each lasting until the next or
// the end of the recording, with its redrawn picture and its link.
PublishedLecture lectureFromTransitions(const Value& slides, double seconds, const Value& tags);

// Writes the companions into folder, each named after name (the podcast's
// file name without its extension): NAME.chapters.json and NAME-slides/,
// NAME.chapters.vtt, NAME.html (with the chapters file it reads), NAME.mp3
// (encoded from sound). The web page plays the MP3 when there is one, else
// podcastFileName. Returns what was made, files and folders, in the order
// made. Throws PublishError or audio::AudioError.
std::vector<std::filesystem::path> writeCompanions(const PublishedLecture& lecture, const CompanionRequest& request,
                                                   const std::filesystem::path& folder, const std::string& name,
                                                   const std::string& podcastFileName,
                                                   const std::filesystem::path& sound);

}  // namespace quillora::publish
