// The units a picture's resolution is given in: libvips counts pixels per
// millimetre, a page-layout program points of 1/72 inch.
#pragma once

namespace quillora {

constexpr double kPointsPerInch = 72.0;
constexpr double kMillimetresPerInch = 25.4;

}  // namespace quillora
