// How a host finds a plug-in in a loadable module: the module exports one C
// function, kPluginClassSymbol, that describes the plug-in class and makes
// instances of it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/quilloraPlugin.h"

namespace quillora {

struct PluginClass {
    std::string className;
    std::string title;
    std::string description;
    std::string iconName;
    // Makes an instance for a host; the instance shows its window at once.
    std::function<std::unique_ptr<quilloraPlugin>(HostContext)> create;
};

inline constexpr const char* kPluginClassSymbol = "quilloraPluginClass";
using PluginClassFunction = const PluginClass* (*)();

}  // namespace quillora
