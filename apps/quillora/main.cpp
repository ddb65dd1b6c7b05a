// quillora: the command-line host of the lecture-publishing plug-in.
#include <CLI/CLI.hpp>

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "AtomsCommand.h"
#include "ChapterXmlCommand.h"
#include "ComponentsCommand.h"
#include "CourseCommand.h"
#include "ExportCommand.h"
#include "ExportDeviceCommand.h"
#include "InspectCommand.h"
#include "PluginsCommand.h"

namespace {

// The slides are drawn on every core. Left to itself, glibc gives each drawing
// thread heaps of its own that keep what the thread freed, so the export's
// memory would grow with the threads the picture library starts rather than
// with the work; one heap a core keeps it flat at no cost in time. A
// MALLOC_ARENA_MAX in the environment still has the last word.
void oneHeapPerCore()
{
    if (std::getenv("MALLOC_ARENA_MAX")) return;
    mallopt(M_ARENA_MAX, static_cast<int>(std::max(1U, std::thread::hardware_concurrency())));
}

}  // namespace

int main(int argc, char** argv)
{
    oneHeapPerCore();
    CLI::App app{"quillora: publish a recorded lecture as an enhanced podcast"};
    app.require_subcommand(1);
    app.footer("Exit status: 0 success; 1 the export failed (the destination is left as it was) or a file could not be "
               "read; 2 bad usage or an input refused before any work (inspect: parts of the file are damaged); "
               "export stopped by a signal: 130 interrupted, 143 terminated, 141 output closed, 129 terminal closed.");

    std::string atomsFile;
    auto* atoms = app.add_subcommand("atoms", "Print the atom tree of a movie file (type, offset, size, nesting)");
    atoms->add_option("FILE", atomsFile, "The movie or MPEG-4 file to read")->required();

    std::string inspectFile;
    auto* inspect =
        app.add_subcommand("inspect", "Show a published file's tracks, chapters, pictures, links, notes and tags");
    inspect->add_option("FILE", inspectFile, "The movie or MPEG-4 file to read")->required();
    quillora::app::ExportOptions exportOptions;
    auto* exportCommand = app.add_subcommand(
        "export", "Publish a recording with its slide transitions and tags through the QuickTime plug-in");
    exportCommand
        ->add_option("--recording", exportOptions.recording,
                     "The recording: an MPEG-4 or QuickTime file with sound, or MP3, WAV, AIFF, FLAC, Ogg...")
        ->required();
    auto* transitionsOption = exportCommand->add_option(
        "--transitions", exportOptions.transitions,
        "Slide transitions: a JSON array or property list of transition records (\"imagePath\" may name a PDF "
        "page: deck.pdf#page=3)");
    exportCommand
        ->add_option("--chapters", exportOptions.chapters,
                     "Chapter marks instead of --transitions: Audacity labels, a timestamp list (\"5:20 Title\"), "
                     "WebVTT, Podcasting 2.0 JSON chapters (with \"img\" and \"url\"), an FFmpeg metadata file or an "
                     "MPEG-4 file with chapters; told from the content")
        ->excludes(transitionsOption);
    auto* slidesOption = exportCommand->add_option(
        "--slides", exportOptions.slides,
        "The slides: a PDF (page N is slide N) or a folder of pictures (in natural name order: slide2 before "
        "slide10); slide N goes with chapter N. Without slides, chapters are published without pictures");
    exportCommand
        ->add_option("--slides-for", exportOptions.slidesFor,
                     "The slide of each chapter in turn, when the counts differ: numbers and ranges, \"1-3,5,7-\" "
                     "(chapters 1-3 take slides 1-3, chapter 4 slide 5, the rest slides 7 to the last); a slide "
                     "may be named again")
        ->needs(slidesOption);
    exportCommand->add_option("--screenshots", exportOptions.screenshots, "Screen-shot transitions, as --transitions");
    exportCommand->add_option("--tags", exportOptions.tags, "Tags: a JSON object or property list of text values");
    exportCommand->add_option("--defaults", exportOptions.defaults,
                              "Preferences (supportForURL, textTrackFontFace, textTrackFontSize, textTrackFontColor, "
                              "textTrackBackgroundColor, videoImageQuality, imageSizeRation, addChapterList)");
    exportCommand->add_option("--format", exportOptions.format,
                              "Output form: .m4a, .m4b or .m4v (enhanced podcast) or .mov; default: the output's "
                              "extension");
    exportCommand->add_option("--template", exportOptions.templateFile,
                              "A .quilloraTemplate file giving the format and tags");
    exportCommand->add_option("--scratch", exportOptions.scratch,
                              "Scratch folder for the working copy (default: a new temporary folder)");
    exportCommand->add_option("--output", exportOptions.output,
                              "Destination file; without it you are asked for one, as in a save panel");
    exportCommand->add_flag("--verbose", exportOptions.verbose,
                            "Show every log line of the export (always kept in quillora.log in the scratch folder)");
    exportCommand->add_flag("--keep-scratch", exportOptions.keepScratch,
                            "Keep the scratch folder that was made for the export (a --scratch folder is always kept)");
    exportCommand->add_option("--plugins", exportOptions.pluginFolders, "Folders to look for plug-in modules in");
    exportCommand->add_option("--audio-track", exportOptions.audioTrack,
                              "The ID of the sound track to publish (quillora inspect lists them); default: the first "
                              "enabled sound track");
    exportCommand
        ->add_option("--bitrate", exportOptions.bitrate,
                     "Bits per second of sound that is encoded to AAC (default 64000 mono, 96000 stereo); AAC and "
                     "ALAC recordings are copied as they are")
        ->check(CLI::Range(8000, 512000));
    exportCommand
        ->add_option("--also", exportOptions.also,
                     "Companion files beside the output: chapters-json (Podcasting 2.0 chapters and the slide "
                     "pictures), webvtt, web (a page that plays the lecture with its slides), mp3 (with ID3 chapters)")
        ->delimiter(',')
        ->check(CLI::IsMember({"chapters-json", "webvtt", "web", "mp3"}));
    exportCommand->add_option("--base-url", exportOptions.baseUrl,
                              "The URL of the folder the files are published in, for the chapters file's pictures");
    exportCommand->add_option("--cover", exportOptions.cover,
                              "The episode artwork (any picture; made a square JPEG); default: the tag \"cover\", "
                              "else the recording's own");
    exportCommand
        ->add_option("--loudness", exportOptions.loudness,
                     "Encode the sound at this integrated loudness in LUFS (EBU R 128, e.g. -16), peaks under -1 dBTP")
        ->check(CLI::Range(-70.0, -5.0));
    exportCommand
        ->add_option("--pipeline", exportOptions.pipeline,
                     "in-place (default): the working copy edited atom by atom; tools: ChapterTool and AtomicParsley "
                     "(needs --output)")
        ->check(CLI::IsMember({"in-place", "tools"}));
    exportCommand->add_flag("--modern", exportOptions.modern,
                            "Lift the plug-in's limits for listeners: whole tags, links timed right, colours as "
                            "given, screen shots as chapters, a chapter list, honest headers (see the README)");

    // Without --output the path is asked for on standard input, which needs someone there to answer.
    exportCommand->callback([&exportOptions] {
        if (!exportOptions.output && !isatty(STDIN_FILENO)) {
            throw CLI::ValidationError("--output", "needed when standard input is not a terminal, since there is "
                                                   "no one to ask where to save the export");
        }
    });

    quillora::app::ChapterXmlOptions chapterXmlOptions;
    auto* chapterXml =
        app.add_subcommand("chapter-xml", "Print the chapter document of a lecture (ChapterTool's input)");
    chapterXml->add_option("--recording", chapterXmlOptions.recording, "The recording")->required();
    chapterXml->add_option("--transitions", chapterXmlOptions.transitions, "Slide transitions, as for export")
        ->required();
    chapterXml->add_option("--defaults", chapterXmlOptions.defaults, "Preferences (supportForURL adds the links)");

    std::vector<std::filesystem::path> pluginFolders;
    auto* plugins = app.add_subcommand("plugins", "List the plug-ins found, with title and description");
    plugins->add_option("--plugins", pluginFolders, "Folders to look for plug-in modules in");

    auto* components = app.add_subcommand("components", "List the movie exporters (type, subtype, manufacturer, name)");

    std::filesystem::path deviceMovie;
    std::filesystem::path deviceOutput;
    bool cleanAperture = false;
    bool deviceVerbose = false;
    auto* exportDevice = app.add_subcommand(
        "export-device", "Export a movie's sound track as a movie for a handheld player (MPEG-4, brand M4V)");
    exportDevice->add_option("MOVIE", deviceMovie, "The movie to export (a .mov export, or a recording)")->required();
    exportDevice->add_option("OUTPUT", deviceOutput, "The file to write, ending in .m4v (replaced only on success)")
        ->required();
    exportDevice->add_flag("--clean-aperture", cleanAperture,
                           "Show the pictures at their clean aperture during the export (the mode is restored)");
    exportDevice->add_flag("--verbose", deviceVerbose, "Show the export's log lines (shown anyway when it fails)");

    quillora::app::CourseOptions courseOptions;
    auto* course = app.add_subcommand("course", "Publish a semester of lectures as one podcast feed");
    course->require_subcommand(1);
    auto addCourseCommand = [&](const char* name, const char* description) {
        auto* command = course->add_subcommand(name, description);
        command->add_option("MANIFEST", courseOptions.manifest, "The course manifest (JSON or property list)")
            ->required();
        command->add_option("--output", courseOptions.output, "The folder the course is published in")->required();
        return command;
    };
    auto* coursePublish =
        addCourseCommand("publish", "Export every lecture that is new or changed, then write OUTPUT/feed.xml");
    coursePublish->add_option("--jobs", courseOptions.jobs, "Lectures exported at once (default: one per two cores)")
        ->check(CLI::Range(1, 256));
    auto* courseCommands = addCourseCommand(
        "commands", "Print the export command of each lecture that needs one, for other machines to run");
    auto* courseFeed = addCourseCommand("feed", "Publish what the printed commands made and write OUTPUT/feed.xml");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& failure) {
        // Usage errors have one status, whatever CLI11 numbers them.
        const CLI::App* command = &app;
        for (auto* sub : app.get_subcommands()) command = sub;
        std::cerr << "quillora: " << failure.what() << "\n"
                  << "Usage: " << (command == &app ? "quillora" : "quillora " + command->get_name())
                  << (command == &app ? " COMMAND [OPTIONS]" : " [OPTIONS]")
                  << "\nRun with --help for more information.\n";
        return quillora::app::kExitRefused;
    }

    if (atoms->parsed()) return quillora::app::runAtomsCommand(atomsFile, std::cout, std::cerr);
    if (inspect->parsed()) return quillora::app::runInspectCommand(inspectFile, std::cout, std::cerr);
    if (exportCommand->parsed()) return quillora::app::runExportCommand(exportOptions, std::cin, std::cout, std::cerr);
    if (chapterXml->parsed()) return quillora::app::runChapterXmlCommand(chapterXmlOptions, std::cout, std::cerr);
    if (components->parsed()) return quillora::app::runComponentsCommand(std::cout);
    if (exportDevice->parsed()) {
        return quillora::app::runExportDeviceCommand(deviceMovie, deviceOutput, cleanAperture, deviceVerbose, std::cout,
                                                     std::cerr);
    }
    if (coursePublish->parsed()) return quillora::app::runCoursePublish(courseOptions, std::cout, std::cerr);
    if (courseCommands->parsed()) return quillora::app::runCourseCommands(courseOptions, std::cout, std::cerr);
    if (courseFeed->parsed()) return quillora::app::runCourseFeed(courseOptions, std::cout, std::cerr);
    if (plugins->parsed()) return quillora::app::runPluginsCommand(pluginFolders, std::cout, std::cerr);
    return quillora::app::kExitRefused;
}
