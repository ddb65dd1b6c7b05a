// NAME.html: one self-contained page that plays the lecture beside it and
// shows the slide of the moment, the chapter list and the slide's link.
#pragma once

#include <filesystem>
#include <string_view>

#include "publish/PublishedLecture.h"

namespace quillora::publish {

// mediaFileName and chaptersFileName name files beside the page (relative
// references). The chapters file (writeChaptersJson) must be written first:
// the page carries a copy of it, used when the browser will not fetch the
// file itself. The title and the text tags come from the lecture. Writes
// everything or throws PublishError.
void writeWebPage(const PublishedLecture& lecture, const std::filesystem::path& htmlPath,
                  std::string_view mediaFileName, std::string_view chaptersFileName);

}  // namespace quillora::publish
