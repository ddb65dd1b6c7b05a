// Prepares arbitrary bytes as a lecture's recording, as the host does before
// the plug-in runs, short of the FFmpeg encoder (sound that is not AAC or
// ALAC is only decided on here). Every input must end in a refusal or a
// plan; a sound track that is rewritten must be written, and what is written
// must be in the podcast's shape: prepared again, it is taken as it is.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "MemoryFile.h"
#include "foundation/Log.h"
#include "publish/RecordingPlan.h"
#include "publish/RecordingShape.h"
#include "toolbox/SoundMovie.h"

using namespace quillora;

namespace {

// The written recordings go to a folder of the run's own under TMPDIR
// (scripts/fuzz points it at a folder it removes).
std::filesystem::path scratchFolder;

void removeScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(scratchFolder, ignored);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setLogSink([](std::string_view) {});
    scratchFolder = std::filesystem::temp_directory_path() / ("quillora-preparation-" + std::to_string(getpid()));
    std::filesystem::create_directories(scratchFolder);
    std::atexit(removeScratchFolder);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string recording = fuzz::memoryFileWith(data, size);
    publish::RecordingPlan plan;
    try {
        plan = publish::planRecording(recording, {});
    } catch (const publish::RecordingRefused&) {
        return 0;
    }
    if (plan.treatment != publish::RecordingTreatment::rewritten) return 0;

    const auto prepared = scratchFolder / "recording.m4a";
    if (!toolbox::writeSoundMovie(*plan.sound, publish::kPodcastTimeScale, prepared)) std::abort();
    try {
        const auto again = publish::planRecording(prepared, {});
        if (again.treatment != publish::RecordingTreatment::asGiven || !again.notes.empty()) {
            const auto reason = again.movie ? publish::reasonToRewrite(prepared, *again.movie) : std::nullopt;
            std::fprintf(stderr, "the rewritten recording is not in shape: %s\n",
                         reason                ? reason->c_str()
                         : again.notes.empty() ? "its sound is encoded"
                                               : again.notes[0].c_str());
            std::abort();
        }
    } catch (const publish::RecordingRefused& refusal) {
        std::fprintf(stderr, "the rewritten recording is refused: %s\n", refusal.what());
        std::abort();
    }
    return 0;
}
