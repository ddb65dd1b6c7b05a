#include "InspectCommand.h"

#include <fmt/format.h>

#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "publish/CompanionSummary.h"
#include "toolbox/MovieContents.h"

namespace quillora::app {

namespace {

void printTimedTexts(std::ostream& out, const char* heading, const toolbox::TextTrackContents& track, bool withURLs)
{
    if (track.trackID == 0) {
        out << fmt::format("\n{}: none\n", heading);
        return;
    }
    out << fmt::format("\n{}: {} in track {}\n", heading, track.samples.size(), track.trackID);
    out << fmt::format("  {:>9}  {:>9}  {}{}\n", "start", "duration", "text", withURLs ? "  ->  url" : "");
    for (const auto& sample : track.samples) {
        out << fmt::format("  {:>9.3f}  {:>9.3f}  {}", sample.start, sample.duration, sample.text);
        if (withURLs) out << "  ->  " << (sample.url.empty() ? "(no link)" : sample.url);
        out << "\n";
    }
}

void printContents(std::ostream& out, const toolbox::MovieContents& contents)
{
    out << fmt::format("Duration: {:.3f} s (time scale {})\n", contents.seconds, contents.timeScale);

    out << fmt::format("\nTracks ({})\n", contents.tracks.size());
    out << fmt::format("  {:>5}  {:<7}  {:>8}  {:>9}\n", "track", "handler", "samples", "duration");
    for (const auto& track : contents.tracks) {
        out << fmt::format("  {:>5}  {:<7}  {:>8}  {:>9.3f}\n", track.trackID, stringFromFourCC(track.handlerType),
                           track.sampleCount, track.seconds);
    }

    printTimedTexts(out, "Chapters", contents.chapters, false);

    if (contents.pictures.empty()) out << "\nPictures: none\n";
    for (const auto& pictures : contents.pictures) {
        out << fmt::format("\nPictures (track {}): {} of format '{}', {}x{}\n", pictures.trackID, pictures.count,
                           stringFromFourCC(pictures.format), pictures.width, pictures.height);
    }

    printTimedTexts(out, "Links", contents.links, true);
    printTimedTexts(out, "Notes", contents.notes, false);

    if (contents.tags.empty()) out << "\nTags: none\n";
    if (!contents.tags.empty()) out << fmt::format("\nTags ({})\n", contents.tags.size());
    for (const auto& tag : contents.tags) {
        out << fmt::format("  {}  {}\n", tag.key.empty() ? stringFromFourCC(tag.type) : tag.key, tag.value);
    }
}

// What the other apps will find beside the file.
void printCompanions(std::ostream& out, const std::vector<publish::CompanionSummary>& companions)
{
    if (companions.empty()) return;
    out << fmt::format("\nBeside it ({})\n", companions.size());
    for (const auto& companion : companions) {
        const std::string name = companion.file.filename().string();
        if (companion.problem) {
            out << fmt::format("  {}  cannot be read: {}\n", name, *companion.problem);
        } else if (companion.file.extension() == ".html") {
            out << fmt::format("  {}  a web page of the lecture\n", name);
        } else {
            out << fmt::format("  {}  {} chapters, {} pictures, {} links\n", name, companion.chapters,
                               companion.pictures, companion.links);
        }
    }
}

}  // namespace

int runInspectCommand(const std::filesystem::path& path, std::ostream& out, std::ostream& err)
{
    toolbox::MovieContents contents;
    try {
        contents = toolbox::readMovieContents(path);
    } catch (const FileError& error) {
        err << "quillora: cannot read " << path.string() << ": " << error.code().message() << "\n";
        return 1;
    } catch (const toolbox::NotAMovie& error) {
        err << "quillora: " << path.string() << " is not a movie file (" << error.what() << ")\n";
        return 1;
    }
    printContents(out, contents);
    printCompanions(out, publish::summarizeCompanions(path));
    for (const auto& problem : contents.problems) err << "quillora: warning: " << problem << "\n";
    return contents.problems.empty() ? 0 : 2;
}

}  // namespace quillora::app
