// The fixed IDs of the tracks an enhanced podcast gains. The sound track's
// chapter reference names the first two, so a recording whose own track has
// one of these IDs cannot take them.
#pragma once

#include <array>
#include <cstdint>

namespace quillora {

inline constexpr std::uint32_t kChapterTrackID = 2;
inline constexpr std::uint32_t kPictureTrackID = 3;
inline constexpr std::uint32_t kLinkTrackID = 4;
inline constexpr std::array<std::uint32_t, 3> kPodcastTrackIDs = {kChapterTrackID, kPictureTrackID, kLinkTrackID};

}  // namespace quillora
