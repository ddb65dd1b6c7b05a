#include "CoursePlan.h"

#include <fmt/format.h>

#include "foundation/PropertyList.h"
#include "publish/ContentHash.h"

namespace quillora::app {

namespace {

// The pictures a transitions file names, as the export finds them.
std::vector<std::filesystem::path> picturesOf(const std::filesystem::path& transitions)
{
    std::vector<std::filesystem::path> pictures;
    Value records;
    try {
        records = readValueFile(transitions);
    } catch (const std::exception&) {
        return pictures;  // the export refuses it, saying why
    }
    if (!records.asArray()) return pictures;
    for (const auto& record : *records.asArray()) {
        if (auto name = record.stringForKey("imagePath")) {
            std::filesystem::path picture = *name;
            pictures.push_back(picture.is_relative() ? transitions.parent_path() / picture : picture);
        }
    }
    return pictures;
}

// The export command, and a description of all it reads in which files
// stand by their content, not their place, so that moving the course
// elsewhere changes nothing.
PlannedLecture plan(const publish::Course& course, const publish::CourseLecture& lecture,
                    const std::filesystem::path& folder, publish::CourseState& state,
                    const std::filesystem::path& program)
{
    PlannedLecture planned;
    planned.lecture = &lecture;
    planned.fileName = lecture.slug + course.format;
    std::vector<std::string> arguments = {program.string(), "export"};
    std::string description = "quillora course lecture 1\n";
    auto hashOf = [&](const std::filesystem::path& file) {
        try {
            return state.contentHash(file);
        } catch (const std::exception&) {
            return std::string("unreadable");  // the export says why
        }
    };
    auto addFile = [&](const char* option, const std::optional<std::filesystem::path>& file) {
        if (!file) return;
        const auto absolute = std::filesystem::absolute(*file).lexically_normal();
        arguments.insert(arguments.end(), {option, absolute.string()});
        description += fmt::format("{} {}\n", option, hashOf(absolute));
    };
    auto addValue = [&](const char* option, const std::string& value) {
        arguments.insert(arguments.end(), {option, value});
        description += fmt::format("{} {}\n", option, value);
    };
    addFile("--recording", lecture.recording);
    addFile("--transitions", lecture.transitions);
    addFile("--chapters", lecture.chapters);
    addFile("--screenshots", lecture.screenshots);
    addFile("--tags", lecture.tags);
    addFile("--defaults", lecture.defaults);
    addFile("--cover", lecture.artwork);
    std::string also;
    for (const auto& name : course.also) also += (also.empty() ? "" : ",") + name;
    addValue("--also", also);
    addValue("--base-url", course.baseUrl);
    if (course.loudness) addValue("--loudness", fmt::format("{}", *course.loudness));
    if (course.modern) {
        arguments.push_back("--modern");
        description += "--modern\n";
    }
    for (const auto& list : {lecture.transitions, lecture.screenshots}) {
        if (!list) continue;
        for (const auto& picture : picturesOf(*list)) {
            description +=
                fmt::format("picture {}\n", std::filesystem::is_regular_file(picture) ? hashOf(picture) : "missing");
        }
    }
    planned.inputs = publish::sha256OfText(description);
    planned.staging = folder / kStagingFolderName / (lecture.slug + "-" + planned.inputs.substr(0, 16));
    arguments.insert(arguments.end(), {"--output", planned.stagedFile().string()});
    planned.arguments = std::move(arguments);

    std::error_code error;
    const auto published = state.lectures.find(lecture.slug);
    if (published != state.lectures.end() && published->second.inputs == planned.inputs &&
        std::filesystem::file_size(folder / published->second.file, error) == published->second.bytes && !error) {
        planned.stage = PlannedLecture::Stage::published;
    } else if (std::filesystem::is_regular_file(planned.stagedFile())) {
        planned.stage = PlannedLecture::Stage::staged;
    }
    return planned;
}

}  // namespace

std::vector<PlannedLecture> planCourse(const publish::Course& course, const std::filesystem::path& folder,
                                       publish::CourseState& state, const std::filesystem::path& program)
{
    std::vector<PlannedLecture> planned;
    for (const auto& lecture : course.lectures) planned.push_back(plan(course, lecture, folder, state, program));
    return planned;
}

std::string shellCommandLine(const std::vector<std::string>& arguments)
{
    std::string line;
    for (const auto& word : arguments) {
        if (!line.empty()) line += ' ';
        const bool plain =
            !word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                    "0123456789-_./:,=+@%") == std::string::npos;
        if (plain) {
            line += word;
            continue;
        }
        line += '\'';
        for (char c : word) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += '\'';
    }
    return line;
}

}  // namespace quillora::app
