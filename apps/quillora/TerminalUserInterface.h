// The plug-in's user interface on a terminal: the save panel asks on standard
// input (and before replacing a file), the progress display shows the
// export's stages as they happen (the log goes to a file in the scratch
// folder), and the alert prints the error with its recovery suggestion,
// options and help anchor.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>

#include "ProgressDisplay.h"
#include "host/HostUserInterface.h"

namespace quillora::app {

class TerminalUserInterface : public HostUserInterface {
public:
    // verbose: every log line on standard error too. The log file is
    // "quillora.log" in the scratch folder.
    TerminalUserInterface(std::istream& in, std::ostream& out, bool verbose,
                          const std::filesystem::path& scratchFolder);

    void showWindow(std::string_view nibName) override;
    void beginSavePanel(const SavePanelRequest& request,
                        std::function<void(int returnCode, const std::string& path)> done) override;
    void beginProgressSheet() override;
    void endProgressSheet() override;
    void showAlert(const ErrorRecord& error, std::string_view helpAnchor) override;
    void registerUndo(std::function<void()> undo) override;

    const std::optional<ErrorRecord>& alertShown() const { return alertShown_; }
    // Ends the progress display.
    void finishProgress();
    const std::filesystem::path& logFile() const { return progress_.logFile(); }

    // Checks the path the user typed in the save panel and gives the path
    // the plug-in is to write; an InputError is shown and the user asked
    // again, as a save panel refuses a name it cannot take.
    using DestinationCheck = std::function<std::string(const std::string& answer)>;
    void setDestinationCheck(DestinationCheck check) { destinationCheck_ = std::move(check); }

private:
    // Asks before a file that is there is replaced; no answer is a no.
    bool confirmReplacing(const std::string& path);

    std::istream& in_;
    std::ostream& out_;
    ProgressDisplay progress_;
    std::optional<ErrorRecord> alertShown_;
    DestinationCheck destinationCheck_;
};

}  // namespace quillora::app
