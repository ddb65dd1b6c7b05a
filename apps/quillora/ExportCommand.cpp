#include "ExportCommand.h"
#include "StandardLanguages.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <chrono>
#include <ostream>

#include "ExportInputs.h"
#include "PluginLoader.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "QuickTimePlugin/QuilloraTemplate.h"
#include "TerminalUserInterface.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RunLoop.h"
#include "host/ErrorStrings.h"

namespace quillora::app {

namespace {

constexpr const char* kPluginClassName = "QuickTimePlugin";

// The scratch folder, made when needed, with the trailing separator the
// plug-in appends names to.
std::string prepareScratch(const std::optional<std::filesystem::path>& requested)
{
    std::filesystem::path folder;
    if (requested) {
        folder = *requested;
        std::error_code error;
        std::filesystem::create_directories(folder, error);
        if (!std::filesystem::is_directory(folder)) {
            throw InputError(fmt::format("The scratch folder {} cannot be made", folder.string()));
        }
    } else {
        std::string pattern = (std::filesystem::temp_directory_path() / "quillora-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw InputError("No scratch folder can be made in the temporary folder");
        folder = pattern;
    }
    std::string path = std::filesystem::absolute(folder).string();
    if (!path.ends_with('/')) path += '/';
    return path;
}

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
    } else if (options.output && options.output->has_extension()) {
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
    std::error_code error;
    auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) folders.push_back(program.parent_path() / "resources");
    folders.emplace_back(QUILLORA_RESOURCE_DIR);
    for (const auto& folder : folders) {
        const auto table = folder / "errorStrings.strings";
        if (!std::filesystem::is_regular_file(table)) continue;
        ErrorStrings::setErrorStrings(std::make_shared<ErrorStrings>(ErrorStrings::fromFile(table)));
        return;
    }
}

}  // namespace

int runExportCommand(const ExportOptions& options, std::istream& in, std::ostream& out, std::ostream& err)
{
    HostContext context;
    Value params;
    try {
        checkRecording(options.recording);
        context.tempFileRecordingPath = std::filesystem::absolute(options.recording).string();
        context.tempProcessingFolderPath = prepareScratch(options.scratch);
        const std::filesystem::path pictures = std::filesystem::path(context.tempProcessingFolderPath) / "pictures";
        if (options.transitions) context.slideTransitions = readTransitions(*options.transitions, pictures / "slides");
        if (options.screenshots) {
            context.screenshotTransitions = readTransitions(*options.screenshots, pictures / "screenshots");
        }
        params = exportParameters(options);
        UserDefaults::setStandardUserDefaults(
            withPreferredLanguages(options.defaults ? readDefaults(*options.defaults) : UserDefaults()));
        if (options.output) {
            auto folder = std::filesystem::absolute(*options.output).parent_path();
            if (!std::filesystem::is_directory(folder)) {
                throw InputError(fmt::format("The output folder {} does not exist", folder.string()));
            }
        }
    } catch (const InputError& failure) {
        err << "quillora: " << failure.what() << "\n";
        return 2;
    } catch (const std::filesystem::filesystem_error& failure) {
        err << "quillora: " << failure.what() << "\n";
        return 2;
    }

    auto search = loadPlugins(options.pluginFolders.empty() ? defaultPluginFolders() : options.pluginFolders);
    const PluginClass* pluginClass = nullptr;
    for (const auto& plugin : search.plugins) {
        if (plugin.pluginClass->className == kPluginClassName) pluginClass = plugin.pluginClass;
    }
    if (!pluginClass) {
        err << "quillora: the QuickTime plug-in module was not found";
        for (const auto& problem : search.problems) err << "\n  " << problem;
        err << "\n";
        return 1;
    }

    try {
        installErrorStrings();
    } catch (const std::exception& failure) {
        err << "quillora: warning: the error texts cannot be read: " << failure.what() << "\n";
    }
    TerminalUserInterface userInterface(in, out, options.verbose);
    context.userInterface = &userInterface;
    std::optional<std::string> completedPath;
    auto observation = NotificationCenter::defaultCenter().addObserver(
        QuilloraQuickTimePluginExportCompleteNotification, nullptr, [&completedPath](const Notification& notification) {
            completedPath = notification.userInfo.stringForKey("resultFilePath");
        });

    auto plugin = pluginClass->create(context);
    out << "Exporting " << options.recording.string() << " as " << *params.stringForKey("format") << "\n";
    if (options.output) {
        plugin->exportDataWithParams(params, std::filesystem::absolute(*options.output).string(), nullptr);
    } else {
        plugin->exportDataWithParams(params);
    }
    auto loop = RunLoop::current();
    while (plugin->isExporting() || loop->hasPendingWork()) loop->runOnce(std::chrono::milliseconds(20));
    plugin.reset();
    NotificationCenter::defaultCenter().removeObserver(observation);

    if (userInterface.alertShown()) return 1;
    if (!completedPath) {
        out << "Nothing was exported.\n";
        return options.output ? 1 : 0;
    }
    if (!std::filesystem::is_regular_file(*completedPath)) {
        err << "quillora: the export did not produce " << *completedPath << "\n";
        return 1;
    }
    out << "Exported " << *completedPath << "\n";
    out << "The working copy stays in " << context.tempProcessingFolderPath << "\n";
    return 0;
}

}  // namespace quillora::app
