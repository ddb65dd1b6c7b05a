// The entry point of the QuickTime plug-in module: hosts load the module and
// ask this function for the plug-in class.
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "host/PluginClass.h"

extern "C" __attribute__((visibility("default"))) const quillora::PluginClass* quilloraPluginClass()
{
    using quillora::QuickTimePlugin;
    static const quillora::PluginClass pluginClass{
        "QuickTimePlugin", QuickTimePlugin::pluginTitle(), QuickTimePlugin::pluginDescription(),
        QuickTimePlugin::pluginIcon(), [](quillora::HostContext context) -> std::unique_ptr<quillora::quilloraPlugin> {
            return std::make_unique<QuickTimePlugin>(std::move(context));
        }};
    return &pluginClass;
}
