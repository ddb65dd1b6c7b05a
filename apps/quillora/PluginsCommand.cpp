#include "PluginsCommand.h"

#include <ostream>

#include "PluginLoader.h"

namespace quillora::app {

int runPluginsCommand(const std::vector<std::filesystem::path>& folders, std::ostream& out, std::ostream& err)
{
    auto search = loadPlugins(folders.empty() ? defaultPluginFolders() : folders);
    for (const auto& plugin : search.plugins) {
        const auto& info = *plugin.pluginClass;
        out << info.title << " (" << info.className << "): " << info.description << "\n  " << plugin.modulePath.string()
            << "\n";
    }
    for (const auto& problem : search.problems) err << "quillora: warning: " << problem << "\n";
    if (search.plugins.empty()) {
        err << "quillora: no plug-ins found\n";
        return 1;
    }
    return 0;
}

}  // namespace quillora::app
