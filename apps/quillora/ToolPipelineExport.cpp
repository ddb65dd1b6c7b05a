#include "ToolPipelineExport.h"

#include <chrono>
#include <ostream>

#include "ExitStatus.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "foundation/RunLoop.h"

namespace quillora::app {

namespace {

constexpr const char* kHelpAnchor = "Qora0028";

}  // namespace

std::string auxiliaryToolsFolder()
{
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error && std::filesystem::is_directory(program.parent_path() / "tools")) {
        return (program.parent_path() / "tools").string();
    }
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
        if (plugin.pathForAuxiliaryExecutable(tool).empty()) {
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
    return kExitSuccess;
}

}  // namespace quillora::app
