// The hyperlink track: one timed-text sample per slide transition, the link's
// title as its text and an 'href' that makes it a link to the URL. All
// samples go into the media data as one block after the loop.
#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "layout/TextSamples.h"
#include "layout/TextTrackLayout.h"
#include "toolbox/Movie.h"

namespace quillora {

namespace {

constexpr std::string_view kAddTextTrackURLs =
    "-[QTDataEditor addTextTrackURLs:withAttributes:toFile:path:withParameters:error:]";
constexpr std::string_view kAddTextTrackURLsAtPath = "-[QTDataEditor addTextTrackURLs:withAttributes:toFileAtPath:]";

std::string linkField(const Value& transition, std::string_view key)
{
    const Value* link = transition.get("linkURL");
    return link ? link->stringForKey(key).value_or("") : std::string();
}

// The older variant synchronises the file after each of its two edits.
void writeLinkTrack(QTDataEditor& editor, const Value& transitions, const Value& attributes, FileHandle& file,
                    std::int32_t duration, std::uint32_t trackID, bool synchronize)
{
    const TextStyle style = textStyleFromAttributes(attributes);
    TextTrackBuilder track(editor, kHyperlinkTrack, static_cast<std::uint32_t>(duration), trackID, style);

    const AtomLocation mdat = editor.findAtomOfType(atom::mdat, 0, 1, file).value_or(AtomLocation{});
    std::int32_t nextOffset = wrappingAdd(mdat.offset, mdat.size);

    const ArrayRef slides = transitions.asArray();
    const std::size_t count = slides ? slides->size() : 0;
    ByteWriter block;
    SampleTable samples;
    for (std::size_t k = 0; k < count; ++k) {
        const Value& transition = (*slides)[k];
        const auto start = static_cast<std::int32_t>(transition.integerForKey("timeValue").value_or(0));
        const auto end = k + 1 < count
                             ? static_cast<std::int32_t>((*slides)[k + 1].integerForKey("timeValue").value_or(0))
                             : duration;
        const Bytes sample = linkSample(linkField(transition, "title"), linkField(transition, "url"));
        block.putBytes(sample);
        samples.add(static_cast<std::uint32_t>(sample.size()), sixteenBitDuration(start, end),
                    static_cast<std::uint32_t>(nextOffset));
        nextOffset = wrappingAdd(nextOffset, static_cast<std::int32_t>(sample.size()));
    }
    editor.appendData(block.bytes(), mdat.offset, file);
    if (synchronize) file.synchronizeFile();

    const Bytes trak = track.finish(samples);
    if (auto moov = editor.findAtomOfType(atom::moov, 0, 1, file)) {
        std::int32_t childPosition = 0;
        editor.appendChildAtom(trak, moov->offset, file, childPosition);
        if (synchronize) file.synchronizeFile();
    }
}

}  // namespace

bool QTDataEditor::addTextTrackURLs(const Value& transitions, const Value& attributes, FileHandle& file,
                                    const std::string& /*path*/, const Value& parameters, ErrorRecord* /*error*/)
{
    logMethod(kAddTextTrackURLs, "Adding text track for URLS.");
    const auto duration = static_cast<std::int32_t>(parameters.integerForKey("duration").value_or(0));
    const auto trackID = static_cast<std::uint32_t>(parameters.integerForKey("trackID").value_or(0));
    writeLinkTrack(*this, transitions, attributes, file, duration, trackID, false);
    return true;
}

bool QTDataEditor::addTextTrackURLs(const Value& transitions, const Value& attributes,
                                    const std::filesystem::path& path)
{
    logMethod(kAddTextTrackURLsAtPath, "Adding text track URLS");
    // An unopened movie answers 0 for its duration and has no tracks.
    const auto movie = toolbox::Movie::movieWithFile(path);
    const auto duration = static_cast<std::int32_t>(movie ? movie->duration() : 0);
    const auto trackID = static_cast<std::uint32_t>((movie ? movie->tracks().size() : 0) + 1);

    std::optional<FileHandle> file;
    try {
        file.emplace(path, FileHandle::Mode::Updating);
    } catch (const FileError&) {
        return true;  // no file to write to: nothing happens, as with no handle at all
    }
    writeLinkTrack(*this, transitions, attributes, *file, duration, trackID, true);
    file->closeFile();
    return true;
}

}  // namespace quillora
