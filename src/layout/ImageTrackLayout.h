// The slide-image video track's own atoms (video media handler, 'vmhd',
// the picture sample description) around the pieces it shares with the
// text tracks. Like the text tracks, the head is built before the samples
// and the track is finished once the sample table is known.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "images/ImageSize.h"
#include "layout/TrackAtoms.h"

namespace quillora {

struct ImageFormat {
    std::uint32_t dataFormat = 0;
    std::string compressorName;
};

// 'jpeg' / "Photo-JPEG" and 'png ' / "PNG". Any other type is not mapped:
// the entry keeps the code 'dinf' and carries the picture's path as its name.
ImageFormat imageFormatFor(const std::optional<std::string>& imageType, const std::string& imagePath);

// The 86-byte picture description (longer only for an unmapped path name).
Bytes imageSampleDescription(TrackAtoms& atoms, const ImageFormat& format, PointSize size);

// "Apple Video Media Handler" in UTF-16, and the older variant's ASCII name.
Bytes videoHandlerNameUTF16();
Bytes videoHandlerNameASCII();

struct ImageTrackShape {
    std::uint32_t duration = 0;
    std::uint32_t trackID = 0;
    std::uint32_t trackSize = 0;  // 16.16
    Bytes mediaHandlerName;
};

class ImageTrackBuilder {
public:
    // Builds tkhd, edts, mdhd, the handlers, vmhd and dinf.
    ImageTrackBuilder(AtomFactory& factory, const ImageTrackShape& shape);
    // Builds stsd and stsc.
    void describe(const ImageFormat& format, PointSize size);
    // The finished trak.
    Bytes finish(const SampleTable& samples);

private:
    TrackAtoms atoms_;
    Bytes tkhd_, edts_, mdhd_, mediaHandler_, vmhd_, dataHandler_, dinf_, stsd_, stsc_;
};

}  // namespace quillora
