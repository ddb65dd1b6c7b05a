// quillora: the command-line host of the lecture-publishing plug-in.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

#include "AtomsCommand.h"
#include "ExportCommand.h"
#include "InspectCommand.h"
#include "PluginsCommand.h"

int main(int argc, char** argv)
{
    CLI::App app{"quillora: publish a recorded lecture as an enhanced podcast"};
    app.require_subcommand(1);

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
    exportCommand->add_option("--recording", exportOptions.recording, "The recording (AAC audio in an MPEG-4 file)")
        ->required();
    exportCommand->add_option("--transitions", exportOptions.transitions,
                              "Slide transitions: a JSON array or property list of transition records");
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
    exportCommand->add_option("--plugins", exportOptions.pluginFolders, "Folders to look for plug-in modules in");

    std::vector<std::filesystem::path> pluginFolders;
    auto* plugins = app.add_subcommand("plugins", "List the plug-ins found, with title and description");
    plugins->add_option("--plugins", pluginFolders, "Folders to look for plug-in modules in");

    CLI11_PARSE(app, argc, argv);

    if (atoms->parsed()) return quillora::app::runAtomsCommand(atomsFile, std::cout, std::cerr);
    if (inspect->parsed()) return quillora::app::runInspectCommand(inspectFile, std::cout, std::cerr);
    if (exportCommand->parsed()) return quillora::app::runExportCommand(exportOptions, std::cin, std::cout, std::cerr);
    if (plugins->parsed()) return quillora::app::runPluginsCommand(pluginFolders, std::cout, std::cerr);
    return 1;
}
