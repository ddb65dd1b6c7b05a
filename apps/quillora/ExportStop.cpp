#include "ExportStop.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include "ExitStatus.h"
#include "foundation/WriteFailures.h"
#include "support/TaskWrapper.h"

namespace quillora::app {

namespace {

constexpr std::array kStopSignals = {SIGHUP, SIGINT, SIGPIPE, SIGTERM};
constexpr unsigned char kQuit = 0;

// The handlers' only work is to write the signal's number here; the
// watcher thread reads it and does the rest. One export a process.
int signalPipe[2] = {-1, -1};
std::array<struct sigaction, kStopSignals.size()> previousActions;

extern "C" void onStopSignal(int signal)
{
    const int saved = errno;
    const auto number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &number, 1);
    errno = saved;
}

// A closed pipe also signals when a tool's reader has gone; only our own
// output's reader going stops the export.
bool outputReaderGone()
{
    for (int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        pollfd probe{fd, 0, 0};
        if (::poll(&probe, 1, 0) == 1 && (probe.revents & POLLERR)) return true;
    }
    return false;
}

struct StopSignal {
    const char* what;
    int exitStatus;
};

StopSignal describe(int signal)
{
    switch (signal) {
    case SIGHUP:
        return {"the terminal was closed (SIGHUP)", kExitHangUp};
    case SIGINT:
        return {"interrupted (SIGINT)", kExitInterrupted};
    case SIGPIPE:
        return {"the reader of the output has gone (SIGPIPE)", kExitPipeClosed};
    default:
        return {"asked to stop (SIGTERM)", kExitTerminated};
    }
}

// Renamed out of the way first, with a file standing in its place until the
// process ends, so that the export's worker, which may still be writing, can
// neither add to the folder while it is removed nor make it anew. Returns
// what is left, if anything.
std::optional<std::filesystem::path> removeFolder(const std::filesystem::path& folder, bool& standIn)
{
    std::filesystem::path doomed = folder;
    doomed += ".removing";
    if (::rename(folder.c_str(), doomed.c_str()) == 0) {
        const int fd = ::open(folder.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        standIn = fd >= 0;
        if (standIn) ::close(fd);
    } else {
        doomed = folder;
    }
    std::error_code error;
    for (int attempt = 0; attempt < 3 && std::filesystem::exists(doomed, error); ++attempt) {
        std::filesystem::remove_all(doomed, error);
    }
    if (std::filesystem::exists(doomed, error)) return doomed;
    return std::nullopt;
}

void writeToStandardError(const std::string& text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += static_cast<std::size_t>(n);
    }
}

}  // namespace

ExportStop::ExportStop(bool keepScratch) : keepScratch_(keepScratch)
{
    setWriteFailureSink([this](const std::filesystem::path& path, int error) { stop(0, std::pair{path, error}); });
    // Without the pipe the signals keep their default actions.
    if (::pipe2(signalPipe, O_CLOEXEC) != 0) return;
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kStopSignals.size(); ++i) {
        sigaction(kStopSignals[i], nullptr, &previousActions[i]);
        // A signal the caller had us ignore (nohup, a background job) stays ignored.
        if (previousActions[i].sa_handler != SIG_IGN) sigaction(kStopSignals[i], &action, nullptr);
    }
    watcher_ = std::thread([this] { watchSignals(); });
}

ExportStop::~ExportStop()
{
    setWriteFailureSink({});
    if (!watcher_.joinable()) return;
    for (std::size_t i = 0; i < kStopSignals.size(); ++i) sigaction(kStopSignals[i], &previousActions[i], nullptr);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &kQuit, 1);
    watcher_.join();
    ::close(signalPipe[0]);
    ::close(signalPipe[1]);
    signalPipe[0] = signalPipe[1] = -1;
}

void ExportStop::setScratch(const std::filesystem::path& folder)
{
    std::lock_guard lock(mutex_);
    scratch_ = folder.filename().empty() ? folder.parent_path() : folder;
}

void ExportStop::setDestination(const std::filesystem::path& destination)
{
    std::lock_guard lock(mutex_);
    destination_ = destination;
}

void ExportStop::exportEnded()
{
    {
        std::lock_guard lock(mutex_);
        ended_ = true;
    }
    setWriteFailureSink({});
}

void ExportStop::watchSignals()
{
    for (;;) {
        unsigned char signal = kQuit;
        const ssize_t n = ::read(signalPipe[0], &signal, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0 || signal == kQuit) return;
        if (signal == SIGPIPE && !outputReaderGone()) continue;
        stop(signal, std::nullopt);
    }
}

void ExportStop::stop(int signal, const std::optional<std::pair<std::filesystem::path, int>>& failedWrite)
{
    // Held until the process ends, so that a second stop (the worker's next
    // failed write, another signal) waits and says nothing.
    std::unique_lock lock(mutex_);
    if (ended_) return;
    terminateRunningTools();
    bool standIn = false;
    std::string message = isatty(STDOUT_FILENO) ? "\n" : "";
    if (failedWrite) {
        message += fmt::format("quillora: writing {} failed: {}; the export was stopped.\n",
                               failedWrite->first.string(), std::strerror(failedWrite->second));
    } else {
        message += fmt::format("quillora: {}; the export was stopped.\n", describe(signal).what);
    }
    message += destination_ ? fmt::format("The destination {} was left as it was.\n", destination_->string())
                            : std::string("Nothing was exported.\n");
    if (scratch_) {
        // After a failed write the scratch folder is kept, as after any failed export.
        std::optional<std::filesystem::path> left = *scratch_;
        if (!failedWrite && !keepScratch_) left = removeFolder(*scratch_, standIn);
        std::error_code error;
        if (!left) {
            message += fmt::format("The scratch folder {} was removed.\n", scratch_->string());
        } else if (std::filesystem::exists(*left, error)) {
            const bool log = std::filesystem::exists(*left / "quillora.log", error);
            message += fmt::format("The scratch folder {} was kept{}.\n", left->string(),
                                   log ? "; the log is quillora.log there" : "");
        }
    }
    // What the export printed so far, unless another thread is printing.
    if (::ftrylockfile(stdout) == 0) {
        std::fflush(stdout);
        ::funlockfile(stdout);
    }
    writeToStandardError(message);
    if (standIn) ::unlink(scratch_->c_str());
    ::_exit(failedWrite ? kExitFailed : describe(signal).exitStatus);
}

}  // namespace quillora::app
