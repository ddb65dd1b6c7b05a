#include "PluginLoader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>
#include <system_error>

#include "ProgramFolder.h"

namespace quillora::app {

PluginSearch loadPlugins(const std::vector<std::filesystem::path>& folders)
{
    PluginSearch search;
    std::set<std::filesystem::path> seen;
    for (const auto& folder : folders) {
        std::error_code error;
        std::vector<std::filesystem::path> modules;
        for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
            if (entry.path().extension() == ".so") modules.push_back(entry.path());
        }
        std::sort(modules.begin(), modules.end());
        for (const auto& module : modules) {
            auto canonical = std::filesystem::weakly_canonical(module, error);
            if (!seen.insert(canonical).second) continue;
            void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (!handle) {
                search.problems.push_back(module.string() + ": " + dlerror());
                continue;
            }
            auto entry = reinterpret_cast<PluginClassFunction>(dlsym(handle, kPluginClassSymbol));
            if (!entry || !entry()) {
                search.problems.push_back(module.string() + ": not a plug-in (no " + kPluginClassSymbol + ")");
                dlclose(handle);
                continue;
            }
            search.plugins.push_back({module, entry()});
        }
    }
    return search;
}

std::vector<std::filesystem::path> defaultPluginFolders()
{
    std::vector<std::filesystem::path> folders;
    if (const char* path = std::getenv("QUILLORA_PLUGIN_PATH")) {
        std::stringstream list(path);
        for (std::string folder; std::getline(list, folder, ':');) {
            if (!folder.empty()) folders.emplace_back(folder);
        }
    }
    if (auto beside = programFolder()) folders.push_back(*beside / "plugins");
#ifdef QUILLORA_PLUGIN_DIR
    folders.emplace_back(QUILLORA_PLUGIN_DIR);
#endif
    return folders;
}

}  // namespace quillora::app
