// What the benchmark programs share: running a command and measuring it.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace quillora::bench {

using Clock = std::chrono::steady_clock;

struct Run {
    double seconds = 0;
    double cpuSeconds = 0;
    long peakKiB = 0;
    long long writeCalls = 0;  // bytes passed to write calls ("wchar")
    long long diskWrites = 0;  // bytes of pages dirtied ("write_bytes")
};

inline long long ioField(const std::string& text, const std::string& key)
{
    const auto at = text.find(key + ": ");
    return at == std::string::npos ? 0 : std::atoll(text.c_str() + at + key.size() + 2);
}

// Starts a command without a shell, its output (and unless keepErrors, its
// error output) discarded. Throws when it cannot be started.
inline pid_t spawn(const std::vector<std::string>& command, bool keepErrors = false)
{
    std::vector<char*> argv;
    for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (!keepErrors) posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int failed = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed) throw std::runtime_error("cannot start " + command[0]);
    return pid;
}

// Runs a command as spawn does; the child's time, CPU time, peak resident
// memory and I/O, read while it is a zombie. Throws when it fails.
inline Run run(const std::vector<std::string>& command)
{
    auto start = Clock::now();
    const pid_t pid = spawn(command);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    Run result{std::chrono::duration<double>(Clock::now() - start).count()};
    std::ifstream io("/proc/" + std::to_string(pid) + "/io");
    const std::string text((std::istreambuf_iterator<char>(io)), std::istreambuf_iterator<char>());
    result.writeCalls = ioField(text, "wchar");
    result.diskWrites = ioField(text, "write_bytes");
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    result.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    result.peakKiB = usage.ru_maxrss;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(command[0] + " failed");
    return result;
}

inline void writeText(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path) << text;
}

// The fastest of several runs, with the highest peak memory among them.
inline Run fastest(int runs, const std::function<Run()>& once)
{
    Run best = once();
    for (int i = 1; i < runs; ++i) {
        const Run next = once();
        if (next.seconds < best.seconds) best = next;
        best.peakKiB = std::max(best.peakKiB, next.peakKiB);
    }
    return best;
}

}  // namespace quillora::bench
