// The QuickTime export plug-in: publishes a finished recording with its slide
// transitions and tags as an enhanced podcast (".m4a", ".m4b", ".m4v"), or as
// a chapterized movie (".mov"). Entry points run on the host's main thread;
// the export itself runs on a worker thread, which hands its result back to
// doneExport on the main thread.
#pragma once

#include <memory>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "foundation/NotificationCenter.h"
#include "host/quilloraPlugin.h"
#include "support/TaskWrapper.h"
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

class QuickTimePlugin : public quilloraPlugin, public TaskWrapperController {
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
    // Also while a tool it started has not yet reported its end.
    bool isExporting() const override;

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

    // --- the external chapter-tool pipeline (QuickTimePluginUnused.cpp) --------
    // An older way to an enhanced podcast that no export path takes: the
    // chapters as an XML document, "ChapterTool" to build the podcast from
    // it and the recording, "AtomicParsley" to tag it. Runs on the calling
    // thread; the tools' output reaches appendOutput when its loop next runs.
    bool createM4AFile(const std::string& destination);
    std::unique_ptr<pugi::xml_document> generateXML();
    // Throws NamedException "fileManipulationError" when the document cannot
    // be written or the tool made no file.
    bool createEnhancedPodcastInURL(const std::string& destination, const pugi::xml_document& document);
    void setID3Tags(const Value& tags, const std::string& file);
    Value createChapterItemsWithTransitions(const Value& transitions, const Value& startStopRecordingDates);
    // The older entry: a save sheet for a movie path, ended by the host.
    void exportWithPodcastFile(const std::string& podcastFile, const std::string& archiveFile,
                               const Value& startStopRecordingDates);
    void exportingContentPanelDidEnd(int returnCode);

    // --- TaskWrapperController (the tools' reports) ----------------------------
    void appendOutput(const std::string& output) override;
    void processStarted() override;
    void processFinished() override;

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
    // Runs a tool to its exit; its reports come on this thread's run loop.
    void runTool(std::vector<std::string> arguments);

    QuickTimePluginForm form_;
    bool result_ = false;
    std::string saveStatus_;
    std::shared_ptr<toolbox::Movie> audioRecording_;
    std::string selectedOutput_;
    std::string workingFilePath_;
    std::optional<ErrorRecord> saveError_;
    std::shared_ptr<ThreadWorker> worker_;
    // Kept until each tool has reported its end, so its output still arrives.
    std::vector<std::unique_ptr<TaskWrapper>> taskWrappers_;
    std::vector<NotificationCenter::Token> observations_;
};

}  // namespace quillora
