// Runs a course's exports as child `quillora export` processes, a number at
// once, each isolated from the others: a lecture that fails, or crashes,
// takes no other down. What each prints is shown as it comes, every line
// marked with its lecture.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quillora::app {

struct LectureExport {
    std::string name;  // shown before each of its lines
    std::vector<std::string> arguments;
};

struct ExportOutcome {
    bool succeeded = false;
    std::string reason;  // when it failed: its last complaint, or how it ended
};

// One outcome per export, in the order given; `jobs` at once (at least one).
std::vector<ExportOutcome> runExports(const std::vector<LectureExport>& exports, unsigned jobs, std::ostream& out);

}  // namespace quillora::app
