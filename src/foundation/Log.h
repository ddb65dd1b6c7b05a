// The system log. Every stage writes one line; there are no levels. The
// default sink writes the line to standard error with a time stamp and the
// process, as the host's system log does; tests install a capturing sink.
#pragma once

#include <fmt/format.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace quillora {

using LogSink = std::function<void(std::string_view message)>;

void logLine(std::string_view message);

template <typename... Args> void logf(fmt::format_string<Args...> format, Args&&... args)
{
    logLine(fmt::format(format, std::forward<Args>(args)...));
}

// A line made inside a method: the method's full name, two blanks, the message.
template <typename... Args> void logMethod(std::string_view method, fmt::format_string<Args...> format, Args&&... args)
{
    logLine(fmt::format("{}  {}", method, fmt::format(format, std::forward<Args>(args)...)));
}

// A line of the export driver or the resizer: source file and line, two blanks.
template <typename... Args>
void logAt(std::string_view file, int line, fmt::format_string<Args...> format, Args&&... args)
{
    logLine(fmt::format("{}:{}  {}", file, line, fmt::format(format, std::forward<Args>(args)...)));
}

// Replaces the sink for the whole process; returns the previous one.
LogSink setLogSink(LogSink sink);

// The line as the system log keeps it: time stamp, process, thread, message
// and a newline.
std::string formatLogLine(std::string_view message);

// The standard-error sink.
void writeLogLineToStandardError(std::string_view message);

// Collects log lines while it lives (thread-safe), then restores the old sink.
class CapturedLog {
public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    std::vector<std::string> lines() const;
    bool contains(std::string_view fragment) const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    LogSink previous_;
};

}  // namespace quillora
