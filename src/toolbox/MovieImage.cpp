// Still pictures added to a movie: each is encoded with the codec asked for
// and appended to the movie's video track as one sample.
#include <vips/vips8>

#include <cmath>
#include <memory>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "images/ImageLibrary.h"
#include "layout/ImageTrackLayout.h"
#include "toolbox/Toolbox.h"

namespace quillora::toolbox {

namespace {

constexpr std::uint32_t kVideo = fourCC("vide");
constexpr std::uint32_t kJPEGCodec = fourCC("jpeg");
constexpr std::int64_t kMaximumQuality = 1023;

// The encoded picture, or nothing when it cannot be read.
std::optional<Bytes> encode(const std::filesystem::path& picture, std::uint32_t codec, std::int64_t quality, int& width,
                            int& height)
{
    using vips::VImage;
    if (!startImageLibrary()) return std::nullopt;
    try {
        VImage image = VImage::new_from_file(picture.c_str(), VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
        width = image.width();
        height = image.height();
        void* data = nullptr;
        std::size_t length = 0;
        if (codec == kJPEGCodec) {
            if (image.has_alpha()) image = image.flatten();
            const int q = static_cast<int>(
                std::lround(100.0 * std::clamp<std::int64_t>(quality, 0, kMaximumQuality) / kMaximumQuality));
            image.write_to_buffer(".jpg", &data, &length, VImage::option()->set("Q", std::max(q, 1)));
        } else {
            image.write_to_buffer(".png", &data, &length);
        }
        const std::unique_ptr<void, decltype(&g_free)> owned(data, g_free);
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        return Bytes(bytes, bytes + length);
    } catch (const vips::VError& error) {
        logf("Cannot add the picture {} to the movie: {}", picture.string(), error.what());
        vips_error_clear();  // the library's message buffer would otherwise carry this into the next error
        return std::nullopt;
    }
}

}  // namespace

bool Movie::addImage(const std::filesystem::path& picture, TimeValue duration, const Value& attributes)
{
    const std::string codecName = attributes.stringForKey(QTAddImageCodecType).value_or("png ");
    const std::uint32_t codec = fourCCFromString(codecName);
    const std::int64_t quality = attributes.integerForKey(QTAddImageCodecQuality).value_or(512);
    int width = 0;
    int height = 0;
    const auto encoded = encode(picture, codec, quality, width, height);
    if (!encoded || duration < 0) return false;

    Track* track = trackOfMediaType(kVideo);
    if (!track) {
        track = NewMovieTrack(*this, width << 16, height << 16, 0);
        NewTrackMedia(track, kVideo, timeScale(), nullptr, AliasDataHandlerSubType);
    }
    Media& media = *track->media;
    QTDataEditor editor;
    TrackAtoms atoms(editor);
    const ImageFormat format =
        codec == kJPEGCodec ? ImageFormat{kJPEGCodec, "Photo - JPEG"} : ImageFormat{codec, "PNG"};
    auto description = NewHandle(0);
    description->bytes = imageSampleDescription(atoms, format, PointSize{width, height});
    auto data = NewHandle(0);
    data->bytes = *encoded;
    TimeValue sampleTime = 0;
    const TimeValue mediaDuration = duration * media.timeScale / timeScale();
    if (AddMediaSample(&media, data, 0, encoded->size(), mediaDuration, description, 1, 0, &sampleTime) != noErr) {
        return false;
    }
    return InsertMediaIntoTrack(track, -1, sampleTime, mediaDuration, kFixed1) == noErr;
}

}  // namespace quillora::toolbox
