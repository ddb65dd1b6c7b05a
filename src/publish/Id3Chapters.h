// An MP3's ID3v2.3 tag with the lecture's tags, cover and chapters, so that
// podcast apps that read MP3 show the slides too.
#pragma once

#include <filesystem>

#include "publish/PublishedLecture.h"

namespace quillora::publish {

// Tags the existing MP3 file: the text tags, the cover as the front cover,
// and one CHAP frame per chapter (its title, slide picture and link) under a
// top-level, ordered CTOC. Version 2.3, not 2.4: from a 2.4 tag FFmpeg 5.1
// lists only the chapters without a picture. Earlier chapters, pictures and
// the tags written here are replaced; other frames stay. The file is tagged
// as a copy beside it that replaces it at the end, so a failure leaves it as
// it was. Throws PublishError.
void writeId3Chapters(const PublishedLecture& lecture, const std::filesystem::path& mp3Path);

}  // namespace quillora::publish
