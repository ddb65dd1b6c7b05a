// Runs one command-line tool and hands what it writes, standard output and
// standard error interleaved as one stream, to a controller piece by piece,
// telling it when the tool starts and when it is finished.
//
// The pieces arrive on the run loop of the thread that called startProcess,
// so that thread must run its loop; the wrapper is used and released on that
// thread. A background reader drains the pipe as the tool writes, so a tool
// never blocks on a full pipe while its starter waits for it to exit.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/Bytes.h"

namespace quillora {

class TaskWrapperController {
public:
    virtual ~TaskWrapperController() = default;
    // A piece of the tool's output, as read, decoded as UTF-8.
    virtual void appendOutput(const std::string& output) = 0;
    // Sent before the tool is launched.
    virtual void processStarted() = 0;
    // Sent once, after the last output.
    virtual void processFinished() = 0;
};

class TaskWrapper {
public:
    // arguments[0] is the tool's path; the rest are its arguments in order.
    // The controller is not owned.
    TaskWrapper(TaskWrapperController* controller, std::vector<std::string> arguments);
    // Stops the process and reaps it, so no zombie is left behind.
    ~TaskWrapper();
    TaskWrapper(const TaskWrapper&) = delete;
    TaskWrapper& operator=(const TaskWrapper&) = delete;

    // Launches the tool. A tool that cannot be started is logged and the
    // controller gets processFinished at once; the result is then false.
    bool startProcess();
    // Clears the controller (later calls reach nobody), terminates the tool,
    // hands over what output is already there, then sends processFinished.
    void stopProcess();
    // Blocks until the tool has exited; returns at once when none was started.
    void waitUntilExit();

    // The tool's exit status once it has been reaped (128 + signal when a
    // signal ended it).
    std::optional<int> terminationStatus() const { return terminationStatus_; }
    // True once processFinished has been sent (or would have been, had there
    // been a controller).
    bool finished() const { return finished_; }

private:
    struct Channel;

    void getData(const Bytes& data);
    bool reap(int options);
    void reapWithinGrace();

    TaskWrapperController* controller_;
    std::vector<std::string> arguments_;
    pid_t pid_ = -1;
    bool reaped_ = true;
    bool finished_ = false;
    std::optional<int> terminationStatus_;
    std::shared_ptr<Channel> channel_;
    std::thread reader_;
};

// Asks every tool still running, and what it started, to end: for a program
// about to exit at once (a signal), which leaves no wrapper to do it.
void terminateRunningTools();

}  // namespace quillora
