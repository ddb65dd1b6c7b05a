// The plug-in's user interface on a terminal: the save panel asks on standard
// input, the progress sheet prints the export's stages as they happen, and
// the alert prints the error with its recovery suggestion, options and help
// anchor.
#pragma once

#include <iosfwd>
#include <optional>

#include "foundation/Log.h"
#include "host/HostUserInterface.h"

namespace quillora::app {

class TerminalUserInterface : public HostUserInterface {
public:
    // verbose: every log line, not only the stages.
    TerminalUserInterface(std::istream& in, std::ostream& out, bool verbose);
    ~TerminalUserInterface() override;

    void showWindow(std::string_view nibName) override;
    void beginSavePanel(const SavePanelRequest& request,
                        std::function<void(int returnCode, const std::string& path)> done) override;
    void beginProgressSheet() override;
    void endProgressSheet() override;
    void showAlert(const ErrorRecord& error, std::string_view helpAnchor) override;
    void registerUndo(std::function<void()> undo) override;

    const std::optional<ErrorRecord>& alertShown() const { return alertShown_; }

    // Checks the path the user typed in the save panel and gives the path
    // the plug-in is to write; an InputError is shown and the user asked
    // again, as a save panel refuses a name it cannot take.
    using DestinationCheck = std::function<std::string(const std::string& answer)>;
    void setDestinationCheck(DestinationCheck check) { destinationCheck_ = std::move(check); }

private:
    void showLogLine(std::string_view line);

    std::istream& in_;
    std::ostream& out_;
    bool verbose_;
    LogSink previousSink_;
    std::optional<ErrorRecord> alertShown_;
    DestinationCheck destinationCheck_;
};

}  // namespace quillora::app
