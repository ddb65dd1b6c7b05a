#include "QuickTimePlugin/QuickTimePlugin.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "QTDataEditor.h"
#include "QuickTimePlugin/ErrorCreation.h"
#include "QuickTimePlugin/ImageResizer.h"
#include "QuickTimePlugin/TextTrackAttributes.h"
#include "foundation/FileHandle.h"
#include "foundation/Log.h"
#include "foundation/Progress.h"
#include "foundation/UserDefaults.h"
#include "layout/PodcastTrackIDs.h"
#include "layout/TextStyle.h"
#include "toolbox/MetaDataAtoms.h"
#include "toolbox/Toolbox.h"

namespace quillora {

namespace {

constexpr const char* kSourceFile = "QuickTimePlugin/QuickTimePlugin";
#define QUICKTIME_LOG(...) logAt(kSourceFile, __LINE__, __VA_ARGS__)

constexpr std::string_view kHandleExport = "-[QuickTimePlugin handleExport]";
constexpr std::string_view kCopyToDestination = "-[QuickTimePlugin copyCompletedWorkingFileToDestination]";
constexpr std::string_view kExportAsMovie = "-[QuickTimePlugin exportAsChapterizedQuicktimeFileToPath:]";
constexpr std::int64_t kMovieType = 0x4D6F6F56;  // 'MooV'

constexpr const char* kNibName = "QuicktimePlugin";
constexpr const char* kHelpAnchor = "Qora0028";
constexpr const char* kWorkingFileSuffix = "source.m4a";
// The export error domain of the chapterized movie.
constexpr const char* quilloraExportErrDomain = "org.quillora.QuickTimePlugin.exportErr";

const char* outcome(bool success)
{
    return success ? "SUCCESS" : "FAILURE";
}

bool isKnownFormat(const std::string& format)
{
    return format == ".mov" || format == ".m4a" || format == ".m4b" || format == ".m4v";
}

std::string homeFolder()
{
    const char* home = std::getenv("HOME");
    return home ? home : "/";
}

// The current time in seconds since 1970, written as the platform writes a
// fractional number.
std::string currentTimeName()
{
    using namespace std::chrono;
    double seconds = duration<double>(system_clock::now().time_since_epoch()).count();
    return fmt::format("{}", seconds);
}

std::string stringOrEmpty(const Value& dictionary, std::string_view key)
{
    return dictionary.stringForKey(key).value_or("");
}

ErrorRecord stageError(std::string_view name, const char* reason)
{
    return errorWithException(NamedException(std::string(name), reason));
}

// The working copy could not be opened or edited (a full disk, say).
// The file system's own words (a full disk, say) go with the error, so the
// alert can say what happened to the file.
ErrorRecord workingCopyError(const char* reason, const std::string& workingPath, const std::exception& cause)
{
    ErrorRecord error = errorWithName(QuilloraErrors::fileManipulationError, reason,
                                      Value::dictionary({{std::string(kErrorFilePathKey), workingPath}}));
    error.userInfo.asDictionary()->set(kLocalizedFailureReasonKey, cause.what());
    return error;
}

}  // namespace

QuickTimePlugin::QuickTimePlugin(HostContext context)
{
    setHostContext(std::move(context));
    initWithWindowNibName(kNibName);
    showWindow();
}

QuickTimePlugin::~QuickTimePlugin()
{
    // A tool still running reports its end to this plug-in while it is whole.
    taskWrappers_.clear();
    setResultFilePath("");
    for (auto token : observations_) NotificationCenter::defaultCenter().removeObserver(token);
}

bool QuickTimePlugin::loadParamsToInterface()
{
    const Value& params = exportParams();
    if (auto format = params.stringForKey("format")) {
        for (const auto& item : form_.formatMenu) {
            if (item == *format) form_.selectedFormat = item;
        }
    }
    Value tags = params.get("tags") ? *params.get("tags") : Value::dictionary();
    form_.titleTag = stringOrEmpty(tags, "title");
    form_.authorTag = stringOrEmpty(tags, "author");
    form_.universityTag = stringOrEmpty(tags, "university");
    form_.classNameTag = stringOrEmpty(tags, "class name");
    form_.classNumberTag = stringOrEmpty(tags, "class number");
    return true;
}

Value QuickTimePlugin::exportParamsFromInterface()
{
    return Value::dictionary({{"format", form_.selectedFormat},
                              {"tags", Value::dictionary({{"title", form_.titleTag},
                                                          {"author", form_.authorTag},
                                                          {"university", form_.universityTag},
                                                          {"class name", form_.classNameTag},
                                                          {"class number", form_.classNumberTag}})}});
}

bool QuickTimePlugin::exportData()
{
    setExportParams(exportParamsFromInterface());
    handleExport();
    return true;
}

bool QuickTimePlugin::exportDataWithParams(const Value& params)
{
    setExportParams(params);
    handleExport();
    return true;
}

bool QuickTimePlugin::exportDataWithParams(const Value& params, const std::string& path, ErrorRecord* /*error*/)
{
    openRecording();
    setExportParams(params);
    setResultFilePath(path);
    startExportWorker(params);
    return true;
}

bool QuickTimePlugin::isExporting() const
{
    if (worker_ && !worker_->finished()) return true;
    return std::ranges::any_of(taskWrappers_, [](const auto& wrapper) { return !wrapper->finished(); });
}

void QuickTimePlugin::openRecording()
{
    std::string error;
    auto recording = toolbox::Movie::movieWithFile(tempFileRecordingPath(), &error);
    if (recording) {
        openError_.reset();
    } else {
        openError_ = error;
    }
    setAudioRecording(std::move(recording));
}

void QuickTimePlugin::setAudioRecording(std::shared_ptr<toolbox::Movie> recording)
{
    if (recording == audioRecording_) return;
    auto previous = audioRecording_;
    userInterface().registerUndo([this, previous] { setAudioRecording(previous); });
    audioRecording_ = std::move(recording);
}

bool QuickTimePlugin::handleExport()
{
    openRecording();
    const std::string format = exportParams().stringForKey("format").value_or("");
    if (!isKnownFormat(format)) logMethod(kHandleExport, "*** Unexpected export format requested: {}", format);
    const std::string extension = format.size() > 1 ? format.substr(1) : "";

    SavePanelRequest request;
    request.allowedFileTypes = {extension};
    request.directory = homeFolder();
    request.fileName = "Untitled." + extension;
    userInterface().beginSavePanel(
        request, [this](int returnCode, const std::string& fileName) { savePanelDidEnd(returnCode, fileName); });
    return true;
}

void QuickTimePlugin::savePanelDidEnd(int returnCode, const std::string& fileName)
{
    if (returnCode != kSavePanelOKButton) return;
    setResultFilePath(fileName);
    userInterface().beginProgressSheet();
    startExportWorker(Value());
}

void QuickTimePlugin::startExportWorker(Value argument)
{
    worker_ = ThreadWorker::workOn(
        "QuickTimePlugin", "beginExport:",
        [this](const std::any& params, ThreadWorker&) -> std::any {
            return beginExport(std::any_cast<const Value&>(params));
        },
        std::move(argument),
        [this](const std::any& result) {
            std::optional<ErrorRecord> error;
            if (auto* record = std::any_cast<std::optional<ErrorRecord>>(&result)) error = *record;
            doneExport(error);
        });
}

std::optional<ErrorRecord> QuickTimePlugin::beginExport(const Value& /*params*/)
{
    QUICKTIME_LOG("Beginning export.");
    QUICKTIME_LOG("[self tempFileRecordingPath] {}", tempFileRecordingPath());

    const std::string workingPath = tempProcessingFolderPath() + currentTimeName() + kWorkingFileSuffix;
    beginProgressStage("Copying the recording");
    try {
        FileHandle::copyFile(tempFileRecordingPath(), workingPath);
    } catch (const FileError&) {
        // Not checked here: a working copy that is missing or cut short fails when it is opened or edited.
    }
    setWorkingFilePath(workingPath);
    QUICKTIME_LOG("Copied tempFileRecordingPath to workingFilePath {}", workingPath);

    if (exportParams().stringForKey("format") == ".mov") {
        QUICKTIME_LOG("Exporting as .mov");
        result_ = exportAsChapterizedQuicktimeFileToPath(resultFilePath());
        NotificationCenter::defaultCenter().post({QuilloraQuickTimePluginExportCompleteNotification, this,
                                                  Value::dictionary({{"resultFilePath", resultFilePath()}})});
    } else {
        saveError_ = exportM4abMovie();
    }
    return saveError_;
}

void QuickTimePlugin::doneExport(const std::optional<ErrorRecord>& result)
{
    QUICKTIME_LOG("Export Complete");
    userInterface().endProgressSheet();
    if (result) userInterface().showAlert(*result, kHelpAnchor);
}

bool QuickTimePlugin::resizeImages()
{
    Array all;
    for (const Value* list : {&slideTransitions(), &screenshotTransitions()}) {
        if (auto items = list->asArray()) all.insert(all.end(), items->begin(), items->end());
    }
    return ImageResizer::resizerWithTransitions(Value::array(std::move(all)))->resizeImages();
}

std::optional<ErrorRecord> QuickTimePlugin::exportM4abMovie()
{
    QUICKTIME_LOG("Exporting as .m4a/b");
    const std::string& workingPath = workingFilePath();
    std::shared_ptr<FileHandle> file;
    try {
        file = std::make_shared<FileHandle>(workingPath, FileHandle::Mode::Updating);
    } catch (const FileError& failure) {
        QUICKTIME_LOG("Could not open the working copy: {}", failure.what());
        return workingCopyError("Could not open the working copy", workingPath, failure);
    }
    // Asked for before any editing, so the copy to the destination follows
    // a failed export too. The observer keeps the handle alive, so no later
    // handle can take its address and its notification.
    observations_.push_back(NotificationCenter::defaultCenter().addObserver(
        kFileHandleDataAvailableNotification, file.get(),
        [this, file](const Notification&) { acceptDataAvailableNotification(); }));
    file->waitForDataInBackgroundAndNotify();

    auto editor = std::make_unique<QTDataEditor>();
    QUICKTIME_LOG("Atom debugging {}", "is disabled");
    editor->setTempProcessingFolderPath(tempProcessingFolderPath());

    auto close = [&] {
        editor.reset();
        QUICKTIME_LOG("Closing file");
        file->closeFile();
    };
    try {
        const Value& slides = slideTransitions();
        const bool haveSlides = slides.asArray() && !slides.asArray()->empty();
        if (!haveSlides) {
            QUICKTIME_LOG("No slide transitions.");
        } else {
            QUICKTIME_LOG("Processing Images");
            beginProgressStage("Drawing the slides");
            const bool resized = resizeImages();
            QUICKTIME_LOG("The result for resizing images: {}", outcome(resized));
            if (!resized) QUICKTIME_LOG("No images found.");

            auto recording = toolbox::Movie::movieWithFile(tempFileRecordingPath());
            const auto duration = recording ? static_cast<std::int32_t>(recording->duration()) : 0;
            Value params = Value::dictionary({{"duration", duration}, {"trackID", std::int64_t{kChapterTrackID}}});
            ErrorRecord ignoredError;

            beginProgressStage("Adding the chapters");
            const bool chapters = editor->addChapters(slides, *file, workingPath, params, &ignoredError);
            QUICKTIME_LOG("The result for adding chapters: {}", outcome(chapters));
            if (!chapters) {
                QUICKTIME_LOG("There was a problem adding the chapter track.");
                close();
                return stageError(QuilloraErrors::qtPluginChapFromTransErr, "Could not add chapters");
            }

            params.asDictionary()->set("trackID", std::int64_t{kPictureTrackID});
            if (resized) {
                beginProgressStage("Adding the slide pictures");
                const bool images = editor->addImages(slides, *file, workingPath, params, this, &ignoredError);
                QUICKTIME_LOG("The result for adding images: {}", outcome(images));
                if (!images) {
                    QUICKTIME_LOG("There was a problem adding the images");
                    close();
                    return stageError(QuilloraErrors::qtPluginImageResizeErr, "Could not add the images");
                }
            }

            const UserDefaults defaults = UserDefaults::standardUserDefaults();
            if (defaults.boolForKey("supportForURL")) {
                const Value attributes = textTrackAttributes(defaults);
                params.asDictionary()->set("trackID", std::int64_t{kLinkTrackID});
                // A failed link track neither stops the export nor is logged.
                beginProgressStage("Adding the links");
                editor->addTextTrackURLs(slides, attributes, *file, workingPath, params, &ignoredError);
            }
        }

        // Without "tags" the item list is written empty.
        const Value* tagsValue = exportParams().get("tags");
        const Value tags = tagsValue ? *tagsValue : Value();
        beginProgressStage("Adding the tags");
        const bool metadata = editor->addMetadata(tags, *file, workingPath);
        // Off by default: the file then holds exactly the tracks and tags above.
        if (metadata && UserDefaults::standardUserDefaults().boolForKey("addChapterList")) {
            beginProgressStage("Adding the chapter list");
            const bool chapterList = editor->addChapterList(slideTransitions(), *file);
            QUICKTIME_LOG("The result for adding the chapter list: {}", outcome(chapterList));
        }
        close();
        if (metadata) return std::nullopt;
        QUICKTIME_LOG("Could not add metadata.");
        return stageError(QuilloraErrors::qtPluginMetadataFromValuesErr, "Could not add metadata.");
    } catch (const NoSlidePicture& failure) {
        QUICKTIME_LOG("{}", failure.what());
        if (file->isOpen()) close();
        return errorWithException(noSlidePictureException());
    } catch (const std::exception& failure) {
        // A read or write of the working copy failed (a full disk, say).
        QUICKTIME_LOG("Editing the working copy failed: {}", failure.what());
        if (file->isOpen()) close();
        return workingCopyError("Could not edit the working copy", workingPath, failure);
    }
}

void QuickTimePlugin::acceptDataAvailableNotification()
{
    QUICKTIME_LOG("acceptDataAvailableNotification in QT Plugin");
    copyCompletedWorkingFileToDestination();
}

bool QuickTimePlugin::copyCompletedWorkingFileToDestination()
{
    std::error_code ignored;
    std::filesystem::remove(resultFilePath(), ignored);
    beginProgressStage("Copying to the destination");
    bool failure = false;
    try {
        FileHandle::copyFile(workingFilePath(), resultFilePath());
        // The finished file is the user's: make it durable before saying it is there.
        FileHandle(resultFilePath(), FileHandle::Mode::Reading).synchronizeFile();
    } catch (const FileError&) {
        failure = true;
    }
    QUILLORA_ASSERT(!failure, std::string(kCopyToDestination),
                    fmt::format("could not move the media file from {} to {}", workingFilePath(), resultFilePath()));
    NotificationCenter::defaultCenter().post({QuilloraQuickTimePluginExportCompleteNotification, this,
                                              Value::dictionary({{"resultFilePath", resultFilePath()}})});
    return true;
}

bool QuickTimePlugin::exportAsChapterizedQuicktimeFileToPath(const std::string& path)
{
    using namespace toolbox;
    // The cause, when one is known, goes with the error as its reason, so
    // that no code stands alone.
    auto fail = [this](std::int64_t code, const char* description, const std::string& cause = {}) {
        ErrorRecord error{quilloraExportErrDomain, code, Value::dictionary()};
        if (description) error.userInfo.asDictionary()->set(kLocalizedDescriptionKey, description);
        if (!cause.empty()) error.userInfo.asDictionary()->set(kLocalizedFailureReasonKey, cause);
        saveError_ = error;
        return false;
    };
    auto editor = std::make_unique<QTDataEditor>();
    std::unique_ptr<MovieStorage> storage;
    std::int16_t status = 0;
    std::unique_ptr<Movie> movie = editor->movieFromTempFile(storage, status);
    editor->setSourceMovie(movie.get());
    if (movie) movie->setEditable(true);
    auto closeStorage = [&storage] {
        if (storage) CloseMovieStorage(storage);
    };

    std::string openError;
    auto recording = Movie::movieWithFile(tempFileRecordingPath(), &openError);
    if (!recording)
        saveError_ = ErrorRecord{"NSCocoaErrorDomain", 0, Value::dictionary({{kLocalizedDescriptionKey, openError}})};
    if (recording && movie) editor->copyAudioTrackFrom(*recording);
    recording.reset();  // the new movie shares what it needs of the recording's sample table
    if (saveError_ || status != 0 || !movie) {
        editor.reset();
        closeStorage();
        return fail(-101, "Could not create the new movie file.",
                    openError.empty() ? std::string() : "the recording cannot be read: " + openError);
    }

    const Value& slides = slideTransitions();
    const bool haveSlides = slides.asArray() && !slides.asArray()->empty();
    if (haveSlides) {
        bool added = false;
        std::optional<std::string> cause;
        try {
            beginProgressStage("Drawing the slides");
            resizeImages();
            beginProgressStage("Adding the chapters");
            added = editor->addChapterTrack(slides, nullptr);
        } catch (const NoSlidePicture& failure) {
            // The chapters would have no pictures to show.
            QUICKTIME_LOG("{}", failure.what());
            cause = errorWithException(noSlidePictureException()).localizedDescription();
        } catch (const std::exception& failure) {
            QUICKTIME_LOG("Adding chapters failed: {}", failure.what());
        }
        if (!added) {
            editor.reset();
            closeStorage();
            fail(-103, "Could not add chapters to the destination movie.");
            if (cause) saveError_->userInfo.asDictionary()->set(kLocalizedFailureReasonKey, *cause);
            return false;
        }
    }
    logMethod(kExportAsMovie, "Successfully added chapters to movie.");

    const UserDefaults defaults = UserDefaults::standardUserDefaults();
    if (defaults.isYes("supportForURL") && haveSlides) {
        const Value attributes = textTrackAttributes(defaults);
        const std::int64_t fontSize = textStyleFromAttributes(attributes).fontSize;
        const Value parameters = Value::dictionary({{"height", fontSize + 10}, {"width", 800}});
        beginProgressStage("Adding the links");
        bool added = false;
        try {
            added = editor->addTextTrackWithHyperLinks(slides, attributes, parameters);
        } catch (const std::exception& failure) {
            QUICKTIME_LOG("Adding the hyperlink track failed: {}", failure.what());
        }
        if (!added) {
            editor.reset();
            closeStorage();
            return fail(-105, "Could not add a hyperlink text track to the destination movie.");
        }
        logMethod(kExportAsMovie, "Added hyperlink text track to the destination movie.");
    }

    beginProgressStage("Writing the movie");
    const bool written = movie->writeToFile(
        path, Value::dictionary({{QTMovieFlatten, true}, {QTMovieExport, true}, {QTMovieExportType, kMovieType}}));
    closeStorage();
    if (!written) {
        editor.reset();
        return fail(-102, "Could not write the movie to disk.");
    }
    logMethod(kExportAsMovie, "Wrote movie to disk at {}", path);

    auto exported = Movie::movieWithFile(path, &openError);
    if (!exported)
        saveError_ = ErrorRecord{"NSCocoaErrorDomain", 0, Value::dictionary({{kLocalizedDescriptionKey, openError}})};
    editor->setSourceMovie(exported.get());
    movie.reset();
    beginProgressStage("Adding the tags");
    bool metadataSet = false;
    try {
        const Value* tags = exportParams().get("tags");
        metadataSet = editor->setMetaData(tags ? *tags : Value(), kQTMetaDataStorageFormatQuickTime);
        editor->updateMovie();
    } catch (const std::exception& failure) {
        QUICKTIME_LOG("Setting the metadata failed: {}", failure.what());
    }
    editor.reset();
    if (!metadataSet) return fail(-106, "Could not set the metadata");
    logMethod(kExportAsMovie, "Metadata have been set.");

    if (saveError_) {
        // The earlier error's code and text are deliberately not shown.
        QUICKTIME_LOG("Export Error: Code: {}, Description: {}", 0, "(null)");
        return fail(-50, nullptr, "the written movie cannot be read back: " + openError);
    }
    QUICKTIME_LOG("Export was successfull");
    return true;
}

}  // namespace quillora
