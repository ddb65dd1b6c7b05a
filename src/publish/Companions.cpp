#include "publish/Companions.h"

#include <fmt/format.h>

#include "audio/Mp3Encoding.h"
#include "foundation/Progress.h"
#include "publish/ChaptersJson.h"
#include "publish/Id3Chapters.h"
#include "publish/WebPage.h"
#include "publish/WebVtt.h"

namespace quillora::publish {

namespace {

bool blank(const std::string& text)
{
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

}  // namespace

std::optional<Companion> companionNamed(std::string_view name)
{
    if (name == "chapters-json") return Companion::chaptersJson;
    if (name == "webvtt") return Companion::webVtt;
    if (name == "web") return Companion::webPage;
    if (name == "mp3") return Companion::mp3;
    return std::nullopt;
}

PublishedLecture lectureFromTransitions(const Value& slides, double seconds, const Value& tags)
{
    PublishedLecture lecture;
    lecture.duration = seconds;
    if (tags.isDictionary()) lecture.tags = tags;
    const auto records = slides.asArray();
    if (!records) return lecture;
    for (std::size_t i = 0; i < records->size(); ++i) {
        const Value& record = (*records)[i];
        PublishedChapter chapter;
        chapter.start = static_cast<double>(record.integerForKey("timeValue").value_or(0)) / 600.0;
        chapter.title = record.stringForKey("slideTitle").value_or("");
        if (blank(chapter.title)) chapter.title = fmt::format("Chapter {}", i + 1);
        if (const Value* link = record.get("linkURL")) {
            chapter.url = link->stringForKey("url");
            chapter.linkTitle = link->stringForKey("title");
            if (chapter.url && chapter.url->empty()) chapter.url.reset();
        }
        if (auto picture = record.stringForKey("imagePath"); picture && std::filesystem::is_regular_file(*picture)) {
            chapter.picture = *picture;
        }
        if (!lecture.chapters.empty()) lecture.chapters.back().end = chapter.start;
        lecture.chapters.push_back(std::move(chapter));
    }
    if (!lecture.chapters.empty()) lecture.chapters.back().end = seconds;
    return lecture;
}

std::vector<std::filesystem::path> writeCompanions(const PublishedLecture& lecture, const CompanionRequest& request,
                                                   const std::filesystem::path& folder, const std::string& name,
                                                   const std::string& podcastFileName,
                                                   const std::filesystem::path& sound)
{
    std::vector<std::filesystem::path> made;
    const auto wants = [&](Companion companion) { return request.companions.count(companion) > 0; };
    std::string mediaFileName = podcastFileName;
    if (wants(Companion::mp3)) {
        beginProgressStage("Encoding the MP3");
        const auto mp3 = folder / (name + ".mp3");
        audio::encodeMp3(sound, mp3, {std::nullopt, request.bitrate}, [](double fraction) {
            reportProgress(ProgressUnit::fraction, static_cast<std::int64_t>(fraction * 1000), 1000);
        });
        beginProgressStage("Adding the MP3's chapters");
        writeId3Chapters(lecture, mp3);
        made.push_back(mp3);
        mediaFileName = mp3.filename().string();
    }
    const std::string chaptersFileName = name + ".chapters.json";
    if (wants(Companion::chaptersJson) || wants(Companion::webPage)) {
        beginProgressStage("Writing the chapters file");
        writeChaptersJson(lecture, folder / chaptersFileName, folder / (name + "-slides"), request.baseUrl);
        made.push_back(folder / chaptersFileName);
        // Made only for a lecture with pictures.
        if (std::filesystem::is_directory(folder / (name + "-slides"))) made.push_back(folder / (name + "-slides"));
    }
    if (wants(Companion::webVtt)) {
        writeWebVtt(lecture, folder / (name + ".chapters.vtt"));
        made.push_back(folder / (name + ".chapters.vtt"));
    }
    if (wants(Companion::webPage)) {
        beginProgressStage("Writing the web page");
        writeWebPage(lecture, folder / (name + ".html"), mediaFileName, chaptersFileName);
        made.push_back(folder / (name + ".html"));
    }
    return made;
}

}  // namespace quillora::publish
