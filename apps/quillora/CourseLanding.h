// Brings finished exports from the staging folder into a course's output
// folder, each lecture whole: its companions first and its podcast last, the
// published state then replaced at once, with the signals that would stop us
// held until all of it is done. A run stopped before leaves the staged
// exports for the next run to land.
#pragma once

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "CoursePlan.h"
#include "publish/CourseManifest.h"
#include "publish/CourseState.h"

namespace quillora::app {

// Holds Ctrl-C, SIGTERM and SIGHUP while it lives; they arrive when it ends.
class HeldSignals {
public:
    HeldSignals();
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    sigset_t previous_;
};

struct LectureFailure {
    const publish::CourseLecture* lecture = nullptr;
    std::string reason;
};

// Lands every staged lecture and marks it published; a lecture that cannot
// land is added to failures and stays staged. Makes the episode artwork of
// a lecture that has its own.
void landStagedLectures(std::vector<PlannedLecture>& planned, const std::filesystem::path& folder,
                        publish::CourseState& state, std::vector<LectureFailure>& failures);

// Makes the course's artwork (OUTPUT/artwork.jpg) when it is missing or its
// source changed. Throws std::exception with the cause.
void makeCourseArtwork(const publish::Course& course, const std::filesystem::path& folder, publish::CourseState& state);

inline constexpr const char* kCourseArtworkName = "artwork.jpg";

// Removes staging folders no lecture of the plan needs any more.
void removeStaleStaging(const std::vector<PlannedLecture>& planned, const std::filesystem::path& folder);

}  // namespace quillora::app
