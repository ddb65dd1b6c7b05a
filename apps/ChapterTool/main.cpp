// ChapterTool: makes an enhanced podcast from a recording and a chapter
// document, with the same track writers as the in-place export. It reports
// its progress as "status: ..." lines and a failure as "status: failed ...";
// on failure no output file is left behind.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>

#include "ChapterDocument.h"
#include "QTDataEditor.h"
#include "foundation/FileHandle.h"
#include "foundation/Log.h"
#include "layout/PodcastTrackIDs.h"
#include "toolbox/Movie.h"

namespace {

using namespace quillora;

void status(const std::string& text)
{
    std::cout << "status: " << text << std::endl;
}

bool hasLinks(const Value& transitions)
{
    for (const auto& record : *transitions.asArray()) {
        const Value* link = record.get("linkURL");
        if (link && !link->stringForKey("url").value_or("").empty()) return true;
    }
    return false;
}

void makePodcast(const std::filesystem::path& xml, const std::filesystem::path& recordingPath,
                 const std::filesystem::path& output)
{
    std::string error;
    auto recording = toolbox::Movie::movieWithFile(recordingPath, &error);
    if (!recording)
        throw std::runtime_error(fmt::format("the recording {} cannot be read: {}", recordingPath.string(), error));
    status("reading chapters");
    const Value transitions = chaptertool::readChapterDocument(xml, recording->timeScale());
    for (const auto& record : *transitions.asArray()) {
        const std::string picture = *record.stringForKey("imagePath");
        if (!std::filesystem::is_regular_file(picture))
            throw std::runtime_error("the picture " + picture + " does not exist");
    }

    status("copying the recording");
    std::filesystem::copy_file(recordingPath, output, std::filesystem::copy_options::overwrite_existing);
    FileHandle file(output, FileHandle::Mode::Updating);
    QTDataEditor editor;
    Value parameters = Value::dictionary(
        {{"duration", static_cast<std::int64_t>(recording->duration())}, {"trackID", std::int64_t{kChapterTrackID}}});
    const bool any = !transitions.asArray()->empty();
    if (any) {
        status(fmt::format("adding {} chapters", transitions.asArray()->size()));
        if (!editor.addChapters(transitions, file, output.string(), parameters))
            throw std::runtime_error("the chapters could not be added");
        status("adding pictures");
        parameters.asDictionary()->set("trackID", std::int64_t{kPictureTrackID});
        if (!editor.addImages(transitions, file, output.string(), parameters))
            throw std::runtime_error("the pictures could not be added");
    }
    if (any && hasLinks(transitions)) {
        status("adding links");
        parameters.asDictionary()->set("trackID", std::int64_t{kLinkTrackID});
        if (!editor.addTextTrackURLs(transitions, Value::dictionary(), file, output.string(), parameters)) {
            throw std::runtime_error("the links could not be added");
        }
    }
    file.closeFile();
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"ChapterTool: an enhanced podcast from a recording and a chapter document"};
    std::filesystem::path xml, recording, output;
    bool verbose = false;
    app.add_option("-x", xml, "The chapter document (XML)")->required();
    app.add_option("-a", recording, "The recording (AAC audio in an MPEG-4 file)")->required();
    app.add_option("-o", output, "The enhanced podcast to write")->required();
    app.add_flag("-v", verbose, "Show the track writers' log lines");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& failure) {
        if (failure.get_exit_code() == 0) return app.exit(failure);
        std::cout << "status: failed " << failure.what() << std::endl;
        return 2;
    }

    if (!verbose) setLogSink([](std::string_view) {});
    // Written under a temporary name, so a failure never leaves half a file.
    const std::filesystem::path partial = output.string() + ".part";
    try {
        makePodcast(xml, recording, partial);
        std::filesystem::rename(partial, output);
    } catch (const std::exception& failure) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        std::cout << "status: failed " << failure.what() << std::endl;
        return 1;
    }
    status("done");
    return 0;
}
