// quillora: the command-line host of the lecture-publishing plug-in.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

#include "AtomsCommand.h"
#include "InspectCommand.h"

int main(int argc, char** argv)
{
    CLI::App app{"quillora: publish a recorded lecture as an enhanced podcast"};
    app.require_subcommand(1);

    std::string atomsFile;
    auto* atoms = app.add_subcommand("atoms", "Print the atom tree of a movie file (type, offset, size, nesting)");
    atoms->add_option("FILE", atomsFile, "The movie or MPEG-4 file to read")->required();

    std::string inspectFile;
    auto* inspect = app.add_subcommand("inspect", "Show a published file's tracks, chapters, pictures, links, notes and tags");
    inspect->add_option("FILE", inspectFile, "The movie or MPEG-4 file to read")->required();

    CLI11_PARSE(app, argc, argv);

    if (atoms->parsed()) return quillora::app::runAtomsCommand(atomsFile, std::cout, std::cerr);
    if (inspect->parsed()) return quillora::app::runInspectCommand(inspectFile, std::cout, std::cerr);
    return 1;
}
