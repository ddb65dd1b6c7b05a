// A course's podcast feed: RSS 2.0 with the iTunes and Podcasting 2.0
// namespaces, one item per published lecture.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Value.h"
#include "publish/CourseManifest.h"

namespace quillora::publish {

struct FeedItem {
    std::string title;
    std::string description;
    std::string guid;
    Date published;
    std::string enclosureUrl;
    std::uintmax_t bytes = 0;
    std::string mimeType;
    double seconds = 0;
    std::string imageUrl;
    std::optional<std::string> chaptersUrl;  // Podcasting 2.0 JSON chapters
};

// The feed's text, items in the order given. The same course and items
// always give the same bytes (no build date), so an unchanged course leaves
// its feed as it was.
std::string courseFeedXml(const Course& course, const std::string& artworkUrl, const std::vector<FeedItem>& items);

// The enclosure type of a published file by its format (".m4a", ".m4b", ".m4v", ".mov").
std::string podcastMimeType(const std::string& format);
// "Mon, 02 Sep 2024 10:15:00 GMT"
std::string rfc822Date(Date date);
// "H:MM:SS", whole seconds rounded.
std::string itunesDuration(double seconds);

}  // namespace quillora::publish
