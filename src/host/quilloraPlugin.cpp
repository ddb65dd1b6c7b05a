#include "host/quilloraPlugin.h"

#include <stdexcept>

namespace quillora {

HostUserInterface& quilloraPlugin::userInterface() const
{
    if (!context_.userInterface) throw std::logic_error("the host gave the plug-in no user interface");
    return *context_.userInterface;
}

}  // namespace quillora
