// Ends an export that cannot go on, whichever thread learns of it: a signal
// (Ctrl-C, a termination request, a closed terminal, or a write to standard
// output or error whose reader has gone) or the first write that fails (a
// full disk). The plug-in's worker cannot be cancelled, so the process ends
// at once, after saying what happened and what is left where. The
// destination is never touched by a stop: only a finished export is moved
// onto it, and once the export has ended a signal no longer stops anything.
#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>

namespace quillora::app {

class ExportStop {
public:
    // Installs the signal handlers (a signal ignored when the program started
    // stays ignored) and listens for failed writes. keepScratch: a stop by a
    // signal leaves the scratch folder (otherwise it is removed).
    explicit ExportStop(bool keepScratch);
    // Puts the signals' earlier actions back.
    ~ExportStop();
    ExportStop(const ExportStop&) = delete;
    ExportStop& operator=(const ExportStop&) = delete;

    // The export's own scratch folder, once it has been made.
    void setScratch(const std::filesystem::path& folder);
    // Where the result is to go, once it is known.
    void setDestination(const std::filesystem::path& destination);
    // The export's work is over (whatever its outcome): from now on nothing
    // stops it, so the result is put in place and the scratch folder dealt
    // with as after any export.
    void exportEnded();

private:
    void watchSignals();
    // Says what happened and what is left where, then ends the process;
    // returns only once the export has ended.
    void stop(int signal, const std::optional<std::pair<std::filesystem::path, int>>& failedWrite);

    const bool keepScratch_;
    std::mutex mutex_;
    bool ended_ = false;
    std::optional<std::filesystem::path> scratch_;
    std::optional<std::filesystem::path> destination_;
    std::thread watcher_;
};

}  // namespace quillora::app
