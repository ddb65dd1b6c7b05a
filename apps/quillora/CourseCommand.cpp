#include "CourseCommand.h"

#include <fmt/format.h>

#include <ostream>
#include <thread>

#include "CourseExports.h"
#include "CourseLanding.h"
#include "CoursePlan.h"
#include "ProgramFolder.h"
#include "foundation/PropertyList.h"
#include "publish/CourseFeed.h"
#include "publish/NameBasedUuid.h"
#include "publish/StagedOutput.h"

namespace quillora::app {

namespace {

// The manifest read and the output folder's state loaded, or a refusal.
struct OpenedCourse {
    publish::Course course;
    std::filesystem::path folder;
    std::unique_ptr<publish::CourseState> state;
    std::vector<PlannedLecture> planned;
};

std::optional<OpenedCourse> openCourse(const CourseOptions& options, std::ostream& err)
{
    OpenedCourse opened;
    try {
        opened.course = publish::readCourseManifest(options.manifest);
    } catch (const std::exception& failure) {
        err << "quillora: " << failure.what() << "\n";
        return std::nullopt;
    }
    opened.folder = std::filesystem::absolute(options.output).lexically_normal();
    std::error_code error;
    std::filesystem::create_directories(opened.folder, error);
    if (!std::filesystem::is_directory(opened.folder)) {
        err << "quillora: the output folder " << opened.folder.string()
            << " cannot be made: " << (error ? error.message() : "a file of that name is in the way") << "\n";
        return std::nullopt;
    }
    opened.state = std::make_unique<publish::CourseState>(opened.folder);
    const auto program = programPath();
    if (!program) {
        err << "quillora: the path of this program cannot be found (no /proc/self/exe)\n";
        return std::nullopt;
    }
    opened.planned = planCourse(opened.course, opened.folder, *opened.state, *program);
    return opened;
}

std::string place(const publish::CourseLecture& lecture)
{
    return fmt::format("lecture {} ({})", lecture.number, lecture.slug);
}

std::string stageDescription(const OpenedCourse& opened)
{
    std::size_t published = 0, staged = 0, toExport = 0;
    for (const auto& lecture : opened.planned) {
        if (lecture.stage == PlannedLecture::Stage::published) ++published;
        if (lecture.stage == PlannedLecture::Stage::staged) ++staged;
        if (lecture.stage == PlannedLecture::Stage::toExport) ++toExport;
    }
    return fmt::format("{} lectures: {} published and unchanged, {} exported and waiting to be published, {} to export",
                       opened.planned.size(), published, staged, toExport);
}

Value tagsOf(const publish::CourseLecture& lecture)
{
    if (!lecture.tags) return Value();
    try {
        return readValueFile(*lecture.tags);
    } catch (const std::exception&) {
        return Value();
    }
}

// One item for each lecture of the manifest that is published and whose
// podcast is in the folder at the size it landed with.
std::vector<publish::FeedItem> feedItems(const OpenedCourse& opened)
{
    const auto& course = opened.course;
    const std::string channelGuid = publish::podcastGuid(course.feedUrl());
    std::vector<publish::FeedItem> items;
    for (const auto& lecture : course.lectures) {
        const auto found = opened.state->lectures.find(lecture.slug);
        if (found == opened.state->lectures.end()) continue;
        const auto& record = found->second;
        std::error_code error;
        if (std::filesystem::file_size(opened.folder / record.file, error) != record.bytes || error) continue;
        const Value tags = tagsOf(lecture);
        publish::FeedItem item;
        item.title = lecture.title.value_or(tags.stringForKey("title").value_or(lecture.slug));
        item.description = lecture.description.value_or(tags.stringForKey("description").value_or(""));
        item.guid = publish::nameBasedUuid(channelGuid, lecture.slug);
        item.published = lecture.date.value_or(Date(std::chrono::seconds(record.firstPublished)));
        item.enclosureUrl = course.baseUrl + record.file;
        item.bytes = record.bytes;
        item.mimeType = publish::podcastMimeType(std::filesystem::path(record.file).extension().string());
        item.seconds = record.seconds;
        item.imageUrl = course.baseUrl + record.artwork.value_or(kCourseArtworkName);
        const std::string chapters = lecture.slug + ".chapters.json";
        if (std::filesystem::is_regular_file(opened.folder / chapters)) item.chaptersUrl = course.baseUrl + chapters;
        items.push_back(std::move(item));
    }
    return items;
}

// Lands what is staged, then writes the state and the feed, each only when
// it changed; returns the items of the feed.
std::size_t publishFeed(OpenedCourse& opened, std::vector<LectureFailure>& failures, std::ostream& out)
{
    const HeldSignals held;
    landStagedLectures(opened.planned, opened.folder, *opened.state, failures);
    opened.state->save();  // what landed stays landed, whatever happens next
    makeCourseArtwork(opened.course, opened.folder, *opened.state);
    opened.state->save();
    const auto items = feedItems(opened);
    const std::string feed = publish::courseFeedXml(opened.course, opened.course.baseUrl + kCourseArtworkName, items);
    const auto feedFile = opened.folder / "feed.xml";
    std::string earlier;
    if (std::filesystem::is_regular_file(feedFile)) {
        const Bytes bytes = readWholeFile(feedFile);
        earlier.assign(bytes.begin(), bytes.end());
    }
    if (feed != earlier) {
        publish::writeWholeFile(feedFile, feed);
        out << "Wrote " << feedFile.string() << " (" << items.size() << " lectures)\n";
    } else {
        out << "The feed " << feedFile.string() << " is up to date (" << items.size() << " lectures)\n";
    }
    removeStaleStaging(opened.planned, opened.folder);
    return items.size();
}

int reportFailures(const std::vector<LectureFailure>& failures, std::ostream& err)
{
    if (failures.empty()) return kExitSuccess;
    err << "quillora: " << failures.size() << (failures.size() == 1 ? " lecture was" : " lectures were")
        << " not published:\n";
    for (const auto& failure : failures) err << "  " << place(*failure.lecture) << ": " << failure.reason << "\n";
    return kExitFailed;
}

// The course as far as it is published, or the cause that stopped it.
int finishCourse(OpenedCourse& opened, std::vector<LectureFailure>& failures, std::ostream& out, std::ostream& err)
{
    try {
        publishFeed(opened, failures, out);
    } catch (const std::exception& failure) {
        err << "quillora: the feed cannot be written: " << failure.what() << "\n";
        reportFailures(failures, err);
        return kExitFailed;
    }
    return reportFailures(failures, err);
}

}  // namespace

int runCoursePublish(const CourseOptions& options, std::ostream& out, std::ostream& err)
{
    auto opened = openCourse(options, err);
    if (!opened) return kExitRefused;
    out << stageDescription(*opened) << "\n";
    std::vector<LectureExport> exports;
    std::vector<PlannedLecture*> exported;
    for (auto& lecture : opened->planned) {
        if (lecture.stage != PlannedLecture::Stage::toExport) continue;
        std::error_code error;
        std::filesystem::remove_all(lecture.staging, error);
        std::filesystem::create_directories(lecture.staging, error);
        exports.push_back({lecture.lecture->slug, lecture.arguments});
        exported.push_back(&lecture);
    }
    // One export keeps two cores busy drawing slides.
    const unsigned jobs = options.jobs.value_or(std::max(1U, std::thread::hardware_concurrency() / 2));
    const auto outcomes = runExports(exports, jobs, out);
    std::vector<LectureFailure> failures;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        if (outcomes[i].succeeded && std::filesystem::is_regular_file(exported[i]->stagedFile())) {
            exported[i]->stage = PlannedLecture::Stage::staged;
        } else {
            failures.push_back(
                {exported[i]->lecture, outcomes[i].succeeded ? "its export made no podcast" : outcomes[i].reason});
        }
    }
    return finishCourse(*opened, failures, out, err);
}

int runCourseCommands(const CourseOptions& options, std::ostream& out, std::ostream& err)
{
    auto opened = openCourse(options, err);
    if (!opened) return kExitRefused;
    for (const auto& lecture : opened->planned) {
        if (lecture.stage != PlannedLecture::Stage::toExport) continue;
        std::error_code error;
        std::filesystem::create_directories(lecture.staging, error);
        if (error) {
            err << "quillora: the staging folder " << lecture.staging.string() << " cannot be made: " << error.message()
                << "\n";
            return kExitFailed;
        }
        out << shellCommandLine(lecture.arguments) << "\n";
    }
    try {
        opened->state->save();  // the hashes, so that `course feed` need not read the inputs again
    } catch (const std::exception& failure) {
        err << "quillora: warning: " << failure.what() << "\n";
    }
    return kExitSuccess;
}

int runCourseFeed(const CourseOptions& options, std::ostream& out, std::ostream& err)
{
    auto opened = openCourse(options, err);
    if (!opened) return kExitRefused;
    std::vector<LectureFailure> failures;
    for (const auto& lecture : opened->planned) {
        if (lecture.stage == PlannedLecture::Stage::toExport) {
            failures.push_back({lecture.lecture, "not exported: its export failed or has not run (`quillora course "
                                                 "commands` prints it)"});
        }
    }
    return finishCourse(*opened, failures, out, err);
}

}  // namespace quillora::app
