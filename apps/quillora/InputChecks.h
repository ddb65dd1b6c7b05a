// What the export's inputs must be for the plug-in to turn them into a file
// players read: checked before any work starts, so that a refusal names the
// file, the slide and the problem instead of ending in a broken podcast.
// Each check throws InputError.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora::app {

// The facts about a recording that the checks of its slides need.
struct RecordingFacts {
    std::uintmax_t bytes = 0;
    std::uint64_t duration = 0;  // in the recording's own time units
};

// A recording the chosen format can take: under 2 GiB and a movie; for an
// enhanced podcast exactly one sound track, whose ID is none of the fixed
// IDs the new tracks take.
RecordingFacts checkRecording(const std::filesystem::path& path, bool enhancedPodcast);

// What a transition must be depends on where its time and texts go.
struct TransitionRules {
    bool checkTimes = true;  // slides; a screen shot's time is never put in a track
    bool checkTexts = true;  // put in text samples (screen shots only on the tools route)
    bool movie = false;      // a .mov, whose samples hold longer link titles and URLs
    // Screen shots are drawn in the slides' frame: the largest it can be,
    // which decides how far a huge screen shot may be reduced.
    std::optional<double> largestFrame;
};

// One transition record, the picture it names resolved to a file (none for
// a lecture without pictures). where names
// the file and the slide for the message; previousTime is the time of the
// record before it in the same list. Returns the time as the plug-in reads
// it (a fraction is dropped), when the rules check it; what the export will
// do differently from what the record asks is added to warnings.
std::optional<std::int64_t> checkTransition(const Dictionary& record,
                                            const std::optional<std::filesystem::path>& picture,
                                            const std::string& where, std::optional<std::int64_t> previousTime,
                                            std::uint64_t recordingDuration, const TransitionRules& rules,
                                            std::vector<std::string>& warnings);

// Why a picture in a format whose decoder this system may lack ("HEIC")
// cannot be read, with what to do about it; libraryMessage is the library's
// own word.
std::string undecodedFormatProblem(const std::string& format, const std::string& libraryMessage);

// The output formats the plug-in makes, and the extensions each may be saved
// under.
bool isFormatName(const std::string& format);
void checkFormat(const std::string& format);
void checkOutputExtension(const std::filesystem::path& output, const std::string& format);

// The output as an absolute path: in a folder that exists and takes new
// files, not a folder itself, and not one of the inputs (by file identity,
// so a link or another spelling of the same path is caught too).
std::filesystem::path checkOutputPlace(const std::filesystem::path& output,
                                       const std::vector<std::filesystem::path>& inputs);

// The extension in lower case, with its dot.
std::string lowercaseExtension(const std::filesystem::path& path);

// A file can be made in the folder (what names it in the message: "output
// folder", "scratch folder").
void checkFolderIsWritable(const std::filesystem::path& folder, std::string_view what);

// Room for the working copy and the result in the scratch folder, and for
// the result beside the destination.
void checkFreeSpace(const std::filesystem::path& scratch, const std::filesystem::path& destinationFolder,
                    std::uintmax_t inputBytes);

}  // namespace quillora::app
