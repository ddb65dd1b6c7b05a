// The pages of a PDF slide deck as pictures the resizer can read: each page
// is rendered by libvips (poppler) at one pixel per point, the size the
// resizer measures a slide in, so no page is rendered larger than the frame
// it is drawn into.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <vector>

namespace quillora {

class PdfPagesError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws PdfPagesError, with the library's reason, when the file is no PDF
// libvips can open.
int pdfPageCount(const std::filesystem::path& pdf);

struct PdfPageRequest {
    std::filesystem::path pdf;
    int page = 1;                   // from 1
    std::filesystem::path picture;  // the PNG to write
};

// Renders every request, as many at once as there are cores, flattened on
// white and stating 72 dpi. Pages larger than the largest frame the resizer
// is given are scaled down to it. Throws PdfPagesError naming the file and
// page that failed.
void renderPdfPages(const std::vector<PdfPageRequest>& requests);

}  // namespace quillora
