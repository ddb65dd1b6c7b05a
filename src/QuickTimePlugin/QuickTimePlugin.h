// The QuickTime export plug-in: publishes a finished recording with its slide
// transitions and tags as an enhanced podcast (".m4a", ".m4b", ".m4v"), or as
// a chapterized movie (".mov"). Entry points run on the host's main thread;
// the export itself runs on a worker thread, which hands its result back to
// doneExport on the main thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/NotificationCenter.h"
#include "host/quilloraPlugin.h"
#include "support/ThreadWorker.h"
#include "toolbox/Movie.h"

namespace quillora {

// Posted on the worker thread with {"resultFilePath": destination}.
inline constexpr const char* QuilloraQuickTimePluginExportCompleteNotification =
    "QuilloraQuickTimePluginExportCompleteNotification";

// The plug-in's small form: the output format and five tag fields.
struct QuickTimePluginForm {
    std::vector<std::string> formatMenu = {".mov", ".m4a", ".m4b", ".m4v"};
    std::string selectedFormat = ".m4a";
    std::string titleTag;
    std::string authorTag;
    std::string universityTag;
    std::string classNameTag;
    std::string classNumberTag;
};

class QuickTimePlugin : public quilloraPlugin {
public:
    static std::string pluginTitle() { return "QuickTime"; }
    static std::string pluginDescription() { return "Quicktime Publishing."; }
    static std::string pluginIcon() { return "QuickTime"; }

    // Shows the plug-in's window at once.
    explicit QuickTimePlugin(HostContext context);
    ~QuickTimePlugin() override;

    // --- the form ------------------------------------------------------------
    QuickTimePluginForm& form() { return form_; }
    bool loadParamsToInterface() override;
    Value exportParamsFromInterface() override;

    // --- entry points --------------------------------------------------------
    bool exportData() override;
    bool exportDataWithParams(const Value& params) override;
    bool exportDataWithParams(const Value& params, const std::string& path, ErrorRecord* error) override;
    bool isExporting() const override { return worker_ && !worker_->finished(); }

    bool handleExport();
    void savePanelDidEnd(int returnCode, const std::string& fileName);
    // On the worker thread: the error to show, or nothing.
    std::optional<ErrorRecord> beginExport(const Value& params);
    // On the main thread with beginExport's result.
    void doneExport(const std::optional<ErrorRecord>& result);

    // --- the enhanced podcast --------------------------------------------------
    std::optional<ErrorRecord> exportM4abMovie();
    void acceptDataAvailableNotification();
    bool copyCompletedWorkingFileToDestination();
    bool resizeImages();

    // --- the chapterized movie -------------------------------------------------
    bool exportAsChapterizedQuicktimeFileToPath(const std::string& path);

    // --- accessors ---------------------------------------------------------------
    const std::optional<ErrorRecord>& saveError() const { return saveError_; }
    void setSaveError(std::optional<ErrorRecord> error) { saveError_ = std::move(error); }
    const std::string& saveStatus() const { return saveStatus_; }
    void setSaveStatus(std::string status) { saveStatus_ = std::move(status); }
    const std::string& selectedOutput() const { return selectedOutput_; }
    void setSelectedOutput(std::string output) { selectedOutput_ = std::move(output); }
    const std::string& workingFilePath() const { return workingFilePath_; }
    void setWorkingFilePath(std::string path) { workingFilePath_ = std::move(path); }
    const std::shared_ptr<toolbox::Movie>& audioRecording() const { return audioRecording_; }
    // Registers an undo that restores the previous recording.
    void setAudioRecording(std::shared_ptr<toolbox::Movie> recording);
    bool result() const { return result_; }

    // The worker of the export under way or last run, for hosts that wait on it.
    const std::shared_ptr<ThreadWorker>& worker() const { return worker_; }

private:
    void openRecording();
    void startExportWorker(Value argument);

    QuickTimePluginForm form_;
    bool result_ = false;
    std::string saveStatus_;
    std::shared_ptr<toolbox::Movie> audioRecording_;
    std::string selectedOutput_;
    std::string workingFilePath_;
    std::optional<ErrorRecord> saveError_;
    std::shared_ptr<ThreadWorker> worker_;
    std::vector<NotificationCenter::Token> observations_;
};

}  // namespace quillora
