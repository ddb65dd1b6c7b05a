#include "ProgressDisplay.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace quillora::app {

namespace {

constexpr std::size_t kBarWidth = 24;
constexpr std::size_t kStageWidth = 28;
constexpr std::size_t kDefaultColumns = 80;
// Back to the start of the line, and erase what was there.
constexpr std::string_view kRewriteLine = "\r\x1b[K";

std::size_t terminalColumns()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return kDefaultColumns;
}

std::string bar(std::int64_t done, std::int64_t total)
{
    const double fraction =
        total > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0) : 0;
    const auto filled = static_cast<std::size_t>(fraction * kBarWidth);
    return fmt::format("[{}{}] {:3}%", std::string(filled, '#'), std::string(kBarWidth - filled, '-'),
                       static_cast<int>(fraction * 100));
}

}  // namespace

bool isTerminal(const std::ostream& out)
{
    return &out == &std::cout && isatty(STDOUT_FILENO);
}

std::string progressLine(const ProgressReport& report, std::size_t width)
{
    // A stage longer than its column still keeps a space before the count.
    std::string line = fmt::format("  {:<{}} ", report.stage, kStageWidth - 1);
    if (report.unit == ProgressUnit::pictures) {
        line += fmt::format("slide {} of {}  {}", report.done, report.total, bar(report.done, report.total));
    } else if (report.unit == ProgressUnit::bytes || report.unit == ProgressUnit::fraction) {
        line += bar(report.done, report.total);
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    // Longer than the terminal, it would wrap, and the rewrite would miss its start.
    if (line.size() > width) line.resize(width);
    return line;
}

ProgressDisplay::ProgressDisplay(std::ostream& out, bool terminal, bool verbose, const std::filesystem::path& logFile)
    : out_(out), terminal_(terminal), verbose_(verbose), logPath_(logFile), logFile_(logFile, std::ios::app)
{
    previousLogSink_ = setLogSink([this](std::string_view message) { log(message); });
    previousProgressSink_ = setProgressSink([this](const ProgressReport& report) { show(report); });
}

ProgressDisplay::~ProgressDisplay()
{
    setProgressSink(std::move(previousProgressSink_));
    setLogSink(std::move(previousLogSink_));
    endLine();
}

void ProgressDisplay::endLine()
{
    print("");
}

void ProgressDisplay::print(std::string_view text)
{
    std::lock_guard lock(mutex_);
    if (!liveLine_.empty()) out_ << "\n";
    liveLine_.clear();
    out_ << text << std::flush;
}

void ProgressDisplay::show(const ProgressReport& report)
{
    std::lock_guard lock(mutex_);
    if (terminal_) {
        // Redrawn only when it changes: a move of a long recording reports every few megabytes.
        const std::string line = progressLine(report, terminalColumns() - 1);
        if (line == liveLine_) return;
        out_ << kRewriteLine << line << std::flush;
        liveLine_ = line;
        return;
    }
    if (report.stage != lastStage_) {
        out_ << "  " << report.stage << "\n" << std::flush;
        lastStage_ = report.stage;
    }
    if (report.unit == ProgressUnit::pictures && report.total > 0 && report.done == report.total) {
        out_ << "  " << report.stage << ": slide " << report.done << " of " << report.total << "\n" << std::flush;
    }
}

void ProgressDisplay::log(std::string_view message)
{
    const std::string line = formatLogLine(message);
    std::lock_guard lock(mutex_);
    if (logFile_) logFile_ << line << std::flush;
    if (!verbose_ && logFile_) return;
    // On a terminal the log line goes above the live line, which is then drawn again.
    if (!liveLine_.empty()) out_ << kRewriteLine << std::flush;
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
    if (!liveLine_.empty()) out_ << liveLine_ << std::flush;
}

}  // namespace quillora::app
