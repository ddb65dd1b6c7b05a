#include "images/PdfPages.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>
#include <vips/vips8>

#include "images/ImageLibrary.h"
#include "images/Resolution.h"
#include "support/InOrderWork.h"

namespace quillora {

using vips::VError;
using vips::VImage;

namespace {

// A poster-sized page is drawn no larger than this; slide pages are far smaller.
constexpr double kLongestSide = 4096;
// PNG's fastest compression: the picture is read once more, by the resizer.
constexpr int kPngCompression = 1;

void requireLibrary()
{
    if (!startImageLibrary()) throw PdfPagesError("the image library could not be started");
}

VImage openPage(const std::filesystem::path& pdf, int page, double scale)
{
    // pdfload counts pages from 0.
    return VImage::pdfload(pdf.c_str(), VImage::option()->set("page", page - 1)->set("scale", scale));
}

void renderPage(const PdfPageRequest& request)
{
    try {
        const VImage header = openPage(request.pdf, request.page, 1.0);
        const double longest = std::max(header.width(), header.height());
        const double scale = longest > kLongestSide ? kLongestSide / longest : 1.0;
        VImage page = scale < 1.0 ? openPage(request.pdf, request.page, scale) : header;
        if (page.has_alpha()) page = page.flatten(VImage::option()->set("background", std::vector<double>{255.0}));
        const double pixelsPerMillimetre = kPointsPerInch / kMillimetresPerInch;
        page = page.copy(VImage::option()->set("xres", pixelsPerMillimetre)->set("yres", pixelsPerMillimetre));
        page.pngsave(request.picture.c_str(), VImage::option()->set("compression", kPngCompression));
    } catch (const VError& refused) {
        throw PdfPagesError(fmt::format("page {} of {} cannot be drawn: {}", request.page, request.pdf.string(),
                                        imageLibraryMessage(refused)));
    }
}

}  // namespace

int pdfPageCount(const std::filesystem::path& pdf)
{
    requireLibrary();
    try {
        const VImage first = VImage::pdfload(pdf.c_str());
        return first.get_typeof(VIPS_META_N_PAGES) ? first.get_int(VIPS_META_N_PAGES) : 1;
    } catch (const VError& refused) {
        throw PdfPagesError(fmt::format("{} cannot be read as a PDF: {}", pdf.string(), imageLibraryMessage(refused)));
    }
}

void renderPdfPages(const std::vector<PdfPageRequest>& requests)
{
    requireLibrary();
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    forEachInOrder<bool>(
        requests.size(), cores, 2 * cores, [](std::size_t) { return std::nullopt; },
        [&](std::size_t i) {
            renderPage(requests[i]);
            return true;
        },
        [](std::size_t, bool) {});
}

}  // namespace quillora
