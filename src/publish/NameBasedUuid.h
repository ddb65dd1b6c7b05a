// Name-based UUIDs (version 5, SHA-1): the same name in the same namespace
// always gives the same UUID, which is what makes a feed's and its items'
// identities survive a republication.
#pragma once

#include <string>
#include <string_view>

namespace quillora::publish {

// The namespace podcast directories use for a feed's podcast:guid.
inline constexpr std::string_view kPodcastGuidNamespace = "ead4c236-bf58-58c6-a2c6-a6b28d128cb6";

// namespaceUuid in its 36-character text form; the result in the same form,
// lower case. Throws PublishError for a namespace that is no UUID.
std::string nameBasedUuid(std::string_view namespaceUuid, std::string_view name);

// A feed's podcast:guid: the UUID of its URL without the scheme and the
// trailing slashes.
std::string podcastGuid(std::string_view feedUrl);

}  // namespace quillora::publish
