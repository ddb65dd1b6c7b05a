// What the benchmark programs share: running a command and measuring it.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace quillora::bench {

using Clock = std::chrono::steady_clock;

struct Run {
    double seconds = 0;
    long peakKiB = 0;
};

// Runs a command without a shell, its output discarded; the child's time and
// peak resident memory.
inline Run run(const std::vector<std::string>& command)
{
    std::vector<char*> argv;
    for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    auto start = Clock::now();
    pid_t pid;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        throw std::runtime_error("cannot start " + command[0]);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Run result{std::chrono::duration<double>(Clock::now() - start).count(), usage.ru_maxrss};
    posix_spawn_file_actions_destroy(&actions);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(command[0] + " failed");
    return result;
}

inline void writeText(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path) << text;
}

}  // namespace quillora::bench
