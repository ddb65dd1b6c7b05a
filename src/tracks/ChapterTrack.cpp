// The chapter track: one text sample per slide transition, named by the
// slide's title, lasting until the next transition (the last one until the
// end of the recording). The recording's own track points at it.
#include <fmt/format.h>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "layout/PodcastTrackIDs.h"
#include "layout/TextSamples.h"
#include "layout/TextTrackLayout.h"

namespace quillora {

namespace {

constexpr std::string_view kAddChapters = "-[QTDataEditor addChapters:toFile:path:withParameters:error:]";

// The reference names the chapter and picture tracks by their fixed IDs,
// whatever IDs the writers were given.

std::string chapterName(const Value& transition, std::int64_t position)
{
    const ChapterTitle title = chapterTitle(transition, position);
    if (title.given) {
        logMethod(kAddChapters, "Using given chapter name: {}", title.text);
    } else {
        logMethod(kAddChapters, "Generating chapter name: {}", title.text);
    }
    return title.text;
}

Bytes chapterReference(TrackAtoms& atoms)
{
    ByteWriter ids(8);
    ids.putU32BE(kChapterTrackID).putU32BE(kPictureTrackID);
    const Bytes chap = atoms.atom(fourCC("chap"), ids.bytes());
    return atoms.container(atom::tref, {chap});
}

}  // namespace

bool QTDataEditor::addChapters(const Value& transitions, FileHandle& file, const std::string& /*path*/,
                               const Value& parameters, ErrorRecord* /*error*/)
{
    const auto duration = static_cast<std::int32_t>(parameters.integerForKey("duration").value_or(0));
    const auto trackID = static_cast<std::uint32_t>(parameters.integerForKey("trackID").value_or(0));
    TextTrackBuilder track(*this, kChapterTrack, static_cast<std::uint32_t>(duration), trackID);

    const ArrayRef slides = transitions.asArray();
    const std::size_t count = slides ? slides->size() : 0;
    const std::int32_t mdat = findAtomOfType(atom::mdat, 0, 1, file).value_or(AtomLocation{}).offset;

    SampleTable samples;
    for (std::size_t i = 0; i < count; ++i) {
        const Value& transition = (*slides)[i];
        const std::int64_t start = transition.integerForKey("timeValue").value_or(0);
        const std::int64_t end =
            i + 1 < count ? (*slides)[i + 1].integerForKey("timeValue").value_or(0) : std::int64_t{duration};
        const Bytes sample = chapterSample(chapterName(transition, static_cast<std::int64_t>(i) + 1));
        const std::int32_t offset = appendData(sample, mdat, file);
        samples.add(static_cast<std::uint32_t>(sample.size()), static_cast<std::uint32_t>(end - start),
                    static_cast<std::uint32_t>(offset));
    }
    const Bytes trak = track.finish(samples);

    std::int32_t childPosition = 0;
    if (auto moov = findAtomOfType(atom::moov, 0, 1, file)) appendChildAtom(trak, moov->offset, file, childPosition);

    TrackAtoms atoms(*this);
    const Bytes tref = chapterReference(atoms);
    // Each search starts 8 bytes past the previous result, found or not.
    const std::int32_t moovOffset = findAtomOfType(atom::moov, 0, 1, file).value_or(AtomLocation{}).offset;
    if (auto firstTrak = findAtomOfType(atom::trak, moovOffset + 8, 1, file)) {
        appendChildAtom(tref, firstTrak->offset, file, childPosition);
    }

    const std::int32_t moovForIods = findAtomOfType(atom::moov, 0, 1, file).value_or(AtomLocation{}).offset;
    if (auto iods = findAtomOfType(atom::iods, moovForIods + 8, 1, file)) removeAtomAtOffset(iods->offset, file);
    return true;
}

}  // namespace quillora
