// The external process runner with small shell scripts: what the controller
// hears, in which order, and that nothing is left behind (no zombie, no
// open descriptor), whether the tool ends, is released while running, or
// cannot be started at all.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>

#include "foundation/RunLoop.h"
#include "support/TaskWrapper.h"

namespace quillora {
namespace {

struct Recorder : TaskWrapperController {
    std::vector<std::string> events;
    void appendOutput(const std::string& output) override
    {
        // Pieces are passed as read; join neighbours so the check does not
        // depend on how the pipe split them.
        if (!events.empty() && events.back().starts_with("output:")) {
            events.back() += output;
        } else {
            events.push_back("output:" + output);
        }
    }
    void processStarted() override { events.push_back("started"); }
    void processFinished() override { events.push_back("finished"); }
};

std::size_t openDescriptors()
{
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TEST(TaskWrapper, ControllerHearsStartOutputAndOneFinishAndNothingIsLeftBehind)
{
    struct Case {
        const char* name;
        std::vector<std::string> arguments;
        bool waitForEnd;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases = {
        {"both streams",
         {"/bin/sh", "-c", "echo out; echo err >&2"},
         true,
         {"started", "output:out\nerr\n", "finished"}},
        {"standard error only",
         {"/bin/sh", "-c", "printf 'only err' >&2; exit 3"},
         true,
         {"started", "output:only err", "finished"}},
        {"silent", {"/bin/sh", "-c", "exit 0"}, true, {"started", "finished"}},
        {"missing program", {"/nonexistent/ChapterTool", "-x", "a.xml"}, true, {"started", "finished"}},
        {"released while running", {"/bin/sh", "-c", "sleep 30; echo never"}, false, {"started", "finished"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::size_t descriptorsBefore = openDescriptors();
        Recorder recorder;
        {
            TaskWrapper wrapper(&recorder, c.arguments);
            wrapper.startProcess();
            if (c.waitForEnd) {
                wrapper.waitUntilExit();
                const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
                while (!wrapper.finished() && std::chrono::steady_clock::now() < deadline) {
                    RunLoop::current()->runOnce(std::chrono::milliseconds(10));
                }
                EXPECT_EQ(recorder.events, c.expected);
            }
        }
        // Released after the end: nothing more is sent, now or later.
        RunLoop::current()->runPending();
        EXPECT_EQ(recorder.events, c.expected);
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind";
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
    }
}

TEST(TaskWrapper, ExitStatusIsKeptAndOutputArrivesOnlyWhenTheLoopRuns)
{
    Recorder recorder;
    TaskWrapper wrapper(&recorder, {"/bin/sh", "-c", "echo status: failed; exit 7"});
    ASSERT_TRUE(wrapper.startProcess());
    wrapper.waitUntilExit();
    EXPECT_EQ(wrapper.terminationStatus(), 7);
    EXPECT_EQ(recorder.events, std::vector<std::string>{"started"});
}

}  // namespace
}  // namespace quillora
