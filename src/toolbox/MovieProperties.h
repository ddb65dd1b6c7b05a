// The movie's box and visual properties as the toolbox sets and asks for
// them. The box is the tracks' pictures (each track's size through its
// matrix) placed by the movie's matrix, so a box that is set is kept in the
// movie header and survives a flatten.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/Toolbox.h"

namespace quillora::toolbox {

void SetRect(Rect& rect, std::int16_t left, std::int16_t top, std::int16_t right, std::int16_t bottom);
void OffsetRect(Rect& rect, std::int16_t deltaH, std::int16_t deltaV);

// An empty box for a movie without pictures.
void GetMovieBox(const Movie* movie, Rect& box);
// Scales and moves the movie's pictures into the box (through the movie's
// matrix). A movie without pictures takes only an empty box (paramErr else).
void SetMovieBox(Movie* movie, const Rect& box);
TimeValue GetMovieDuration(const Movie* movie);

inline constexpr std::uint32_t kQTPropertyClass_Visual = 0x76697375;                        // 'visu'
inline constexpr std::uint32_t kQTVisualPropertyID_ApertureMode = 0x61706D64;               // 'apmd'
inline constexpr std::uint32_t kQTVisualPropertyID_HasApertureModeDimensions = 0x68616D64;  // 'hamd'
inline constexpr OSErr kQTPropertyNotSupportedErr = -2195;
inline constexpr OSErr kQTPropertyBadValueSizeErr = -2196;
inline constexpr OSErr kQTPropertyReadOnlyErr = -2191;

// 'visu' properties: 'hamd' (1 byte: every picture track has aperture
// dimensions; true for a movie without pictures) and 'apmd' (4 bytes: the
// aperture mode, one of 'clas', 'clea', 'prod', 'enco'; only it can be set).
OSErr QTGetMovieProperty(const Movie* movie, std::uint32_t propertyClass, std::uint32_t propertyID,
                         std::size_t valueSize, void* value, std::size_t* sizeUsed);
OSErr QTSetMovieProperty(Movie* movie, std::uint32_t propertyClass, std::uint32_t propertyID, std::size_t valueSize,
                         const void* value);
// Gives every picture track its sizes in each aperture mode. Our pictures
// have square pixels and no clean-aperture crop, so the three sizes are the
// track's own size, and the mode changes no picture's size.
OSErr GenerateMovieApertureModeDimensions(Movie* movie);

}  // namespace quillora::toolbox
