#include "support/TaskWrapper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <mutex>
#include <set>
#include <utility>

#include "foundation/Log.h"
#include "foundation/RunLoop.h"

extern char** environ;

namespace quillora {

namespace {

constexpr std::size_t kReadSize = 64 * 1024;
// How long a released tool has to end after it was asked to, before it is killed.
constexpr int kGracePolls = 200;
constexpr auto kGracePollInterval = std::chrono::milliseconds(10);

void closeDescriptor(int& fd)
{
    if (fd >= 0) ::close(fd);
    fd = -1;
}

std::string text(const Bytes& data)
{
    return std::string(data.begin(), data.end());
}

// The process groups of the tools started and not yet reaped.
std::mutex runningMutex;
std::set<pid_t> runningGroups;

void markRunning(pid_t group, bool running)
{
    std::lock_guard lock(runningMutex);
    if (running) {
        runningGroups.insert(group);
    } else {
        runningGroups.erase(group);
    }
}

}  // namespace

// What the wrapper shares with its background reader: the pipe, the pieces
// read and not yet handed over (an empty piece marks the end of output), and
// the run loop the pieces are delivered on.
struct TaskWrapper::Channel {
    int readEnd = -1;
    int wakeRead = -1;
    int wakeWrite = -1;
    std::shared_ptr<RunLoop> loop;
    // Read and cleared on the loop's thread only.
    TaskWrapper* owner = nullptr;

    std::mutex mutex;
    std::deque<Bytes> pieces;

    static void deliver(const std::shared_ptr<Channel>& channel, Bytes piece)
    {
        {
            std::lock_guard lock(channel->mutex);
            channel->pieces.push_back(std::move(piece));
        }
        channel->loop->perform([channel] {
            if (!channel->owner) return;
            if (auto next = channel->take()) channel->owner->getData(*next);
        });
    }

    std::optional<Bytes> take()
    {
        std::lock_guard lock(mutex);
        if (pieces.empty()) return std::nullopt;
        Bytes piece = std::move(pieces.front());
        pieces.pop_front();
        return piece;
    }

    void closeDescriptors()
    {
        closeDescriptor(readEnd);
        closeDescriptor(wakeRead);
        closeDescriptor(wakeWrite);
    }
};

TaskWrapper::TaskWrapper(TaskWrapperController* controller, std::vector<std::string> arguments)
    : controller_(controller), arguments_(std::move(arguments))
{
}

TaskWrapper::~TaskWrapper()
{
    stopProcess();
    reapWithinGrace();
}

bool TaskWrapper::startProcess()
{
    if (controller_) controller_->processStarted();
    if (arguments_.empty() || arguments_[0].empty()) {
        logf("TaskWrapper: no tool to start");
        stopProcess();
        return false;
    }

    int output[2];
    int wake[2];
    if (::pipe2(output, O_CLOEXEC) != 0) {
        logf("TaskWrapper: could not start {}: {}", arguments_[0], std::strerror(errno));
        stopProcess();
        return false;
    }
    if (::pipe2(wake, O_CLOEXEC) != 0) {
        logf("TaskWrapper: could not start {}: {}", arguments_[0], std::strerror(errno));
        ::close(output[0]);
        ::close(output[1]);
        stopProcess();
        return false;
    }

    // One pipe for both streams; no terminal input, so a tool never waits on it.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
    // Its own process group, so that terminating it reaches what it started.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigset_t mask;
    sigemptyset(&mask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::vector<char*> argv;
    for (auto& argument : arguments_) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const int failure = ::posix_spawnp(&pid_, arguments_[0].c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(output[1]);

    if (failure != 0) {
        logf("TaskWrapper: could not start {}: {}", arguments_[0], std::strerror(failure));
        ::close(output[0]);
        ::close(wake[0]);
        ::close(wake[1]);
        pid_ = -1;
        stopProcess();
        return false;
    }
    reaped_ = false;
    markRunning(pid_, true);
    channel_ = std::make_shared<Channel>();
    channel_->readEnd = output[0];
    channel_->wakeRead = wake[0];
    channel_->wakeWrite = wake[1];
    channel_->loop = RunLoop::current();
    channel_->owner = this;
    reader_ = std::thread([channel = channel_] {
        // Reads as the tool writes. Once woken, takes only what is already in
        // the pipe and ends.
        Bytes buffer(kReadSize);
        pollfd sources[2] = {{channel->readEnd, POLLIN, 0}, {channel->wakeRead, POLLIN, 0}};
        bool draining = false;
        for (;;) {
            const int ready = ::poll(sources, draining ? 1 : 2, draining ? 0 : -1);
            if (ready < 0 && errno == EINTR) continue;
            if (ready < 0) return Channel::deliver(channel, Bytes());
            if (ready == 0) return;
            if (!draining && sources[1].revents != 0) {
                draining = true;
                continue;
            }
            const ssize_t count = ::read(channel->readEnd, buffer.data(), buffer.size());
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return Channel::deliver(channel, Bytes());
            Channel::deliver(channel, Bytes(buffer.begin(), buffer.begin() + count));
        }
    });
    return true;
}

void TaskWrapper::getData(const Bytes& data)
{
    if (data.empty()) {
        stopProcess();
        return;
    }
    if (controller_) controller_->appendOutput(text(data));
}

void TaskWrapper::stopProcess()
{
    TaskWrapperController* controller = std::exchange(controller_, nullptr);
    if (channel_) channel_->owner = nullptr;
    if (pid_ > 0 && !reaped_) ::kill(-pid_, SIGTERM);
    if (reader_.joinable()) {
        const char wake = 1;
        [[maybe_unused]] const ssize_t written = ::write(channel_->wakeWrite, &wake, 1);
        reader_.join();
    }
    if (channel_) {
        while (auto piece = channel_->take()) {
            if (piece->empty()) break;
            if (controller) controller->appendOutput(text(*piece));
        }
        channel_->closeDescriptors();
        channel_.reset();
    }
    if (!finished_) {
        finished_ = true;
        if (controller) controller->processFinished();
    }
}

void TaskWrapper::waitUntilExit()
{
    if (!reaped_) reap(0);
}

bool TaskWrapper::reap(int options)
{
    int status = 0;
    pid_t done;
    do {
        done = ::waitpid(pid_, &status, options);
    } while (done < 0 && errno == EINTR);
    if (done == 0) return false;
    reaped_ = true;
    markRunning(pid_, false);
    if (done == pid_) terminationStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return true;
}

void TaskWrapper::reapWithinGrace()
{
    for (int poll = 0; poll < kGracePolls && !reaped_; ++poll) {
        if (!reap(WNOHANG)) std::this_thread::sleep_for(kGracePollInterval);
    }
    if (reaped_) return;
    ::kill(-pid_, SIGKILL);
    reap(0);
}

void terminateRunningTools()
{
    std::lock_guard lock(runningMutex);
    for (const pid_t group : runningGroups) ::kill(-group, SIGTERM);
}

}  // namespace quillora
