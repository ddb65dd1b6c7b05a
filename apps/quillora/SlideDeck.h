// The lecturer's slides as one deck, given apart from the chapter marks: a
// PDF (page N is slide N) or a folder of pictures (slide N is the Nth name
// in natural order, so slide2 comes before slide10).
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora::app {

class SlideDeck {
public:
    // Throws InputError for a path that is neither a PDF nor a folder with pictures.
    static SlideDeck open(const std::filesystem::path& path);

    int slideCount() const { return pdf_ ? pageCount_ : static_cast<int>(pictures_.size()); }
    // What a transition's "imagePath" says for slide number (from 1): the
    // picture's path, or "deck.pdf#page=N".
    std::string imagePathFor(int slide) const;

    // Sets every record's "imagePath": slide N for record N, or the slides
    // slidesFor lists, one for each record in order. A count that differs is
    // refused with both counts.
    void assignTo(Array& records, const std::optional<std::string>& slidesFor, const std::string& what) const;

private:
    std::filesystem::path path_;
    bool pdf_ = false;
    int pageCount_ = 0;
    std::vector<std::filesystem::path> pictures_;
};

// "--slides-for" read as slide numbers, one for each chapter in order:
// numbers and ranges separated by commas, "1-3,5,7-" (an open range runs to
// the last slide); a slide may be named again. Throws InputError.
std::vector<int> slidesForChapters(const std::string& list, int slideCount);

// A transition's picture: a file, or one page of a PDF ("deck.pdf#page=3").
struct PictureReference {
    std::filesystem::path file;
    std::optional<int> page;
};
PictureReference pictureReference(const std::string& imagePath);

// Names compared as a person reads them: runs of digits by their value.
bool naturalLess(const std::string& a, const std::string& b);

}  // namespace quillora::app
