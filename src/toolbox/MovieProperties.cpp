#include "toolbox/MovieProperties.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "toolbox/Toolbox.h"

namespace quillora::toolbox {

namespace {

// Edges in pixels, as doubles, before they are rounded into a Rect.
struct Bounds {
    double left = 0, top = 0, right = 0, bottom = 0;
    bool empty() const { return right <= left || bottom <= top; }
};

constexpr double kFixedOne = 65536.0;

bool isPicture(const Track& track)
{
    return track.width > 0 && track.height > 0;
}

// Our matrices only scale and move: a, d scale, tx, ty move (16.16).
Bounds through(const Matrix& matrix, const Bounds& bounds)
{
    const double scaleX = matrix[0] / kFixedOne, scaleY = matrix[4] / kFixedOne;
    const double moveX = matrix[6] / kFixedOne, moveY = matrix[7] / kFixedOne;
    return {bounds.left * scaleX + moveX, bounds.top * scaleY + moveY, bounds.right * scaleX + moveX,
            bounds.bottom * scaleY + moveY};
}

// The tracks' pictures, each placed by its own matrix, before the movie's.
Bounds naturalBounds(const Movie& movie)
{
    Bounds all;
    bool first = true;
    for (const auto& track : movie.tracks()) {
        if (!isPicture(*track)) continue;
        const Bounds placed = through(track->matrix, {0, 0, track->width / kFixedOne, track->height / kFixedOne});
        if (first) {
            all = placed;
            first = false;
            continue;
        }
        all = {std::min(all.left, placed.left), std::min(all.top, placed.top), std::max(all.right, placed.right),
               std::max(all.bottom, placed.bottom)};
    }
    return all;
}

std::int16_t edge(double value)
{
    const double rounded = std::round(value);
    return static_cast<std::int16_t>(std::clamp(rounded, double{std::numeric_limits<std::int16_t>::min()},
                                                double{std::numeric_limits<std::int16_t>::max()}));
}

Fixed toFixed(double value)
{
    return static_cast<Fixed>(std::llround(value * kFixedOne));
}

bool hasApertureDimensions(const Movie& movie)
{
    return std::all_of(movie.tracks().begin(), movie.tracks().end(),
                       [](const auto& track) { return !isPicture(*track) || track->apertureDimensions.has_value(); });
}

bool isApertureMode(std::uint32_t mode)
{
    return mode == kQTApertureMode_Classic || mode == kQTApertureMode_CleanAperture ||
           mode == kQTApertureMode_ProductionAperture || mode == kQTApertureMode_EncodedPixels;
}

}  // namespace

void SetRect(Rect& rect, std::int16_t left, std::int16_t top, std::int16_t right, std::int16_t bottom)
{
    rect = Rect{top, left, bottom, right};
}

void OffsetRect(Rect& rect, std::int16_t deltaH, std::int16_t deltaV)
{
    rect.left = static_cast<std::int16_t>(rect.left + deltaH);
    rect.right = static_cast<std::int16_t>(rect.right + deltaH);
    rect.top = static_cast<std::int16_t>(rect.top + deltaV);
    rect.bottom = static_cast<std::int16_t>(rect.bottom + deltaV);
}

void GetMovieBox(const Movie* movie, Rect& box)
{
    box = Rect{};
    if (!movie) {
        recordMoviesError(invalidMovie);
        return;
    }
    const Bounds natural = naturalBounds(*movie);
    if (!natural.empty()) {
        const Bounds placed = through(movie->matrix(), natural);
        box = Rect{edge(placed.top), edge(placed.left), edge(placed.bottom), edge(placed.right)};
    }
    recordMoviesError(noErr);
}

void SetMovieBox(Movie* movie, const Rect& box)
{
    if (!movie) {
        recordMoviesError(invalidMovie);
        return;
    }
    const Bounds natural = naturalBounds(*movie);
    const bool emptyBox = box.right <= box.left || box.bottom <= box.top;
    if (natural.empty()) {
        recordMoviesError(emptyBox ? noErr : paramErr);
        return;
    }
    if (emptyBox) {
        recordMoviesError(paramErr);
        return;
    }
    const double scaleX = (box.right - box.left) / (natural.right - natural.left);
    const double scaleY = (box.bottom - box.top) / (natural.bottom - natural.top);
    Matrix matrix = kIdentityMatrix;
    matrix[0] = toFixed(scaleX);
    matrix[4] = toFixed(scaleY);
    matrix[6] = toFixed(box.left - natural.left * scaleX);
    matrix[7] = toFixed(box.top - natural.top * scaleY);
    movie->setMatrix(matrix);
    recordMoviesError(noErr);
}

TimeValue GetMovieDuration(const Movie* movie)
{
    recordMoviesError(movie ? noErr : invalidMovie);
    return movie ? static_cast<TimeValue>(movie->duration()) : 0;
}

OSErr QTGetMovieProperty(const Movie* movie, std::uint32_t propertyClass, std::uint32_t propertyID,
                         std::size_t valueSize, void* value, std::size_t* sizeUsed)
{
    if (!movie) return recordMoviesError(invalidMovie);
    if (!value) return recordMoviesError(paramErr);
    if (propertyClass != kQTPropertyClass_Visual) return recordMoviesError(kQTPropertyNotSupportedErr);
    if (propertyID == kQTVisualPropertyID_HasApertureModeDimensions) {
        if (valueSize != 1) return recordMoviesError(kQTPropertyBadValueSizeErr);
        *static_cast<std::uint8_t*>(value) = hasApertureDimensions(*movie) ? 1 : 0;
    } else if (propertyID == kQTVisualPropertyID_ApertureMode) {
        if (valueSize != 4) return recordMoviesError(kQTPropertyBadValueSizeErr);
        const std::uint32_t mode = movie->apertureMode();
        std::memcpy(value, &mode, 4);
    } else {
        return recordMoviesError(kQTPropertyNotSupportedErr);
    }
    if (sizeUsed) *sizeUsed = valueSize;
    return recordMoviesError(noErr);
}

OSErr QTSetMovieProperty(Movie* movie, std::uint32_t propertyClass, std::uint32_t propertyID, std::size_t valueSize,
                         const void* value)
{
    if (!movie) return recordMoviesError(invalidMovie);
    if (!value) return recordMoviesError(paramErr);
    if (propertyClass != kQTPropertyClass_Visual) return recordMoviesError(kQTPropertyNotSupportedErr);
    if (propertyID == kQTVisualPropertyID_HasApertureModeDimensions) return recordMoviesError(kQTPropertyReadOnlyErr);
    if (propertyID != kQTVisualPropertyID_ApertureMode) return recordMoviesError(kQTPropertyNotSupportedErr);
    if (valueSize != 4) return recordMoviesError(kQTPropertyBadValueSizeErr);
    std::uint32_t mode = 0;
    std::memcpy(&mode, value, 4);
    if (!isApertureMode(mode)) return recordMoviesError(paramErr);
    movie->setApertureMode(mode);
    return recordMoviesError(noErr);
}

OSErr GenerateMovieApertureModeDimensions(Movie* movie)
{
    if (!movie) return recordMoviesError(invalidMovie);
    for (const auto& track : movie->tracks()) {
        if (!isPicture(*track)) continue;
        track->apertureDimensions =
            ApertureDimensions{track->width, track->height, track->width, track->height, track->width, track->height};
    }
    return recordMoviesError(noErr);
}

}  // namespace quillora::toolbox
