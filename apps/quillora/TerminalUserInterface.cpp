#include "TerminalUserInterface.h"

#include <iostream>
#include <mutex>

#include "ExportInputs.h"

namespace quillora::app {

namespace {
// Lines of the export driver and of the resizer's writes are its stages.
constexpr std::string_view kStagePrefix = "QuickTimePlugin/QuickTimePlugin:";
constexpr std::string_view kImageWritten = "wrote image ";

std::mutex outputMutex;
}  // namespace

TerminalUserInterface::TerminalUserInterface(std::istream& in, std::ostream& out, bool verbose)
    : in_(in), out_(out), verbose_(verbose)
{
    previousSink_ = setLogSink([this](std::string_view line) { showLogLine(line); });
}

TerminalUserInterface::~TerminalUserInterface()
{
    setLogSink(std::move(previousSink_));
}

void TerminalUserInterface::showLogLine(std::string_view line)
{
    if (verbose_) {
        if (previousSink_) previousSink_(line);
        return;
    }
    const auto message = line.find("  ");
    const std::string_view text = message == std::string_view::npos ? line : line.substr(message + 2);
    if (line.starts_with(kStagePrefix) || text.starts_with(kImageWritten)) {
        std::lock_guard lock(outputMutex);
        out_ << "  " << text << "\n" << std::flush;
    }
}

void TerminalUserInterface::showWindow(std::string_view) {}

void TerminalUserInterface::beginSavePanel(const SavePanelRequest& request,
                                           std::function<void(int returnCode, const std::string& path)> done)
{
    const std::string suggested = request.directory + "/" + request.fileName;
    for (;;) {
        out_ << "Save as [" << suggested << "]: " << std::flush;
        std::string answer;
        if (!std::getline(in_, answer)) {
            out_ << "\n";
            done(0, "");
            return;
        }
        if (answer.empty()) answer = suggested;
        if (!destinationCheck_) {
            done(kSavePanelOKButton, answer);
            return;
        }
        try {
            done(kSavePanelOKButton, destinationCheck_(answer));
            return;
        } catch (const InputError& refused) {
            out_ << "quillora: " << refused.what() << "\n";
        }
    }
}

void TerminalUserInterface::beginProgressSheet()
{
    out_ << "Exporting...\n" << std::flush;
}

void TerminalUserInterface::endProgressSheet() {}

void TerminalUserInterface::showAlert(const ErrorRecord& error, std::string_view helpAnchor)
{
    alertShown_ = error;
    std::lock_guard lock(outputMutex);
    out_ << "\nExport failed: " << error.localizedDescription() << "\n";
    if (auto cause = error.userInfo.stringForKey("NSLocalizedFailureReason")) out_ << "Cause: " << *cause << "\n";
    if (auto suggestion = error.localizedRecoverySuggestion(); !suggestion.empty()) out_ << suggestion << "\n";
    if (auto options = error.userInfo.get("NSLocalizedRecoveryOptions"); options && options->asArray()) {
        out_ << "Options:";
        for (const auto& option : *options->asArray()) {
            if (auto text = option.asString()) out_ << " [" << *text << "]";
        }
        out_ << "\n";
    }
    out_ << "(" << error.domain << ", code " << error.code << "; help: " << helpAnchor << ")\n" << std::flush;
}

void TerminalUserInterface::registerUndo(std::function<void()>) {}

}  // namespace quillora::app
