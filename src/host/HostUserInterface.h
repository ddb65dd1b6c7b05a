// What a host's user interface does for a plug-in: its window, a save panel,
// sheets, an alert with a help anchor, and undo. A terminal host, a test host
// and a graphical host each provide one. Every call comes on the main thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Errors.h"

namespace quillora {

struct SavePanelRequest {
    bool canCreateDirectories = true;
    bool canSelectHiddenExtension = true;
    std::vector<std::string> allowedFileTypes;  // extensions without the dot
    std::string requiredFileType;               // empty: any of the allowed
    std::string directory;
    std::string fileName;
};

// The return code of a save panel the user confirmed.
inline constexpr int kSavePanelOKButton = 1;

class HostUserInterface {
public:
    virtual ~HostUserInterface() = default;

    virtual void showWindow(std::string_view nibName) = 0;
    // Shows the panel as a sheet on the host's window; done runs on the main
    // thread with the return code and the chosen path.
    virtual void beginSavePanel(const SavePanelRequest& request,
                                std::function<void(int returnCode, const std::string& path)> done) = 0;
    virtual void beginProgressSheet() = 0;
    virtual void endProgressSheet() = 0;
    virtual void showAlert(const ErrorRecord& error, std::string_view helpAnchor) = 0;
    virtual void registerUndo(std::function<void()> undo) = 0;
};

// For work done without any window, panel or sheet: the panel is cancelled,
// everything else shows nothing.
class SilentUserInterface : public HostUserInterface {
public:
    void showWindow(std::string_view) override {}
    void beginSavePanel(const SavePanelRequest&, std::function<void(int, const std::string&)> done) override
    {
        done(0, "");
    }
    void beginProgressSheet() override {}
    void endProgressSheet() override {}
    void showAlert(const ErrorRecord&, std::string_view) override {}
    void registerUndo(std::function<void()>) override {}
};

}  // namespace quillora
