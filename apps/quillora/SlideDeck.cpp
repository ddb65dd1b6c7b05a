#include "SlideDeck.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>

#include "ExportInputs.h"
#include "QuickTimePlugin/TransitionKeys.h"
#include "images/PdfPages.h"

namespace quillora::app {

namespace {

constexpr std::string_view kPageMark = "#page=";

bool isDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

std::optional<int> wholeNumber(std::string_view text)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

std::string_view trimmedSpaces(std::string_view text)
{
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    return text;
}

}  // namespace

bool naturalLess(const std::string& a, const std::string& b)
{
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            // Leading zeros aside, a longer run of digits is a larger number.
            while (i < a.size() && a[i] == '0') ++i;
            while (j < b.size() && b[j] == '0') ++j;
            std::size_t endA = i;
            std::size_t endB = j;
            while (endA < a.size() && isDigit(a[endA])) ++endA;
            while (endB < b.size() && isDigit(b[endB])) ++endB;
            const std::string_view runA(a.data() + i, endA - i);
            const std::string_view runB(b.data() + j, endB - j);
            if (runA.size() != runB.size()) return runA.size() < runB.size();
            if (runA != runB) return runA < runB;
            i = endA;
            j = endB;
            continue;
        }
        if (a[i] != b[j]) return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
        ++i;
        ++j;
    }
    if ((a.size() - i) != (b.size() - j)) return a.size() - i < b.size() - j;
    return a < b;  // "slide01" and "slide1": any fixed order
}

PictureReference pictureReference(const std::string& imagePath)
{
    const auto mark = imagePath.rfind(kPageMark);
    if (mark == std::string::npos) return {imagePath, std::nullopt};
    const auto page = wholeNumber(std::string_view(imagePath).substr(mark + kPageMark.size()));
    if (!page) return {imagePath, std::nullopt};
    return {imagePath.substr(0, mark), *page};
}

SlideDeck SlideDeck::open(const std::filesystem::path& path)
{
    SlideDeck deck;
    deck.path_ = std::filesystem::absolute(path);
    if (std::filesystem::is_directory(path)) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            const std::string name = entry.path().filename().string();
            if (entry.is_regular_file() && !name.starts_with('.')) names.push_back(name);
        }
        std::sort(names.begin(), names.end(), naturalLess);
        for (const auto& name : names) deck.pictures_.push_back(deck.path_ / name);
        if (names.empty()) throw InputError(fmt::format("The slide folder {} holds no pictures", path.string()));
        return deck;
    }
    if (!std::filesystem::is_regular_file(path)) {
        throw InputError(fmt::format("The slides {} do not exist; give a PDF or a folder of pictures", path.string()));
    }
    try {
        deck.pageCount_ = pdfPageCount(path);
    } catch (const PdfPagesError& failure) {
        throw InputError(fmt::format("The slides: {}; give a PDF or a folder of pictures", failure.what()));
    }
    deck.pdf_ = true;
    return deck;
}

std::string SlideDeck::imagePathFor(int slide) const
{
    if (pdf_) return fmt::format("{}{}{}", path_.string(), kPageMark, slide);
    return pictures_.at(static_cast<std::size_t>(slide - 1)).string();
}

void SlideDeck::assignTo(Array& records, const std::optional<std::string>& slidesFor, const std::string& what) const
{
    std::vector<int> slides;
    if (slidesFor) {
        slides = slidesForChapters(*slidesFor, slideCount());
        if (slides.size() != records.size()) {
            throw InputError(fmt::format("--slides-for \"{}\" names {} slides for the {} {}; name one slide for each",
                                         *slidesFor, slides.size(), records.size(), what));
        }
    } else {
        if (static_cast<std::size_t>(slideCount()) != records.size()) {
            throw InputError(fmt::format("{} has {} slides for {} {}; give as many, or list the slide of each of "
                                         "the {} in turn with --slides-for (\"1-3,5,7-\")",
                                         path_.string(), slideCount(), records.size(), what, what));
        }
        for (int slide = 1; slide <= slideCount(); ++slide) slides.push_back(slide);
    }
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (auto record = records[i].asDictionary()) record->set(QRTransitionImagePathKey, imagePathFor(slides[i]));
    }
}

std::vector<int> slidesForChapters(const std::string& list, int slideCount)
{
    std::vector<int> slides;
    std::string_view rest = list;
    while (true) {
        const auto comma = rest.find(',');
        const std::string_view item = trimmedSpaces(rest.substr(0, comma));
        auto refuse = [&](const std::string& why) {
            throw InputError(fmt::format("--slides-for \"{}\": \"{}\" {}", list, item, why));
        };
        const auto dash = item.find('-');
        const auto first = wholeNumber(trimmedSpaces(item.substr(0, dash)));
        std::optional<int> last = first;
        if (dash != std::string_view::npos) {
            const std::string_view end = trimmedSpaces(item.substr(dash + 1));
            last = end.empty() ? std::optional(slideCount) : wholeNumber(end);
        }
        if (!first || !last) refuse("is not a slide number or a range (N, N-M or N-)");
        if (*first < 1 || *last > slideCount || *first > slideCount) {
            refuse(fmt::format("names a slide the deck does not have (it has slides 1 to {})", slideCount));
        }
        if (*last < *first) refuse("is a range that runs backwards");
        for (int slide = *first; slide <= *last; ++slide) slides.push_back(slide);
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
    }
    return slides;
}

}  // namespace quillora::app
