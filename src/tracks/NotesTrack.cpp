// The notes track: the speaker's notes of each slide for as long as the
// slide is shown. A slide without notes keeps showing the notes before it.
#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "layout/TextSamples.h"
#include "layout/TextTrackLayout.h"
#include "toolbox/Movie.h"

namespace quillora {

namespace {

constexpr std::string_view kAddTextTrackForNotes = "-[QTDataEditor addTextTrackForNotes:withAttributes:toFile:path:]";

// The pipeline keeps this ID free for the notes.
constexpr std::uint32_t kNotesTrackID = 6;

}  // namespace

bool QTDataEditor::addTextTrackForNotes(const Value& transitions, const Value& attributes, FileHandle& file,
                                        const std::filesystem::path& path)
{
    logMethod(kAddTextTrackForNotes, "Adding text track for Notes.");
    const TextStyle style = textStyleFromAttributes(attributes);
    // A movie that cannot be opened has a duration of 0.
    const auto movie = toolbox::Movie::movieWithFile(path);
    const auto duration = static_cast<std::int32_t>(movie ? movie->duration() : 0);
    TextTrackBuilder track(*this, kNotesTrack, static_cast<std::uint32_t>(duration), kNotesTrackID, style);

    const AtomLocation mdat = findAtomOfType(atom::mdat, 0, 1, file).value_or(AtomLocation{});
    std::int32_t nextOffset = wrappingAdd(mdat.offset, mdat.size);

    const ArrayRef slides = transitions.asArray();
    const std::size_t count = slides ? slides->size() : 0;
    std::string notes;
    ByteWriter block;
    SampleTable samples;
    for (std::size_t k = 0; k < count; ++k) {
        const Value& transition = (*slides)[k];
        const std::int64_t start = transition.integerForKey("timeValue").value_or(0);
        const std::int64_t end = k + 1 < count ? (*slides)[k + 1].integerForKey("timeValue").value_or(0) : duration;
        if (auto given = transition.stringForKey("notes")) notes = *given;
        const Bytes sample = notesSample(asciiOrEmpty(notes));
        block.putBytes(sample);
        samples.add(static_cast<std::uint32_t>(sample.size()), sixteenBitDuration(start, end),
                    static_cast<std::uint32_t>(nextOffset));
        nextOffset = wrappingAdd(nextOffset, static_cast<std::int32_t>(sample.size()));
    }
    appendData(block.bytes(), mdat.offset, file);

    const Bytes trak = track.finish(samples);
    if (auto moov = findAtomOfType(atom::moov, 0, 1, file)) {
        std::int32_t childPosition = 0;
        appendChildAtom(trak, moov->offset, file, childPosition);
    }
    return true;
}

}  // namespace quillora
