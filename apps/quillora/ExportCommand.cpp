#include "ExportCommand.h"
#include "StandardLanguages.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <ostream>
#include <set>
#include <string>

#include "CompanionExport.h"
#include "ExportInputs.h"
#include "ExportStop.h"
#include "InputChecks.h"
#include "PluginLoader.h"
#include "ProgramFolder.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "QuickTimePlugin/QuilloraTemplate.h"
#include "RecordingPreparation.h"
#include "ResultDestination.h"
#include "TerminalUserInterface.h"
#include "ToolPipelineExport.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RunLoop.h"
#include "host/ErrorStrings.h"
#include "publish/ModernOutput.h"
#include "publish/PicturelessChapters.h"
#include "publish/RecordingShape.h"

namespace quillora::app {

namespace {

constexpr const char* kPluginClassName = "QuickTimePlugin";

// The export's own scratch folder, new for each export (below --scratch when
// given, so that exports sharing it never mix their files), with the
// trailing separator the plug-in appends names to.
std::string prepareScratch(const std::optional<std::filesystem::path>& requested)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "quillora-XXXXXX").string();
    if (requested) {
        std::error_code error;
        std::filesystem::create_directories(*requested, error);
        if (!std::filesystem::is_directory(*requested)) {
            throw InputError(fmt::format("The scratch folder {} cannot be made", requested->string()));
        }
        checkFolderIsWritable(*requested, "scratch folder");
        pattern = (*requested / "export-XXXXXX").string();
    }
    if (!mkdtemp(pattern.data())) {
        throw InputError(fmt::format("No scratch folder can be made in {}: {}",
                                     std::filesystem::path(pattern).parent_path().string(), std::strerror(errno)));
    }
    std::string path = std::filesystem::absolute(pattern).string();
    if (!path.ends_with('/')) path += '/';
    return path;
}

// While it lives, the temporary files of the movie toolbox and of the tools
// go in the export's scratch folder, so that whatever removes the folder (a
// stop by a signal included) removes them too.
class TemporaryFilesInScratch {
public:
    explicit TemporaryFilesInScratch(const std::string& scratch)
    {
        if (const char* earlier = std::getenv("TMPDIR")) earlier_ = earlier;
        ::setenv("TMPDIR", scratch.c_str(), 1);
    }
    ~TemporaryFilesInScratch()
    {
        if (earlier_) {
            ::setenv("TMPDIR", earlier_->c_str(), 1);
        } else {
            ::unsetenv("TMPDIR");
        }
    }
    TemporaryFilesInScratch(const TemporaryFilesInScratch&) = delete;
    TemporaryFilesInScratch& operator=(const TemporaryFilesInScratch&) = delete;

private:
    std::optional<std::string> earlier_;
};

// Format and tags: the template's, then the command line's.
Value exportParameters(const ExportOptions& options)
{
    Value params = Value::dictionary({{"format", Value()}, {"tags", Value::dictionary()}});
    auto entries = params.asDictionary();
    if (options.templateFile) {
        QuilloraTemplate stored;
        try {
            stored = QuilloraTemplate::templateWithContentsOfFile(*options.templateFile);
        } catch (const std::exception& failure) {
            throw InputError(
                fmt::format("The template {} cannot be read: {}", options.templateFile->string(), failure.what()));
        }
        if (auto format = stored.format()) entries->set("format", *format);
        if (stored.tags().isDictionary()) entries->set("tags", stored.tags());
    }
    if (options.tags) entries->set("tags", readTags(*options.tags));
    if (options.format) {
        entries->set("format", *options.format);
    } else if (options.output && isFormatName(options.output->extension().string())) {
        entries->set("format", options.output->extension().string());
    } else if (entries->find("format")->isNull()) {
        entries->set("format", ".m4a");
    }
    return params;
}

// The host's alert texts: QUILLORA_RESOURCES, the folder beside the program,
// or the source tree's resources.
void installErrorStrings()
{
    std::vector<std::filesystem::path> folders;
    if (const char* folder = std::getenv("QUILLORA_RESOURCES")) folders.emplace_back(folder);
    if (auto beside = programFolder()) folders.push_back(*beside / "resources");
    folders.emplace_back(QUILLORA_RESOURCE_DIR);
    for (const auto& folder : folders) {
        const auto table = folder / "errorStrings.strings";
        if (!std::filesystem::is_regular_file(table)) continue;
        ErrorStrings::setErrorStrings(std::make_shared<ErrorStrings>(ErrorStrings::fromFile(table)));
        return;
    }
}

// Everything the export needs, read and checked before any work starts.
struct CheckedExport {
    HostContext context;
    Value params;
    std::string format;
    bool scratchIsTemporary = false;  // not below --scratch
    std::optional<std::filesystem::path> destination;
    std::vector<std::filesystem::path> inputs;  // every file of the user's the export reads
    std::uintmax_t inputBytes = 0;
    double recordingSeconds = 0;  // of the prepared recording
    std::optional<std::filesystem::path> cover;
    std::vector<std::string> warnings;
    Value picturelessChapters;  // records without pictures, whose tracks the host adds
};

std::filesystem::path checkDestination(const std::filesystem::path& output, const CheckedExport& checked)
{
    const auto destination = checkOutputPlace(output, checked.inputs);
    checkOutputExtension(destination, checked.format);
    checkFreeSpace(checked.context.tempProcessingFolderPath, destination.parent_path(), checked.inputBytes);
    return destination;
}

// Fills checked as far as the checks get, so that a refusal can still clean
// up the scratch folder it made.
void checkExport(const ExportOptions& options, CheckedExport& checked, std::ostream& out, ExportStop& stop)
{
    checked.params = exportParameters(options);
    checked.format = checked.params.stringForKey("format").value_or("");
    checkFormat(checked.format);
    checked.inputs.push_back(options.recording);
    checked.context.tempProcessingFolderPath = prepareScratch(options.scratch);
    stop.setScratch(checked.context.tempProcessingFolderPath);
    checked.scratchIsTemporary = !options.scratch;

    const auto prepared =
        prepareRecordingInScratch(options.recording, {options.audioTrack, options.bitrate, options.loudness},
                                  checked.context.tempProcessingFolderPath, out, options.verbose);
    const RecordingFacts recording = checkRecording(prepared, checked.format != ".mov");
    checked.inputBytes = recording.bytes;
    checked.recordingSeconds = static_cast<double>(recording.duration) / publish::kPodcastTimeScale;
    checked.context.tempFileRecordingPath = prepared.string();
    checked.cover = options.cover;
    if (auto tagged = checked.params.get("tags")->stringForKey("cover"); !checked.cover && tagged) {
        checked.cover = options.tags ? options.tags->parent_path() / *tagged : std::filesystem::path(*tagged);
    }
    if (checked.cover) {
        if (!std::filesystem::is_regular_file(*checked.cover)) {
            throw InputError(fmt::format("The cover {} does not exist", checked.cover->string()));
        }
        checked.inputs.push_back(*checked.cover);
    }
    const std::filesystem::path pictures = std::filesystem::path(checked.context.tempProcessingFolderPath) / "pictures";
    auto useList = [&](const std::filesystem::path& file, Transitions list) {
        checked.warnings.insert(checked.warnings.end(), list.warnings.begin(), list.warnings.end());
        checked.inputs.push_back(file);
        std::set<std::filesystem::path> counted;  // a deck's pages are one file
        for (const auto& picture : list.pictures) {
            checked.inputs.push_back(picture);
            if (counted.insert(picture).second) checked.inputBytes += std::filesystem::file_size(picture);
        }
        return list;
    };
    const bool movie = checked.format == ".mov";
    const SlideChoice slides{options.slides, options.slidesFor};
    if (options.slides && !options.transitions && !options.chapters) {
        throw InputError("--slides needs --chapters or --transitions: slide N goes with chapter N");
    }
    const TransitionRules slideRules{true, true, movie, std::nullopt};
    std::optional<Transitions> slideList;
    if (options.transitions) {
        slideList = useList(*options.transitions, readTransitions(*options.transitions, pictures / "slides",
                                                                  recording.duration, slideRules, slides));
    } else if (options.chapters) {
        slideList = useList(*options.chapters, readChapters(*options.chapters, pictures / "slides", recording.duration,
                                                            slideRules, slides));
    }
    std::optional<double> slidesFrame;  // screen shots are drawn in the slides' frame
    if (slideList && slideList->pictured) {
        checked.context.slideTransitions = slideList->records;
        slidesFrame = slideList->largestFrame;
    } else if (slideList) {
        // The plug-in gives up on slides without pictures; the host adds their tracks afterwards.
        if (movie) throw InputError("A .mov is made of its slide pictures: give --slides, or export a .m4b");
        if (options.pipeline == "tools") throw InputError("--pipeline tools needs slide pictures: give --slides");
        checked.picturelessChapters = slideList->records;
    }
    // Screen shots' times are never put in a track; their texts only by the tools.
    if (options.screenshots) {
        Transitions list = useList(*options.screenshots,
                                   readTransitions(*options.screenshots, pictures / "screenshots", recording.duration,
                                                   {false, options.pipeline == "tools", movie, slidesFrame}));
        if (!list.pictured) {
            throw InputError(fmt::format("{}: a screen shot needs its \"imagePath\"", options.screenshots->string()));
        }
        checked.context.screenshotTransitions = list.records;
    }
    for (const auto& file : {options.tags, options.defaults, options.templateFile}) {
        if (file) checked.inputs.push_back(*file);
    }
    UserDefaults::setStandardUserDefaults(
        withPreferredLanguages(options.defaults ? readDefaults(*options.defaults) : UserDefaults()));

    if (options.output) checked.destination = checkDestination(*options.output, checked);
    if (checked.destination) stop.setDestination(*checked.destination);
    if (options.pipeline != "in-place") {
        if (options.pipeline != "tools") throw InputError("--pipeline takes in-place or tools");
        if (!checked.destination) throw InputError("--pipeline tools needs --output");
        if (checked.format == ".mov") throw InputError("--pipeline tools makes enhanced podcasts, not .mov");
        if (options.modern) throw InputError("--modern repairs the in-place export, not --pipeline tools");
    }
}

}  // namespace

int runExportCommand(const ExportOptions& options, std::istream& in, std::ostream& out, std::ostream& err)
{
    ExportStop stop(options.keepScratch);
    CheckedExport checked;
    auto removeOurScratch = [&] {
        std::error_code ignored;
        if (!checked.context.tempProcessingFolderPath.empty())
            std::filesystem::remove_all(checked.context.tempProcessingFolderPath, ignored);
    };
    try {
        checkExport(options, checked, out, stop);
    } catch (const std::exception& failure) {  // InputError, or a filesystem_error while reading the inputs
        err << "quillora: " << failure.what() << "\n";
        removeOurScratch();
        return kExitRefused;
    }
    for (const auto& warning : checked.warnings) err << "quillora: warning: " << warning << "\n";
    HostContext& context = checked.context;
    const TemporaryFilesInScratch temporaryFiles(context.tempProcessingFolderPath);

    auto search = loadPlugins(options.pluginFolders.empty() ? defaultPluginFolders() : options.pluginFolders);
    const PluginClass* pluginClass = nullptr;
    for (const auto& plugin : search.plugins) {
        if (plugin.pluginClass->className == kPluginClassName) pluginClass = plugin.pluginClass;
    }
    if (!pluginClass) {
        err << "quillora: the QuickTime plug-in module was not found";
        for (const auto& problem : search.problems) err << "\n  " << problem;
        err << "\n";
        removeOurScratch();
        return kExitFailed;
    }

    try {
        installErrorStrings();
    } catch (const std::exception& failure) {
        err << "quillora: warning: the error texts cannot be read: " << failure.what() << "\n";
    }
    TerminalUserInterface userInterface(in, out, options.verbose, context.tempProcessingFolderPath);
    context.userInterface = &userInterface;
    context.auxiliaryToolsFolderPath = auxiliaryToolsFolder();
    // The plug-in writes into the scratch folder; the user's destination is
    // replaced only once the export has succeeded.
    std::optional<ResultDestination> result;
    auto stage = [&](const std::filesystem::path& destination) {
        result.emplace(destination, context.tempProcessingFolderPath);
        stop.setDestination(destination);
        return result->staged().string();
    };
    userInterface.setDestinationCheck(
        [&](const std::string& answer) { return stage(checkDestination(answer, checked)); });
    std::optional<std::string> completedPath;
    auto observation = NotificationCenter::defaultCenter().addObserver(
        QuilloraQuickTimePluginExportCompleteNotification, nullptr, [&completedPath](const Notification& notification) {
            completedPath = notification.userInfo.stringForKey("resultFilePath");
        });

    auto modern = options.pipeline == "in-place" ? publish::prepareModernOutput(context, checked.params, options.modern)
                                                 : publish::ModernOutput{};
    // The repairs time the links and list the chapters from the slides the host adds itself.
    if (modern.repairs && checked.picturelessChapters.isArray()) modern.repairs->slides = checked.picturelessChapters;
    for (const auto& note : modern.notes) err << "quillora: " << note << "\n";
    auto plugin = pluginClass->create(context);
    out << "Exporting " << options.recording.string() << " as " << checked.format << "\n";
    if (options.pipeline == "tools") {
        const std::string staged = stage(*checked.destination);
        const int status = runToolPipelineExport(*plugin, checked.params, staged, err);
        if (status == kExitRefused) {
            NotificationCenter::defaultCenter().removeObserver(observation);
            removeOurScratch();
            return status;
        }
        if (status == kExitSuccess) completedPath = staged;
    } else if (checked.destination) {
        plugin->exportDataWithParams(checked.params, stage(*checked.destination), nullptr);
    } else {
        plugin->exportDataWithParams(checked.params);
    }
    auto loop = RunLoop::current();
    while (plugin->isExporting() || loop->hasPendingWork()) loop->runOnce(std::chrono::milliseconds(20));
    plugin.reset();
    userInterface.finishProgress();
    NotificationCenter::defaultCenter().removeObserver(observation);

    if (!result) {
        out << "Nothing was exported.\n";
        if (!options.keepScratch) removeOurScratch();
        return options.output ? kExitFailed : kExitSuccess;
    }
    auto keptFailure = [&](const char* kept) {
        stop.exportEnded();
        out << "The destination " << result->destination().string() << " was left as it was.\n";
        if (std::filesystem::exists(result->staged())) {
            out << "The " << kept << " export was kept in " << result->staged().string() << "\n";
        }
        if (std::filesystem::exists(userInterface.logFile())) {
            out << "The log is in " << userInterface.logFile().string() << "\n";
        }
        return kExitFailed;
    };
    if (userInterface.alertShown()) return keptFailure("failed");
    if (!completedPath || !std::filesystem::is_regular_file(result->staged())) {
        err << "quillora: the export did not produce " << result->destination().string() << "\n";
        return keptFailure("failed");
    }
    std::vector<std::filesystem::path> companions;
    try {
        if (checked.picturelessChapters.isArray()) {
            publish::addChaptersWithoutPictures(result->staged(), checked.picturelessChapters,
                                                context.tempFileRecordingPath, context.tempProcessingFolderPath);
        }
        // Before the cover goes into the item list that the repairs rewrite.
        if (modern.repairs) publish::applyModernRepairs(result->staged(), *modern.repairs);
        publish::CompanionRequest request{{}, options.baseUrl, options.bitrate};
        for (const auto& name : options.also) request.companions.insert(*publish::companionNamed(name));
        companions = addCoverAndCompanions(
            {result->staged(), result->destination(), checked.format,
             checked.picturelessChapters.isArray() ? checked.picturelessChapters : context.slideTransitions,
             checked.params.get("tags") ? *checked.params.get("tags") : Value(), options.recording,
             context.tempFileRecordingPath, checked.recordingSeconds, checked.cover, context.tempProcessingFolderPath},
            request);
        userInterface.finishProgress();
    } catch (const std::exception& failure) {
        userInterface.finishProgress();
        err << "quillora: " << failure.what() << "\n";
        return keptFailure("finished");
    }
    stop.exportEnded();
    try {
        result->deliver();
        deliverCompanions(companions, result->destination().parent_path());
    } catch (const std::exception& failure) {  // with the system's cause: "No space left on device"
        err << "quillora: " << failure.what() << "\n";
        return keptFailure("finished");
    }
    out << "Exported " << result->destination().string() << "\n";
    for (const auto& companion : companions) {
        out << "Wrote " << (result->destination().parent_path() / companion.filename()).string() << "\n";
    }
    if (checked.scratchIsTemporary && !options.keepScratch) {
        removeOurScratch();
    } else {
        out << "The working copy stays in " << context.tempProcessingFolderPath << "; the log is "
            << userInterface.logFile().filename().string() << " there\n";
    }
    return kExitSuccess;
}

}  // namespace quillora::app
