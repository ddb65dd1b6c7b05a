// `quillora course`: a semester of lectures published as one podcast feed.
//   publish   exports what is new or changed, a number at once, then writes the feed;
//   commands  prints the export command of each lecture that needs one, for
//             other machines to run (GNU parallel, a job array);
//   feed      lands what those made and writes the feed.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>

#include "ExitStatus.h"

namespace quillora::app {

struct CourseOptions {
    std::filesystem::path manifest;
    std::filesystem::path output;
    std::optional<unsigned> jobs;  // default: one per two cores
};

int runCoursePublish(const CourseOptions& options, std::ostream& out, std::ostream& err);
int runCourseCommands(const CourseOptions& options, std::ostream& out, std::ostream& err);
int runCourseFeed(const CourseOptions& options, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
