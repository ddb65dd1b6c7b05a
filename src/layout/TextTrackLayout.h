// The one text-track skeleton shared by the chapter, hyperlink and notes
// tracks. Where the three differ is data (TextTrackKind); the builder is
// made before the samples, so the head atoms exist first, and finished once
// the sample table is known.
#pragma once

#include <cstdint>

#include "layout/TextStyle.h"
#include "layout/TrackAtoms.h"

namespace quillora {

enum class TextSampleFormat {
    QuickTimeText,  // 'text'
    TimedText,      // 'tx3g' with a font table
};

struct TextTrackKind {
    std::uint32_t headerFlags;
    std::uint32_t trackSize;  // 16.16
    std::uint32_t mediaHandlerMask;
    std::uint32_t dataHandlerMask;
    TextSampleFormat sampleFormat;
    bool timeToSampleBeforeChunkOffsets;  // stbl order after stsz
};

// Chapters are in the movie, preview and poster, but not enabled.
inline constexpr TextTrackKind kChapterTrack{0x0E, 0, 0x00010113, 0x00010129, TextSampleFormat::QuickTimeText, true};
inline constexpr TextTrackKind kHyperlinkTrack{0x0F, 0x012C0000, 0x0001018A, 0x0001019F, TextSampleFormat::TimedText,
                                               false};
inline constexpr TextTrackKind kNotesTrack = kHyperlinkTrack;

// The sample description entries, header included.
Bytes quickTimeTextDescription(TrackAtoms& atoms);
Bytes timedTextDescription(TrackAtoms& atoms, const TextStyle& style);

class TextTrackBuilder {
public:
    // Builds everything up to stsc. The style is read for timed text only.
    TextTrackBuilder(AtomFactory& factory, const TextTrackKind& kind, std::uint32_t duration, std::uint32_t trackID,
                     const TextStyle& style = {});

    // The finished trak.
    Bytes finish(const SampleTable& samples);

private:
    TrackAtoms atoms_;
    TextTrackKind kind_;
    Bytes tkhd_, edts_, mdhd_, mediaHandler_, gmhd_, dataHandler_, dinf_, stsd_, stsc_;
};

}  // namespace quillora
