#include "publish/ModernRepairs.h"

#include <fmt/format.h>

#include "QTDataEditor.h"
#include "foundation/Log.h"
#include "layout/PodcastTrackIDs.h"
#include "publish/HonestHeaders.h"
#include "publish/LinkTrackRepairs.h"
#include "publish/MovieHeaderAtoms.h"
#include "publish/PublishError.h"
#include "publish/SilentStartRepair.h"
#include "publish/WholeTags.h"

namespace quillora::publish {

namespace {

void repair(const std::filesystem::path& path, const ModernInputs& inputs)
{
    FileHandle file(path, FileHandle::Mode::Updating);
    // Overwrites in place first, while the atoms found stay where they are;
    // then the edits that move the file's tail.
    const MovieNodes movie = readMovieNodes(file);
    const TrackNodes* links = inputs.podcast ? movie.track(kLinkTrackID) : nullptr;
    if (links) {
        timeLinkSamples(file, *links, inputs.slides);
        styleLinkText(file, *links, inputs.textColor, inputs.backgroundColor);
    }
    // After the link times: the text tracks' media durations are their sums.
    writeHonestHeaders(file, movie, inputs.exportTime);
    if (inputs.podcast) {
        QTDataEditor editor;
        writeWholeTags(editor, file, inputs.tags);
        editor.addChapterList(inputs.slides, file);
    } else if (inputs.silentStartSeconds > 0) {
        restoreSilentStart(file, inputs.silentStartSeconds);
    }
    file.closeFile();
}

}  // namespace

void applyModernRepairs(const std::filesystem::path& path, const ModernInputs& inputs)
{
    try {
        repair(path, inputs);
    } catch (const std::exception& failure) {
        throw PublishError(fmt::format("--modern could not repair {}: {}", path.string(), failure.what()));
    }
    logf("Modern output: {} repaired", path.string());
}

}  // namespace quillora::publish
