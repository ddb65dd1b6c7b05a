#include "ExportDeviceCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <ostream>

#include "ExitStatus.h"
#include "ExportInputs.h"
#include "InputChecks.h"
#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/Components.h"
#include "toolbox/Movie.h"
#include "toolbox/MovieExporter.h"
#include "toolbox/Toolbox.h"

namespace quillora::app {

namespace {

// Refuses what would make the export fail or harm the user's files;
// answers the absolute output.
std::filesystem::path checkOutput(const std::filesystem::path& movie, const std::filesystem::path& output)
{
    if (lowercaseExtension(output) != ".m4v") {
        throw InputError(fmt::format("The output {} does not end in .m4v", output.string()));
    }
    return checkOutputPlace(output, {movie});
}

// Why the toolbox's export failed, for the statuses it can end with here,
// and what to do; the plug-in's interface keeps only the status's low byte.
std::string deviceExportFailure(int status, const std::filesystem::path& movie, const std::filesystem::path& output)
{
    const auto is = [status](toolbox::OSErr code) { return static_cast<std::int8_t>(code & 0xFF) == status; };
    if (is(toolbox::ioErr)) {
        return fmt::format("the movie could not be written in {}, or the sound of {} could not be read; check that "
                           "the disk has room and that the movie is whole",
                           output.parent_path().string(), movie.string());
    }
    if (is(toolbox::badComponentType)) return "the device exporter is missing from this build of quillora";
    if (is(toolbox::invalidMedia) || is(toolbox::invalidTrack) || is(toolbox::invalidDuration)) {
        return fmt::format("the sound track of {} has no time scale or duration to export; export the recording "
                           "again from the program that made it",
                           movie.string());
    }
    return fmt::format("the toolbox ended with status low byte {}; the lines above say where", status);
}

}  // namespace

int runExportDeviceCommand(const std::filesystem::path& moviePath, const std::filesystem::path& output,
                           bool cleanAperture, bool verbose, std::ostream& out, std::ostream& err)
{
    std::filesystem::path destination;
    try {
        destination = checkOutput(moviePath, output);
    } catch (const InputError& refusal) {
        err << "quillora: " << refusal.what() << "\n";
        return kExitRefused;
    }
    std::string problem;
    auto movie = toolbox::Movie::movieWithFile(moviePath, &problem);
    if (!movie) {
        err << "quillora: cannot read " << moviePath.string() << ": " << problem << "\n";
        return kExitFailed;
    }
    const toolbox::Track* sound = movie->trackOfMediaType(fourCC("soun"));
    if (!sound) {
        err << "quillora: " << moviePath.string() << " has no sound track to export\n";
        return kExitRefused;
    }
    if (const auto problems = sound->media->problems(); !problems.empty()) {
        err << fmt::format("quillora: the sound track of {} is damaged ({}); nothing was exported. Export the "
                           "recording again from the program that made it\n",
                           moviePath.string(), fmt::join(problems, "; "));
        return kExitRefused;
    }
    // Beside the output, so that the final rename stays on one file system.
    auto staged = destination.parent_path() / fmt::format(".{}.{}.partial.m4v", destination.stem().string(), getpid());
    QTDataEditor editor;
    editor.setSourceMovie(movie.get());
    int status = 0;
    std::vector<std::string> logLines;
    {
        CapturedLog log;
        status = editor.exportAsiPodMovieToPath(staged.string(), cleanAperture);
        logLines = log.lines();
    }
    std::error_code error;
    const bool exported = status == 0 && std::filesystem::is_regular_file(staged, error);
    // The toolbox's statuses are for when something went wrong, or when asked for.
    if (verbose || !exported) {
        for (const auto& line : logLines) err << line << "\n";
    }
    if (exported) {
        std::filesystem::rename(staged, destination, error);
        if (!error) {
            out << "Wrote " << destination.string() << "\n";
            return kExitSuccess;
        }
        err << "quillora: cannot rename onto " << destination.string() << ": " << error.message() << "\n";
    } else {
        err << fmt::format("quillora: the device export failed: {}. {} is left as it was\n",
                           deviceExportFailure(status, moviePath, destination), destination.string());
    }
    std::filesystem::remove(staged, error);
    return kExitFailed;
}

}  // namespace quillora::app
