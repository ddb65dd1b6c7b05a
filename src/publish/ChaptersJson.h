// NAME.chapters.json: the chapters in the Podcasting 2.0 JSON chapters format
// (version 1.2.0), which podcast apps load from the feed's podcast:chapters
// link, with the slide pictures copied into a folder beside it.
//
// The format has no place for a cover or a link's title: the cover belongs to
// the feed, and a chapter's "url" stands alone.
#pragma once

#include <filesystem>
#include <string_view>

#include "publish/PublishedLecture.h"

namespace quillora::publish {

// The pictures go into slidesFolder (inside the JSON file's folder, made or
// replaced as a whole) as 01.jpg, 02.png, ...: the chapter's number, as many
// digits as the count needs (two at least), and the picture's own extension.
// Each chapter's "img" is the picture's URL relative to the JSON file, or
// under baseUrl when one is given (the folder the files are published in).
// Writes everything or throws PublishError, leaving nothing partial behind.
void writeChaptersJson(const PublishedLecture& lecture, const std::filesystem::path& jsonPath,
                       const std::filesystem::path& slidesFolder, std::string_view baseUrl = {});

}  // namespace quillora::publish
