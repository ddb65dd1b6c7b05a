// What a person sees of an export while it runs. On a terminal: one live
// line, rewritten in place, with the stage, "slide 3 of 7" while the slides
// are drawn and a bar with a percentage while bytes are copied or moved.
// Elsewhere (a pipe, a file): each stage once, as a plain line. The
// plug-in's log lines go to a log file, and with verbose to standard error
// as well.
#pragma once

#include <filesystem>
#include <fstream>
#include <iosfwd>
#include <mutex>
#include <string>

#include "foundation/Log.h"
#include "foundation/Progress.h"

namespace quillora::app {

// Standard output, when it is a terminal.
bool isTerminal(const std::ostream& out);

// The live line for a report, at most `width` characters.
std::string progressLine(const ProgressReport& report, std::size_t width);

class ProgressDisplay {
public:
    // Installs itself as the log and progress sinks while it lives.
    ProgressDisplay(std::ostream& out, bool terminal, bool verbose, const std::filesystem::path& logFile);
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    // Ends the live line, so that what follows starts on a line of its own.
    void endLine();
    // Prints the text on lines of its own, between two reports of progress.
    void print(std::string_view text);
    const std::filesystem::path& logFile() const { return logPath_; }

private:
    void show(const ProgressReport& report);
    void log(std::string_view message);

    std::ostream& out_;
    const bool terminal_;
    const bool verbose_;
    std::filesystem::path logPath_;
    std::ofstream logFile_;
    std::mutex mutex_;
    std::string lastStage_;  // plain lines: the stage last printed
    std::string liveLine_;   // terminal: what the live line shows; empty when there is none
    LogSink previousLogSink_;
    ProgressSink previousProgressSink_;
};

}  // namespace quillora::app
