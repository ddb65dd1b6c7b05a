#include "RecordingPreparation.h"

#include "ExportInputs.h"
#include "ProgressDisplay.h"

namespace quillora::app {

std::filesystem::path prepareRecordingInScratch(const std::filesystem::path& recording,
                                                const publish::RecordingOptions& options,
                                                const std::filesystem::path& scratch, std::ostream& out, bool verbose)
{
    ProgressDisplay progress(out, isTerminal(out), verbose, scratch / "quillora.log");
    publish::PreparedRecording prepared;
    try {
        prepared = publish::prepareRecording(recording, scratch, options);
    } catch (const publish::RecordingRefused& refusal) {
        progress.endLine();
        throw InputError(refusal.what());
    }
    progress.endLine();
    for (const auto& note : prepared.notes) progress.print(note);
    return std::filesystem::absolute(prepared.path);
}

}  // namespace quillora::app
