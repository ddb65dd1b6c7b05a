#include "publish/Cover.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>
#include <vips/vips8>

#include "images/ImageLibrary.h"
#include "publish/PublishError.h"
#include "publish/StagedOutput.h"

namespace quillora::publish {

namespace {

constexpr int kSmallestSide = 1400;
constexpr int kLargestSide = 3000;
constexpr int kQuality = 90;

using vips::VImage;

VImage coverPicture(const std::filesystem::path& source)
{
    VImage picture = openPicture(source.string(), nullptr).autorot();
    const int side = std::clamp(std::min(picture.width(), picture.height()), kSmallestSide, kLargestSide);
    picture = picture.thumbnail_image(
        side, VImage::option()->set("height", side)->set("size", VIPS_SIZE_BOTH)->set("crop", VIPS_INTERESTING_CENTRE));
    if (picture.has_alpha()) picture = picture.flatten(VImage::option()->set("background", std::vector<double>{255}));
    if (picture.interpretation() != VIPS_INTERPRETATION_sRGB) picture = picture.colourspace(VIPS_INTERPRETATION_sRGB);
    return picture.cast(VIPS_FORMAT_UCHAR);
}

}  // namespace

void makeCover(const std::filesystem::path& sourcePicture, const std::filesystem::path& outputJpeg)
{
    if (!startImageLibrary()) throw PublishError("Cannot make the cover: the image library did not start.");
    StagedFile staged(outputJpeg);
    try {
        coverPicture(sourcePicture)
            .jpegsave(staged.path().c_str(),
                      VImage::option()->set("Q", kQuality)->set("strip", true)->set("optimize_coding", true));
    } catch (const vips::VError& error) {
        vips_error_clear();
        std::string reason = error.what();
        while (!reason.empty() && std::isspace(static_cast<unsigned char>(reason.back()))) reason.pop_back();
        throw PublishError(fmt::format("Cannot make the cover from {}: {}. Choose a JPEG or PNG picture that opens "
                                       "in an image viewer.",
                                       sourcePicture.string(), reason));
    }
    staged.commit();
}

}  // namespace quillora::publish
