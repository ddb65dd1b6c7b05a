#include "publish/PicturelessChapters.h"

#include <fmt/format.h>

#include "QTDataEditor.h"
#include "QuickTimePlugin/TextTrackAttributes.h"
#include "foundation/FileHandle.h"
#include "foundation/UserDefaults.h"
#include "layout/PodcastTrackIDs.h"
#include "publish/PublishError.h"
#include "toolbox/Movie.h"

namespace quillora::publish {

void addChaptersWithoutPictures(const std::filesystem::path& podcast, const Value& records,
                                const std::filesystem::path& recording, const std::filesystem::path& scratch)
{
    auto movie = toolbox::Movie::movieWithFile(recording);
    const auto duration = movie ? static_cast<std::int64_t>(movie->duration()) : 0;
    Value params = Value::dictionary({{"duration", duration}, {"trackID", std::int64_t{kChapterTrackID}}});
    try {
        FileHandle file(podcast, FileHandle::Mode::Updating);
        QTDataEditor editor;
        editor.setTempProcessingFolderPath(scratch.string());
        if (!editor.addChapters(records, file, podcast.string(), params)) {
            throw PublishError(
                fmt::format("The chapters could not be added to {}; its log says why", podcast.string()));
        }
        const UserDefaults defaults = UserDefaults::standardUserDefaults();
        if (defaults.boolForKey("supportForURL")) {
            params.asDictionary()->set("trackID", std::int64_t{kLinkTrackID});
            // As in the plug-in: a link track that fails leaves the chapters as they are.
            editor.addTextTrackURLs(records, textTrackAttributes(defaults), file, podcast.string(), params);
        }
        // Replaces the empty list the plug-in wrote for a lecture without slides.
        if (defaults.boolForKey("addChapterList")) editor.addChapterList(records, file);
        file.closeFile();
    } catch (const FileError& failure) {
        throw PublishError(fmt::format("The chapters could not be added to {}: {}", podcast.string(), failure.what()));
    }
}

}  // namespace quillora::publish
