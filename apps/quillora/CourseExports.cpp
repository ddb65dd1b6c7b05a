#include "CourseExports.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ostream>

extern char** environ;

namespace quillora::app {

namespace {

struct Running {
    std::size_t index = 0;
    pid_t pid = -1;
    int output = -1;  // standard output and error, together
    std::string partialLine;
    std::string lastComplaint;  // the last "quillora: ..." line
    std::string lastLine;
};

// Starts the export with its output on a pipe and nothing on standard input.
bool start(const LectureExport& work, Running& running, std::string& problem)
{
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
        problem = std::string("no pipe can be made: ") + std::strerror(errno);
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDERR_FILENO);
    std::vector<char*> argv;
    for (const auto& word : work.arguments) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    const int failed = posix_spawn(&running.pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    if (failed != 0) {
        close(pipeEnds[0]);
        problem = "quillora cannot be started: " + std::string(std::strerror(failed));
        return false;
    }
    running.output = pipeEnds[0];
    return true;
}

void showLine(const LectureExport& work, Running& running, const std::string& line, std::ostream& out)
{
    if (line.empty()) return;
    if (line.starts_with("quillora: ")) running.lastComplaint = line.substr(10);
    running.lastLine = line;
    out << "[" << work.name << "] " << line << "\n" << std::flush;
}

std::string howItEnded(const Running& running, int status)
{
    std::string how;
    if (WIFSIGNALED(status)) {
        how = std::string("stopped by ") + strsignal(WTERMSIG(status));
    } else {
        how = "exit status " + std::to_string(WEXITSTATUS(status));
    }
    const std::string& said = running.lastComplaint.empty() ? running.lastLine : running.lastComplaint;
    return said.empty() ? how : said + " (" + how + ")";
}

}  // namespace

std::vector<ExportOutcome> runExports(const std::vector<LectureExport>& exports, unsigned jobs, std::ostream& out)
{
    std::vector<ExportOutcome> outcomes(exports.size());
    std::vector<Running> running;
    std::size_t next = 0;
    jobs = std::max(1U, jobs);
    while (next < exports.size() || !running.empty()) {
        while (running.size() < jobs && next < exports.size()) {
            Running started;
            started.index = next;
            std::string problem;
            out << "Exporting " << exports[next].name << " (" << next + 1 << " of " << exports.size() << ")\n"
                << std::flush;
            if (start(exports[next], started, problem)) {
                running.push_back(std::move(started));
            } else {
                outcomes[next].reason = problem;
            }
            ++next;
        }
        if (running.empty()) continue;
        std::vector<pollfd> waiting;
        for (const auto& child : running) waiting.push_back({child.output, POLLIN, 0});
        if (poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR) break;
        for (std::size_t i = running.size(); i-- > 0;) {
            if (!(waiting[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            Running& child = running[i];
            const LectureExport& work = exports[child.index];
            char buffer[4096];
            const ssize_t n = read(child.output, buffer, sizeof buffer);
            if (n > 0) {
                child.partialLine.append(buffer, static_cast<std::size_t>(n));
                for (auto end = child.partialLine.find_first_of("\r\n"); end != std::string::npos;
                     end = child.partialLine.find_first_of("\r\n")) {
                    showLine(work, child, child.partialLine.substr(0, end), out);
                    child.partialLine.erase(0, end + 1);
                }
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            showLine(work, child, child.partialLine, out);
            close(child.output);
            int status = 0;
            while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {}
            ExportOutcome& outcome = outcomes[child.index];
            outcome.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
            if (!outcome.succeeded) outcome.reason = howItEnded(child, status);
            out << (outcome.succeeded ? "Exported " : "Failed ") << work.name << "\n" << std::flush;
            running.erase(running.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    return outcomes;
}

}  // namespace quillora::app
