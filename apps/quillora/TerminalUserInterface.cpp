#include "TerminalUserInterface.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <sstream>

#include "ExportInputs.h"

namespace quillora::app {

TerminalUserInterface::TerminalUserInterface(std::istream& in, std::ostream& out, bool verbose,
                                             const std::filesystem::path& scratchFolder)
    : in_(in), out_(out), progress_(out, isTerminal(out), verbose, scratchFolder / "quillora.log")
{
}

void TerminalUserInterface::finishProgress()
{
    progress_.endLine();
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
        std::error_code ignored;
        if (std::filesystem::is_regular_file(answer, ignored) && !confirmReplacing(answer)) continue;
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

bool TerminalUserInterface::confirmReplacing(const std::string& path)
{
    out_ << path << " already exists. Replace it? [y/N]: " << std::flush;
    std::string answer;
    if (!std::getline(in_, answer)) return false;
    std::transform(answer.begin(), answer.end(), answer.begin(), [](unsigned char c) { return std::tolower(c); });
    return answer == "y" || answer == "yes";
}

void TerminalUserInterface::beginProgressSheet()
{
    out_ << "Exporting...\n" << std::flush;
}

void TerminalUserInterface::endProgressSheet() {}

void TerminalUserInterface::showAlert(const ErrorRecord& error, std::string_view helpAnchor)
{
    alertShown_ = error;
    std::ostringstream alert;
    alert << "\nExport failed: " << error.localizedDescription() << "\n";
    if (auto cause = error.userInfo.stringForKey(kLocalizedFailureReasonKey)) alert << "Cause: " << *cause << "\n";
    if (auto suggestion = error.localizedRecoverySuggestion(); !suggestion.empty()) alert << suggestion << "\n";
    if (auto options = error.userInfo.get("NSLocalizedRecoveryOptions"); options && options->asArray()) {
        alert << "Options:";
        for (const auto& option : *options->asArray()) {
            if (auto text = option.asString()) alert << " [" << *text << "]";
        }
        alert << "\n";
    }
    alert << "(" << error.domain << ", code " << error.code << "; help: " << helpAnchor << ")\n";
    // The export's last steps may still be showing progress from the worker thread.
    progress_.print(alert.str());
}

void TerminalUserInterface::registerUndo(std::function<void()>) {}

}  // namespace quillora::app
