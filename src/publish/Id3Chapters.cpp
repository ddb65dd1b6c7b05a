#include "publish/Id3Chapters.h"

#include <attachedpictureframe.h>
#include <chapterframe.h>
#include <commentsframe.h>
#include <fmt/format.h>
#include <id3v2tag.h>
#include <mpegfile.h>
#include <tableofcontentsframe.h>
#include <textidentificationframe.h>
#include <urllinkframe.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string_view>

#include "foundation/FileHandle.h"
#include "publish/PublishError.h"
#include "publish/StagedOutput.h"

namespace quillora::publish {

namespace {

using TagLib::ByteVector;
using TagLib::String;
namespace ID3v2 = TagLib::ID3v2;

// The tags as the frames players show them: the lecture is a track (title,
// artist) of an album that is the class; the university publishes it.
// "class number" is the track number when it is one; the description is the
// comment; any other text tag is a TXXX frame under its own name.
struct TagFrame {
    std::string_view key;
    const char* frame;
};
constexpr TagFrame kTagFrames[] = {
    {"title", "TIT2"}, {"author", "TPE1"}, {"copyright", "TCOP"}, {"class name", "TALB"}, {"university", "TPUB"},
};
// Frames this writer owns: replaced on every write.
constexpr const char* kOwnedFrames[] = {"TIT2", "TPE1", "TCOP", "TALB", "TPUB", "TRCK",
                                        "COMM", "TXXX", "APIC", "CHAP", "CTOC"};
constexpr std::uint32_t kNoByteOffset = 0xFFFFFFFF;

// Plain ASCII stays one byte a character; anything else goes as UTF-16, the
// Unicode encoding version 2.3 knows.
String::Type encodingFor(const std::string& text)
{
    const bool ascii =
        std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return ascii ? String::Latin1 : String::UTF16;
}

String text(const std::string& value)
{
    return String(value, String::UTF8);
}

std::unique_ptr<ID3v2::Frame> textFrame(const char* id, const std::string& value)
{
    auto frame = std::make_unique<ID3v2::TextIdentificationFrame>(ByteVector(id), encodingFor(value));
    frame->setText(text(value));
    return frame;
}

std::string tagText(const Value& value)
{
    if (const auto* string = value.asString()) return *string;
    if (value.isInteger()) return std::to_string(*value.asInteger());
    return {};
}

std::string pictureMimeType(const ByteVector& bytes, const std::filesystem::path& path)
{
    if (bytes.startsWith(ByteVector("\xFF\xD8\xFF", 3))) return "image/jpeg";
    if (bytes.startsWith(ByteVector("\x89PNG\r\n\x1A\n", 8))) return "image/png";
    throw PublishError(fmt::format("The picture {} is neither JPEG nor PNG, the kinds an MP3's tag carries. Save "
                                   "it as one of them.",
                                   path.string()));
}

std::unique_ptr<ID3v2::Frame> pictureFrame(const std::filesystem::path& path)
{
    Bytes bytes;
    try {
        bytes = FileHandle::forReading(path).readDataToEndOfFile();
    } catch (const FileError& error) {
        throw PublishError(fmt::format("Cannot read the picture {}: {}. Check that it exists and can be read.",
                                       path.string(), error.code().message()));
    }
    const ByteVector data(reinterpret_cast<const char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
    auto frame = std::make_unique<ID3v2::AttachedPictureFrame>();
    frame->setMimeType(pictureMimeType(data, path));
    frame->setType(ID3v2::AttachedPictureFrame::FrontCover);
    frame->setPicture(data);
    return frame;
}

std::uint32_t milliseconds(double seconds)
{
    return static_cast<std::uint32_t>(std::llround(std::clamp(seconds, 0.0, 4294967.0) * 1000));
}

bool isNumber(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

void addTags(ID3v2::Tag& tag, const Value& tags)
{
    auto dictionary = tags.asDictionary();
    if (!dictionary) return;
    for (const auto& [key, value] : *dictionary) {
        const auto content = tagText(value);
        if (content.empty()) continue;
        const auto mapped = std::find_if(std::begin(kTagFrames), std::end(kTagFrames),
                                         [&](const TagFrame& entry) { return entry.key == key; });
        if (mapped != std::end(kTagFrames)) {
            tag.addFrame(textFrame(mapped->frame, content).release());
        } else if (key == "class number" && isNumber(content)) {
            tag.addFrame(textFrame("TRCK", content).release());
        } else if (key == "description") {
            auto comment = std::make_unique<ID3v2::CommentsFrame>(encodingFor(content));
            comment->setLanguage("eng");
            comment->setText(text(content));
            tag.addFrame(comment.release());
        } else {
            auto frame = std::make_unique<ID3v2::UserTextIdentificationFrame>(encodingFor(key + content));
            frame->setDescription(text(key));
            frame->setText(text(content));
            tag.addFrame(frame.release());
        }
    }
}

// Every frame is complete before the tag takes it, so a picture that cannot
// be read leaves nothing half-added (the tag owns what it was given).
void addChapters(ID3v2::Tag& tag, const std::vector<PublishedChapter>& chapters)
{
    if (chapters.empty()) return;
    auto contents = std::make_unique<ID3v2::TableOfContentsFrame>(ByteVector("toc"));
    contents->setIsTopLevel(true);
    contents->setIsOrdered(true);
    for (std::size_t i = 0; i < chapters.size(); ++i) {
        const auto& chapter = chapters[i];
        const ByteVector id(fmt::format("chp{}", i).c_str());
        auto frame = std::make_unique<ID3v2::ChapterFrame>(id, milliseconds(chapter.start),
                                                           milliseconds(std::max(chapter.end, chapter.start)),
                                                           kNoByteOffset, kNoByteOffset);
        frame->addEmbeddedFrame(textFrame("TIT2", chapter.title).release());
        if (chapter.picture) frame->addEmbeddedFrame(pictureFrame(*chapter.picture).release());
        if (chapter.url && !chapter.url->empty()) {
            const auto description = chapter.linkTitle.value_or("");
            auto link = std::make_unique<ID3v2::UserUrlLinkFrame>(encodingFor(description));
            link->setDescription(text(description));
            link->setUrl(text(*chapter.url));
            frame->addEmbeddedFrame(link.release());
        }
        tag.addFrame(frame.release());
        contents->addChildElement(id);
    }
    tag.addFrame(contents.release());
}

}  // namespace

void writeId3Chapters(const PublishedLecture& lecture, const std::filesystem::path& mp3Path)
{
    StagedFile staged(mp3Path);
    try {
        FileHandle::copyFile(mp3Path, staged.path());
    } catch (const FileError& error) {
        throw PublishError(fmt::format("Cannot tag {}: {}. Check that it exists and that its disk has room.",
                                       mp3Path.string(), error.code().message()));
    }
    {
        TagLib::MPEG::File file(staged.path().c_str(), false);
        if (!file.isValid()) {
            throw PublishError(fmt::format("Cannot tag {}: it is not an MP3 file that can be read.", mp3Path.string()));
        }
        auto& tag = *file.ID3v2Tag(true);
        for (const char* id : kOwnedFrames) tag.removeFrames(ByteVector(id));
        addTags(tag, lecture.tags);
        if (lecture.cover) tag.addFrame(pictureFrame(*lecture.cover).release());
        addChapters(tag, lecture.chapters);
        if (!file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers, ID3v2::v3, TagLib::File::DoNotDuplicate)) {
            throw PublishError(fmt::format("Cannot tag {}: the tag could not be written. Check that its disk has room.",
                                           mp3Path.string()));
        }
    }
    staged.commit();
}

}  // namespace quillora::publish
