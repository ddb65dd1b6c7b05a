#include "ToolPipelineExport.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <sstream>

#include "ExitStatus.h"
#include "ProgramFolder.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "foundation/Progress.h"
#include "foundation/RunLoop.h"

namespace quillora::app {

namespace {

constexpr const char* kHelpAnchor = "Qora0028";

bool isExecutable(const std::filesystem::path& path)
{
    return std::filesystem::is_regular_file(path) && ::access(path.c_str(), X_OK) == 0;
}

// Whether the process runner will find the tool: a path as it is, a bare
// name on the PATH. Asked before the export, so a missing tool is a refusal
// that names it rather than a failed export.
bool canRun(const std::string& tool)
{
    if (tool.find('/') != std::string::npos) return isExecutable(tool);
    const char* searchPath = std::getenv("PATH");
    std::istringstream folders(searchPath ? searchPath : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (!folder.empty() && isExecutable(std::filesystem::path(folder) / tool)) return true;
    }
    return false;
}

}  // namespace

std::string auxiliaryToolsFolder()
{
    const auto beside = programFolder();
    if (beside && std::filesystem::is_directory(*beside / "tools")) return (*beside / "tools").string();
    return QUILLORA_TOOLS_DIR;
}

int runToolPipelineExport(quilloraPlugin& plugin, const Value& params, const std::string& output, std::ostream& err)
{
    auto* quickTime = dynamic_cast<QuickTimePlugin*>(&plugin);
    if (!quickTime) {
        err << "quillora: the loaded plug-in has no external-tool pipeline\n";
        return kExitFailed;
    }
    for (const char* tool : {"ChapterTool", "AtomicParsley"}) {
        if (!canRun(plugin.pathForAuxiliaryExecutable(tool))) {
            err << "quillora: " << tool << " is neither in " << auxiliaryToolsFolder()
                << " nor on the PATH (AtomicParsley is Debian's atomicparsley package)\n";
            return kExitRefused;
        }
    }
    plugin.setExportParams(params);
    try {
        quickTime->createM4AFile(output);
    } catch (const std::exception& failure) {
        err << "quillora: " << failure.what() << "\n";
        return kExitFailed;
    }
    // The tools' reports (a failure among them) come on this thread's loop.
    auto loop = RunLoop::current();
    while (plugin.isExporting() || loop->hasPendingWork()) loop->runOnce(std::chrono::milliseconds(20));
    if (const auto& error = quickTime->saveError()) {
        plugin.userInterface().showAlert(*error, kHelpAnchor);
        return kExitFailed;
    }
    beginProgressStage("Adding the tags");
    const Value* tags = params.get("tags");
    quickTime->setID3Tags(tags && tags->isDictionary() ? *tags : Value::dictionary(), output);
    return kExitSuccess;
}

}  // namespace quillora::app
