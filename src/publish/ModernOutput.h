// The host's side of --modern before the plug-in runs: with it, the screen
// shots go to the plug-in as slides and the repairs are readied; without
// it, the limits this lecture will show are listed.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/Value.h"
#include "host/quilloraPlugin.h"
#include "publish/ModernRepairs.h"

namespace quillora::publish {

struct ModernOutput {
    std::optional<ModernInputs> repairs;  // to apply once the plug-in's export has succeeded
    std::vector<std::string> notes;       // lines to show the user
};

// requested: --modern was given; the preference "modernOutput" asks for it
// too. params: the export parameters ("format", "tags"). Reads the
// preferences the plug-in will read.
ModernOutput prepareModernOutput(HostContext& context, const Value& params, bool requested);

}  // namespace quillora::publish
