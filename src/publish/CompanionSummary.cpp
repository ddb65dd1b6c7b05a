#include "publish/CompanionSummary.h"

#include <chapterframe.h>
#include <id3v2tag.h>
#include <mpegfile.h>

#include "publish/ChapterMarks.h"

namespace quillora::publish {

namespace {

CompanionSummary summarizeChapterFile(const std::filesystem::path& file)
{
    CompanionSummary summary;
    summary.file = file;
    try {
        for (const auto& mark : readChapterMarks(file)) {
            ++summary.chapters;
            if (mark.picture && std::filesystem::is_regular_file(*mark.picture)) ++summary.pictures;
            if (mark.url) ++summary.links;
        }
    } catch (const std::exception& failure) {
        summary.problem = failure.what();
    }
    return summary;
}

CompanionSummary summarizeMp3(const std::filesystem::path& file)
{
    CompanionSummary summary;
    summary.file = file;
    TagLib::MPEG::File mp3(file.c_str(), false);
    TagLib::ID3v2::Tag* tag = mp3.isValid() ? mp3.ID3v2Tag() : nullptr;
    if (!tag) {
        summary.problem = "no ID3v2 tag could be read";
        return summary;
    }
    for (const auto* frame : tag->frameList("CHAP")) {
        const auto* chapter = dynamic_cast<const TagLib::ID3v2::ChapterFrame*>(frame);
        if (!chapter) continue;
        ++summary.chapters;
        if (!chapter->embeddedFrameList("APIC").isEmpty()) ++summary.pictures;
        if (!chapter->embeddedFrameList("WXXX").isEmpty()) ++summary.links;
    }
    return summary;
}

}  // namespace

std::vector<CompanionSummary> summarizeCompanions(const std::filesystem::path& file)
{
    std::vector<CompanionSummary> found;
    auto beside = [&](const std::string& suffix) {
        auto path = file;
        path.replace_extension();
        path += suffix;
        return std::filesystem::is_regular_file(path) ? std::optional(path) : std::nullopt;
    };
    if (auto json = beside(".chapters.json")) found.push_back(summarizeChapterFile(*json));
    if (auto vtt = beside(".chapters.vtt")) found.push_back(summarizeChapterFile(*vtt));
    if (auto mp3 = beside(".mp3"); mp3 && *mp3 != file) found.push_back(summarizeMp3(*mp3));
    if (auto page = beside(".html")) {
        CompanionSummary summary;
        summary.file = *page;
        found.push_back(summary);
    }
    return found;
}

}  // namespace quillora::publish
