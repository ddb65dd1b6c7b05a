#include "foundation/Log.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace quillora {

namespace {

std::mutex& sinkMutex()
{
    static std::mutex mutex;
    return mutex;
}

LogSink& currentSink()
{
    static LogSink sink = writeLogLineToStandardError;
    return sink;
}

std::string processName()
{
    char buffer[256];
    ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) return "quillora";
    std::string path(buffer, static_cast<std::size_t>(length));
    auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::string formatLogLine(std::string_view message)
{
    using namespace std::chrono;
    static const std::string name = processName();
    auto now = system_clock::now();
    std::time_t seconds = system_clock::to_time_t(now);
    auto millis = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    return fmt::format("{}.{:03} {}[{}:{}] {}\n", stamp, millis, name, getpid(), static_cast<long>(syscall(SYS_gettid)),
                       message);
}

void writeLogLineToStandardError(std::string_view message)
{
    const std::string line = formatLogLine(message);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void logLine(std::string_view message)
{
    LogSink sink;
    {
        std::lock_guard lock(sinkMutex());
        sink = currentSink();
    }
    if (sink) sink(message);
}

LogSink setLogSink(LogSink sink)
{
    std::lock_guard lock(sinkMutex());
    LogSink previous = std::move(currentSink());
    currentSink() = std::move(sink);
    return previous;
}

CapturedLog::CapturedLog()
{
    previous_ = setLogSink([this](std::string_view message) {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(message);
    });
}

CapturedLog::~CapturedLog()
{
    setLogSink(std::move(previous_));
}

std::vector<std::string> CapturedLog::lines() const
{
    std::lock_guard lock(mutex_);
    return lines_;
}

bool CapturedLog::contains(std::string_view fragment) const
{
    std::lock_guard lock(mutex_);
    for (const auto& line : lines_) {
        if (line.find(fragment) != std::string::npos) return true;
    }
    return false;
}

void CapturedLog::clear()
{
    std::lock_guard lock(mutex_);
    lines_.clear();
}

}  // namespace quillora
