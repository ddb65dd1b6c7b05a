#include "publish/CourseFeed.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <sstream>

#include "publish/NameBasedUuid.h"

namespace quillora::publish {

namespace {

void addText(pugi::xml_node parent, const char* name, const std::string& text)
{
    parent.append_child(name).text().set(text.c_str());
}

}  // namespace

std::string podcastMimeType(const std::string& format)
{
    if (format == ".m4v") return "video/x-m4v";
    if (format == ".mov") return "video/quicktime";
    if (format == ".m4b") return "audio/x-m4b";
    return "audio/x-m4a";
}

std::string rfc822Date(Date date)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    // Spelled out rather than by strftime, whose names follow the locale.
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return fmt::format("{}, {:02} {} {} {:02}:{:02}:{:02} GMT", kDays[parts.tm_wday], parts.tm_mday,
                       kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

std::string itunesDuration(double seconds)
{
    const auto whole = static_cast<long long>(std::llround(std::max(0.0, seconds)));
    return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

std::string courseFeedXml(const Course& course, const std::string& artworkUrl, const std::vector<FeedItem>& items)
{
    pugi::xml_document document;
    auto declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    auto rss = document.append_child("rss");
    rss.append_attribute("version") = "2.0";
    rss.append_attribute("xmlns:itunes") = "http://www.itunes.com/dtds/podcast-1.0.dtd";
    rss.append_attribute("xmlns:podcast") = "https://podcastindex.org/namespace/1.0";
    rss.append_attribute("xmlns:atom") = "http://www.w3.org/2005/Atom";
    auto channel = rss.append_child("channel");
    addText(channel, "title", course.title);
    addText(channel, "link", course.link);
    addText(channel, "description", course.description);
    addText(channel, "language", course.language);
    auto self = channel.append_child("atom:link");
    self.append_attribute("href") = course.feedUrl().c_str();
    self.append_attribute("rel") = "self";
    self.append_attribute("type") = "application/rss+xml";
    addText(channel, "itunes:author", course.author);
    channel.append_child("itunes:image").append_attribute("href") = artworkUrl.c_str();
    auto category = channel.append_child("itunes:category");
    category.append_attribute("text") = course.category.front().c_str();
    if (course.category.size() > 1) {
        category.append_child("itunes:category").append_attribute("text") = course.category.back().c_str();
    }
    addText(channel, "itunes:explicit", course.explicitContent ? "true" : "false");
    addText(channel, "podcast:guid", podcastGuid(course.feedUrl()));

    for (const auto& item : items) {
        auto entry = channel.append_child("item");
        addText(entry, "title", item.title);
        addText(entry, "description", item.description);
        auto guid = entry.append_child("guid");
        guid.append_attribute("isPermaLink") = "false";
        guid.text().set(item.guid.c_str());
        addText(entry, "pubDate", rfc822Date(item.published));
        auto enclosure = entry.append_child("enclosure");
        enclosure.append_attribute("url") = item.enclosureUrl.c_str();
        enclosure.append_attribute("length") = std::to_string(item.bytes).c_str();
        enclosure.append_attribute("type") = item.mimeType.c_str();
        addText(entry, "itunes:duration", itunesDuration(item.seconds));
        entry.append_child("itunes:image").append_attribute("href") = item.imageUrl.c_str();
        addText(entry, "itunes:explicit", course.explicitContent ? "true" : "false");
        if (item.chaptersUrl) {
            auto chapters = entry.append_child("podcast:chapters");
            chapters.append_attribute("url") = item.chaptersUrl->c_str();
            chapters.append_attribute("type") = "application/json+chapters";
        }
    }
    std::ostringstream text;
    document.save(text, "  ", pugi::format_default, pugi::encoding_utf8);
    return text.str();
}

}  // namespace quillora::publish
