#include "ExportInputs.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <system_error>
#include <vips/vips8>

#include "InputChecks.h"
#include "QuickTimePlugin/TransitionKeys.h"
#include "SlideDeck.h"
#include "foundation/FileHandle.h"
#include "foundation/PropertyList.h"
#include "images/PdfPages.h"
#include "images/PicturePreparation.h"
#include "layout/ColorData.h"
#include "publish/ChapterMarks.h"

namespace quillora::app {

namespace {

// Longer titles are left out of messages rather than fill the terminal.
constexpr std::size_t kLongestTitleShown = 80;

// Where records came from, for the messages: "talk.txt: chapter 3".
struct RecordSource {
    std::filesystem::path file;
    const char* noun;
};

// The picture as the resizer is to draw it: a byte copy, or an upright,
// reduced or decoded one (see placePicture).
std::filesystem::path copyPicture(const std::filesystem::path& source, const PictureHeader& header,
                                  std::optional<double> frame, const std::filesystem::path& folder, std::size_t index)
{
    std::filesystem::create_directories(folder);
    auto copy = folder / fmt::format("{:03}-{}", index + 1, source.filename().string());
    try {
        return placePicture(source, header, frame, copy);
    } catch (const vips::VError& refused) {
        const std::string message = imageLibraryMessage(refused);
        if (header.formatNeedingDecoder) {
            throw InputError(fmt::format("The picture {} cannot be read: {}", source.string(),
                                         undecodedFormatProblem(*header.formatNeedingDecoder, message)));
        }
        throw InputError(
            fmt::format("The picture {} cannot be prepared in {}: {}", source.string(), folder.string(), message));
    }
}

// The checks every record goes through, whichever file it came from; PDF
// pages are drawn first (all at once, on every core), then checked as any
// other picture.
Transitions checkRecords(Value list, const RecordSource& source, const std::filesystem::path& pictureFolder,
                         std::uint64_t recordingDuration, const TransitionRules& rules)
{
    Array& records = *list.asArray();
    const auto base = source.file.parent_path();
    const bool pictured = records.empty() || std::any_of(records.begin(), records.end(), [](const Value& record) {
                              return record.asDictionary() && record.get(QRTransitionImagePathKey);
                          });
    std::vector<std::string> places;
    std::vector<std::optional<std::filesystem::path>> drawn(records.size());
    std::vector<std::filesystem::path> pictures;
    std::vector<PdfPageRequest> pages;
    std::map<std::filesystem::path, int> pageCounts;
    for (std::size_t i = 0; i < records.size(); ++i) {
        auto record = records[i].asDictionary();
        std::string where = fmt::format("{}: {} {}", source.file.string(), source.noun, i + 1);
        if (!record) throw InputError(where + " is not a dictionary");
        if (auto title = records[i].stringForKey("slideTitle"); title && title->size() <= kLongestTitleShown) {
            where += fmt::format(" (\"{}\")", *title);
        }
        places.push_back(where);
        if (!pictured) continue;
        const Value* image = record->find(QRTransitionImagePathKey);
        if (!image || !image->asString()) throw InputError(where + " has no \"imagePath\"");
        const PictureReference reference = pictureReference(*image->asString());
        std::filesystem::path picture = reference.file;
        if (picture.is_relative()) picture = base / picture;
        if (!std::filesystem::is_regular_file(picture)) {
            throw InputError(fmt::format("{}: the picture {} does not exist", where, picture.string()));
        }
        pictures.push_back(picture);
        if (!reference.page) continue;
        auto known = pageCounts.find(picture);
        if (known == pageCounts.end()) {
            try {
                known = pageCounts.emplace(picture, pdfPageCount(picture)).first;
            } catch (const PdfPagesError& failure) {
                throw InputError(fmt::format("{}: {}", where, failure.what()));
            }
        }
        if (*reference.page < 1 || *reference.page > known->second) {
            throw InputError(fmt::format("{}: {} has pages 1 to {}; there is no page {}", where, picture.string(),
                                         known->second, *reference.page));
        }
        drawn[i] = pictureFolder / fmt::format("{:03}-{}-page{}.png", i + 1, picture.stem().string(), *reference.page);
        pages.push_back({picture, *reference.page, *drawn[i]});
    }
    if (!pages.empty()) {
        std::filesystem::create_directories(pictureFolder);
        try {
            renderPdfPages(pages);
        } catch (const PdfPagesError& failure) {
            throw InputError(fmt::format("{}: {}", source.file.string(), failure.what()));
        }
    }
    std::vector<std::string> warnings;
    std::optional<std::int64_t> previousTime;
    for (std::size_t i = 0; i < records.size(); ++i) {
        std::optional<std::filesystem::path> picture;
        if (pictured) picture = drawn[i] ? *drawn[i] : pictures[i];
        previousTime = checkTransition(*records[i].asDictionary(), picture, places[i], previousTime, recordingDuration,
                                       rules, warnings);
    }
    if (!pictured) return {std::move(list), std::move(pictures), std::move(warnings), rules.largestFrame, false};
    // The checks above opened every picture, so their headers read. A drawn
    // page is already where the resizer reads it, at its size in points.
    std::vector<PictureHeader> headers;
    for (std::size_t i = 0; i < records.size(); ++i)
        headers.push_back(readPictureHeader(drawn[i] ? *drawn[i] : pictures[i]));
    const std::optional<double> frame = rules.largestFrame ? rules.largestFrame : largestFrameFor(headers);
    for (std::size_t i = 0; i < records.size(); ++i) {
        const auto copy = drawn[i] ? *drawn[i] : copyPicture(pictures[i], headers[i], frame, pictureFolder, i);
        records[i].asDictionary()->set(QRTransitionImagePathKey, copy.string());
    }
    return {std::move(list), std::move(pictures), std::move(warnings), frame, true};
}

// Two marks a fraction of a unit apart would become one time, which the
// checks would only report as a time that does not increase.
void refuseSharedUnits(const Array& records, const std::vector<publish::ChapterMark>& marks,
                       const std::filesystem::path& file)
{
    for (std::size_t i = 1; i < records.size(); ++i) {
        const auto time = records[i].get("timeValue")->asInteger();
        if (time != records[i - 1].get("timeValue")->asInteger()) continue;
        throw InputError(fmt::format("{}: the chapters \"{}\" at {:.4f} s and \"{}\" at {:.4f} s fall on the "
                                     "same 1/600 s ({}) of the podcast's times; move them at least 1/600 s apart",
                                     file.string(), marks[i - 1].title, marks[i - 1].start, marks[i].title,
                                     marks[i].start, *time));
    }
}

void carryPicturesForward(Array& records)
{
    const auto first = std::find_if(records.begin(), records.end(),
                                    [](const Value& record) { return record.get(QRTransitionImagePathKey); });
    if (first == records.end()) return;
    Value shown = *first->get(QRTransitionImagePathKey);
    for (Value& record : records) {
        if (const Value* own = record.get(QRTransitionImagePathKey)) {
            shown = *own;
        } else {
            record.asDictionary()->set(QRTransitionImagePathKey, shown);
        }
    }
}

}  // namespace

Value readInputFile(const std::filesystem::path& path, std::string_view what)
{
    if (!std::filesystem::is_regular_file(path))
        throw InputError(fmt::format("{} {} does not exist", what, path.string()));
    try {
        return readValueFile(path);
    } catch (const std::exception& failure) {
        throw InputError(fmt::format("{} {} cannot be read: {}", what, path.string(), failure.what()));
    }
}

Transitions readTransitions(const std::filesystem::path& path, const std::filesystem::path& pictureFolder,
                            std::uint64_t recordingDuration, const TransitionRules& rules, const SlideChoice& slides)
{
    Value transitions = readInputFile(path, "The transitions file");
    if (!transitions.asArray()) throw InputError(fmt::format("{}: expected an array of transitions", path.string()));
    if (slides.deck) SlideDeck::open(*slides.deck).assignTo(*transitions.asArray(), slides.slidesFor, "transitions");
    return checkRecords(std::move(transitions), {path, "transition"}, pictureFolder, recordingDuration, rules);
}

Transitions readChapters(const std::filesystem::path& path, const std::filesystem::path& pictureFolder,
                         std::uint64_t recordingDuration, const TransitionRules& rules, const SlideChoice& slides)
{
    std::vector<publish::ChapterMark> marks;
    try {
        marks = publish::readChapterMarks(path);
    } catch (const publish::ChapterMarksError& failure) {
        throw InputError(failure.what());
    }
    if (marks.empty()) throw InputError(fmt::format("The chapter file {} holds no chapters", path.string()));
    Value chapters = publish::transitionsFromChapterMarks(marks);
    Array& records = *chapters.asArray();
    refuseSharedUnits(records, marks, path);
    if (slides.deck) {
        SlideDeck::open(*slides.deck).assignTo(records, slides.slidesFor, "chapters");
    } else {
        carryPicturesForward(records);
    }
    return checkRecords(std::move(chapters), {path, "chapter"}, pictureFolder, recordingDuration, rules);
}

Value readTags(const std::filesystem::path& path)
{
    Value tags = readInputFile(path, "The tags file");
    auto entries = tags.asDictionary();
    if (!entries) throw InputError(fmt::format("{}: expected a dictionary of tags", path.string()));
    for (const auto& [key, value] : *entries) {
        if (!value.asString()) throw InputError(fmt::format("{}: the tag \"{}\" is not text", path.string(), key));
    }
    return tags;
}

UserDefaults readDefaults(const std::filesystem::path& path)
{
    Value values = readInputFile(path, "The defaults file");
    auto entries = values.asDictionary();
    if (!entries) throw InputError(fmt::format("{}: expected a dictionary of preferences", path.string()));
    for (const char* key : {"textTrackFontColor", "textTrackBackgroundColor"}) {
        Value* colour = entries->find(key);
        if (!colour) continue;
        const std::optional<std::string> text = colour->asString() ? std::optional(*colour->asString()) : std::nullopt;
        if (text) *colour = Value(Bytes(text->begin(), text->end()));
        if (colour->asData() && colorComponentsFromData(*colour->asData())) continue;
        const std::string given = text               ? fmt::format("\"{}\"", *text)
                                  : colour->asData() ? std::string("data that holds no RGB or white colour")
                                                     : std::string("not a colour");
        throw InputError(fmt::format("{}: \"{}\" is {}; give a CSS colour name (\"red\", \"transparent\"), #RGB, "
                                     "#RGBA, #RRGGBB or #RRGGBBAA",
                                     path.string(), key, given));
    }
    return UserDefaults(entries);
}

}  // namespace quillora::app
