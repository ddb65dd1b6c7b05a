// What the host adds around the plug-in's podcast: the episode artwork in it,
// and the companion files beside it, all made in the staging folder so that
// they land only when everything succeeded.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Value.h"
#include "publish/Companions.h"

namespace quillora::app {

struct CompanionInputs {
    std::filesystem::path staged;       // the plug-in's finished result
    std::filesystem::path destination;  // where it will land
    std::string format;                 // ".m4b", ".mov", ...
    Value slides;                       // the transitions, their pictures redrawn
    Value tags;
    std::filesystem::path recording;  // the user's own, for its cover
    std::filesystem::path sound;      // the prepared recording
    double seconds = 0;
    std::optional<std::filesystem::path> cover;  // --cover, or the tag "cover"
    std::filesystem::path scratch;
};

// Adds the cover to the staged podcast (a given picture, else the
// recording's own) and writes the requested companions beside it. Returns
// the companions made, for delivery. Throws std::exception with the cause.
std::vector<std::filesystem::path> addCoverAndCompanions(const CompanionInputs& inputs,
                                                         const publish::CompanionRequest& request);

// Moves each staged companion beside the destination, replacing an earlier
// one of the same name. Throws std::filesystem::filesystem_error.
void deliverCompanions(const std::vector<std::filesystem::path>& made, const std::filesystem::path& folder);

}  // namespace quillora::app
