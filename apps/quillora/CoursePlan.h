// What a course run has to do for each lecture: the `quillora export`
// command that publishes it, the hash of everything that command reads, and
// whether the lecture is published already, exported and waiting to land in
// the output folder, or still to be exported.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "publish/CourseManifest.h"
#include "publish/CourseState.h"

namespace quillora::app {

struct PlannedLecture {
    enum class Stage { published, staged, toExport };

    const publish::CourseLecture* lecture = nullptr;
    std::string inputs;                  // the hash of the export's options and input files
    std::string fileName;                // SLUG plus the course's format
    std::filesystem::path staging;       // where the export lands: OUTPUT/.staging/SLUG-HASH
    std::vector<std::string> arguments;  // the export command, program first
    Stage stage = Stage::toExport;

    std::filesystem::path stagedFile() const { return staging / fileName; }
};

// The folder below the output folder where exports are made before they land.
inline constexpr const char* kStagingFolderName = ".staging";

std::vector<PlannedLecture> planCourse(const publish::Course& course, const std::filesystem::path& folder,
                                       publish::CourseState& state, const std::filesystem::path& program);

// The command as one line for a shell, each word quoted when it needs it.
std::string shellCommandLine(const std::vector<std::string>& arguments);

}  // namespace quillora::app
