// Finds plug-in modules in a folder and loads them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/PluginClass.h"

namespace quillora::app {

struct LoadedPlugin {
    std::filesystem::path modulePath;
    const PluginClass* pluginClass = nullptr;
};

struct PluginSearch {
    std::vector<LoadedPlugin> plugins;
    std::vector<std::string> problems;  // modules that could not be loaded, and why
};

// Every "*.so" in the folders that exports the plug-in class function. The
// modules stay loaded for the life of the process.
PluginSearch loadPlugins(const std::vector<std::filesystem::path>& folders);

// The folders searched by default: QUILLORA_PLUGIN_PATH (colon-separated)
// when set, the folder beside the program, and the build's plug-in folder.
std::vector<std::filesystem::path> defaultPluginFolders();

}  // namespace quillora::app
