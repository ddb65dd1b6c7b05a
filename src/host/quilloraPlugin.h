// The base class of an export plug-in: the window controller that holds what
// the host hands over for one export (parameters, result path, recording,
// scratch folder, transitions) and the entry points the host calls.
#pragma once

#include <optional>
#include <string>

#include "foundation/Errors.h"
#include "foundation/Value.h"
#include "host/HostUserInterface.h"

namespace quillora {

// What the host provides before it calls an entry point.
struct HostContext {
    std::string tempFileRecordingPath;     // the finished recording
    std::string tempProcessingFolderPath;  // ends in a path separator
    Value slideTransitions = Value::array();
    Value screenshotTransitions = Value::array();
    HostUserInterface* userInterface = nullptr;
    // Start, stop, start, stop...: one pair per stretch of recording between
    // pauses. Left empty, it is one stretch as long as the recording.
    Value startStopRecordingDates = Value::array();
    // Where the host keeps the command-line tools it ships.
    std::string auxiliaryToolsFolderPath = {};
};

class quilloraPlugin {
public:
    virtual ~quilloraPlugin() = default;

    // Also completes the recording dates: the stretches of recording when the
    // host gave none, and the "date" of every transition that has none.
    void setHostContext(HostContext context);

    // --- window controller -------------------------------------------------
    void initWithWindowNibName(std::string nibName) { nibName_ = std::move(nibName); }
    void showWindow() { userInterface().showWindow(nibName_); }
    HostUserInterface& userInterface() const;

    // --- what the host holds for the plug-in -------------------------------
    const Value& exportParams() const { return exportParams_; }
    void setExportParams(Value params) { exportParams_ = std::move(params); }
    const std::string& resultFilePath() const { return resultFilePath_; }
    void setResultFilePath(std::string path) { resultFilePath_ = std::move(path); }
    const std::string& tempFileRecordingPath() const { return context_.tempFileRecordingPath; }
    const std::string& tempProcessingFolderPath() const { return context_.tempProcessingFolderPath; }
    const Value& slideTransitions() const { return context_.slideTransitions; }
    const Value& screenshotTransitions() const { return context_.screenshotTransitions; }
    const Value& startStopRecordingDates() const { return context_.startStopRecordingDates; }
    // The name of the first presentation in a host document (a folder): its
    // first file's name without extension, or the document's own name.
    std::string firstPresentationNameinWrapper(const std::string& wrapper) const;
    // Where the host document's save sheet for a movie ended: on OK the
    // chosen path becomes the result file path.
    virtual void saveQTPanelDidEnd(int returnCode, const std::string& path);
    // A tool the host ships (in its auxiliary-tools folder), else the bare
    // name, which the process runner looks up on the PATH.
    std::string pathForAuxiliaryExecutable(const std::string& name) const;
    // The error of opening the recording, as the platform reports it.
    const std::optional<std::string>& openError() const { return openError_; }

    // --- entry points --------------------------------------------------------
    virtual bool loadParamsToInterface() = 0;
    virtual Value exportParamsFromInterface() = 0;
    // Interactive export from the form; shows a save panel.
    virtual bool exportData() = 0;
    // Interactive export with given parameters; shows a save panel.
    virtual bool exportDataWithParams(const Value& params) = 0;
    // Export without a panel. Returns at once; error is never written.
    virtual bool exportDataWithParams(const Value& params, const std::string& path, ErrorRecord* error) = 0;

    // True while an export started by an entry point is still running on its
    // worker thread; the host keeps its run loop going until then.
    virtual bool isExporting() const = 0;

protected:
    std::optional<std::string> openError_;

private:
    HostContext context_;
    Value exportParams_ = Value::dictionary();
    std::string resultFilePath_;
    std::string nibName_;
};

}  // namespace quillora
