#include "CompanionExport.h"

#include <system_error>

#include "foundation/Progress.h"
#include "publish/Cover.h"
#include "publish/CoverArtItem.h"
#include "publish/RecordingCover.h"

namespace quillora::app {

namespace {

// The episode artwork, made square in the scratch folder: the picture given,
// else the one the recording carries; none without either.
std::optional<std::filesystem::path> episodeCover(const CompanionInputs& inputs)
{
    std::optional<std::filesystem::path> source = inputs.cover;
    if (!source) source = publish::extractRecordingCover(inputs.recording, inputs.scratch / "recording-cover");
    if (!source) return std::nullopt;
    beginProgressStage("Making the cover");
    const auto cover = inputs.scratch / "cover.jpg";
    publish::makeCover(*source, cover);
    return cover;
}

}  // namespace

std::vector<std::filesystem::path> addCoverAndCompanions(const CompanionInputs& inputs,
                                                         const publish::CompanionRequest& request)
{
    publish::PublishedLecture lecture = publish::lectureFromTransitions(inputs.slides, inputs.seconds, inputs.tags);
    lecture.cover = episodeCover(inputs);
    // A movie keeps its own metadata; the item list is the podcast's.
    if (lecture.cover && inputs.format != ".mov") {
        beginProgressStage("Adding the cover");
        publish::addCoverArt(inputs.staged, *lecture.cover);
    }
    if (request.companions.empty()) return {};
    return publish::writeCompanions(lecture, request, inputs.staged.parent_path(), inputs.destination.stem().string(),
                                    inputs.destination.filename().string(), inputs.sound);
}

void deliverCompanions(const std::vector<std::filesystem::path>& made, const std::filesystem::path& folder)
{
    for (const auto& staged : made) {
        const auto destination = folder / staged.filename();
        if (std::filesystem::is_directory(destination) && std::filesystem::is_directory(staged)) {
            std::filesystem::remove_all(destination);
        }
        std::error_code error;
        std::filesystem::rename(staged, destination, error);
        if (!error) continue;
        if (error != std::errc::cross_device_link) {
            throw std::filesystem::filesystem_error("cannot move a companion file to", destination, error);
        }
        // Another file system: copied under a name of its own, then renamed.
        auto partial = destination;
        partial += ".partial";
        std::filesystem::remove_all(partial);
        std::filesystem::copy(staged, partial, std::filesystem::copy_options::recursive);
        std::filesystem::rename(partial, destination);
        std::filesystem::remove_all(staged);
    }
}

}  // namespace quillora::app
