#include "CourseLanding.h"

#include <fmt/format.h>

#include <chrono>
#include <set>
#include <vector>

#include "audio/SoundProbe.h"
#include "publish/Cover.h"

namespace quillora::app {

namespace {

// Renames source onto destination; a folder there (the slides of an earlier
// version) is removed first.
void moveOnto(const std::filesystem::path& source, const std::filesystem::path& destination)
{
    if (std::filesystem::is_directory(destination) && std::filesystem::is_directory(source)) {
        std::filesystem::remove_all(destination);
    }
    std::filesystem::rename(source, destination);
}

void land(PlannedLecture& planned, const std::filesystem::path& folder, publish::CourseState& state)
{
    const auto& lecture = *planned.lecture;
    std::optional<std::string> artwork;
    if (lecture.artwork) {
        artwork = lecture.slug + ".jpg";
        if (!std::filesystem::exists(planned.staging / *artwork))
            publish::makeCover(*lecture.artwork, planned.staging / *artwork);
    }
    const auto seconds = audio::probeSound(planned.stagedFile()).durationSeconds.value_or(0);
    const auto bytes = std::filesystem::file_size(planned.stagedFile());
    std::vector<std::filesystem::path> companions;  // listed first: the folder changes as they leave
    for (const auto& entry : std::filesystem::directory_iterator(planned.staging)) {
        if (entry.path().filename() != planned.fileName) companions.push_back(entry.path());
    }
    for (const auto& companion : companions) moveOnto(companion, folder / companion.filename());
    moveOnto(planned.stagedFile(), folder / planned.fileName);

    auto& record = state.lectures[lecture.slug];
    if (record.firstPublished == 0) {
        record.firstPublished =
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
                .count();
    }
    record.inputs = planned.inputs;
    record.file = planned.fileName;
    record.bytes = bytes;
    record.seconds = seconds;
    record.artwork = artwork;
    planned.stage = PlannedLecture::Stage::published;
}

}  // namespace

HeldSignals::HeldSignals()
{
    sigset_t held;
    sigemptyset(&held);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, &previous_);
}

HeldSignals::~HeldSignals()
{
    sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

void landStagedLectures(std::vector<PlannedLecture>& planned, const std::filesystem::path& folder,
                        publish::CourseState& state, std::vector<LectureFailure>& failures)
{
    for (auto& lecture : planned) {
        if (lecture.stage != PlannedLecture::Stage::staged) continue;
        try {
            land(lecture, folder, state);
        } catch (const std::exception& failure) {
            failures.push_back({lecture.lecture, fmt::format("its export cannot be published: {}", failure.what())});
        }
    }
}

void makeCourseArtwork(const publish::Course& course, const std::filesystem::path& folder, publish::CourseState& state)
{
    const std::string inputs = state.contentHash(course.artwork);
    const auto artwork = folder / kCourseArtworkName;
    if (state.artworkInputs == inputs && std::filesystem::is_regular_file(artwork)) return;
    const auto staged = folder / kStagingFolderName / kCourseArtworkName;
    std::filesystem::create_directories(staged.parent_path());
    publish::makeCover(course.artwork, staged);
    std::filesystem::rename(staged, artwork);
    state.artworkInputs = inputs;
}

void removeStaleStaging(const std::vector<PlannedLecture>& planned, const std::filesystem::path& folder)
{
    const auto staging = folder / kStagingFolderName;
    if (!std::filesystem::is_directory(staging)) return;
    std::set<std::filesystem::path> wanted;
    for (const auto& lecture : planned) {
        if (lecture.stage != PlannedLecture::Stage::published) wanted.insert(lecture.staging.filename());
    }
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(staging, ignored)) {
        if (!wanted.contains(entry.path().filename())) std::filesystem::remove_all(entry.path(), ignored);
    }
    std::filesystem::remove(staging, ignored);  // only when empty
}

}  // namespace quillora::app
