// Movie exporter components: each writes a movie, or one track of it, into
// a new self-contained file of its kind through the toolbox's flattening
// writer, movie atom first, the samples copied as they are (never decoded
// or altered). The handheld-player exporter ('spit' 'M4V ' 'appl') writes an
// MPEG-4 file of brand 'M4V '; the movie exporter ('spit' 'MooV' 'appl') a
// QuickTime movie.
//
// Settings travel as a QT atom container whose root holds:
//   'mtyp'  the media types of the tracks exported when the exporter is
//           given the whole movie, 4 bytes each ('soun', 'vide', 'text');
//           none: every track. Default: 'soun' for the handheld player
//           (the one kind of our tracks it plays: pictures are PNG and
//           nothing is re-encoded), none for the movie exporter.
//   'tags'  1 byte: 1 copies the movie's own metadata, 0 leaves it out.
//           Default 1.
// A missing entry keeps its default. There is no settings dialog on this
// platform: MovieExportDoUserDialog keeps the settings and logs which.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "toolbox/AtomContainer.h"
#include "toolbox/Components.h"
#include "toolbox/Toolbox.h"

namespace quillora::toolbox {

inline constexpr std::uint32_t kExportSettingsMediaTypes = 0x6D747970;  // 'mtyp'
inline constexpr std::uint32_t kExportSettingsMetaData = 0x74616773;    // 'tags'
inline constexpr std::int32_t showUserSettingsDialog = 1 << 1;
inline constexpr OSErr ioErr = -36;
inline constexpr OSErr dupFNErr = -48;
inline constexpr OSErr userCanceledErr = -128;

struct MovieExportSettings {
    std::vector<std::uint32_t> mediaTypes;  // empty: every track
    bool copyMetaData = true;
    friend bool operator==(const MovieExportSettings&, const MovieExportSettings&) = default;
};

class MovieExporter {
public:
    MovieExporter(std::uint32_t fileType, MovieExportSettings defaults);

    std::uint32_t fileType() const { return fileType_; }
    const MovieExportSettings& settings() const { return settings_; }
    // Whether the settings came from a container rather than the defaults.
    bool settingsStored() const { return settingsStored_; }

    OSErr exportMovie(const DataReference& dataRef, Movie& movie, Track* onlyThisTrack, TimeValue startTime,
                      TimeValue duration) const;
    // paramErr for a container that is not one, or an entry of a wrong size.
    OSErr setSettings(std::span<const std::uint8_t> container);
    QTAtomContainer settingsContainer() const;

private:
    std::uint32_t fileType_;
    MovieExportSettings settings_;
    bool settingsStored_ = false;
};

ComponentRegistration handheldPlayerExporter();
ComponentRegistration movieExporter();

// The calls answer badComponentInstance without an exporter.
ComponentResult MovieExportToDataRef(const ComponentInstance& exporter, const DataReference* dataRef,
                                     std::uint32_t dataRefType, Movie* movie, Track* onlyThisTrack, TimeValue startTime,
                                     TimeValue duration);
ComponentResult MovieExportSetSettingsFromAtomContainer(const ComponentInstance& exporter,
                                                        const QTAtomContainer& settings);
ComponentResult MovieExportGetSettingsAsAtomContainer(const ComponentInstance& exporter, QTAtomContainer& settings);
ComponentResult MovieExportDoUserDialog(const ComponentInstance& exporter, Movie* movie, Track* onlyThisTrack,
                                        TimeValue startTime, TimeValue duration, bool* canceled);
// Exports the movie (or the one track) into the file: with the exporter
// given, or else the first that writes files of fileType. An existing file
// is replaced only with createMovieFileDeleteCurFile (dupFNErr otherwise),
// and only once the new one is written; showUserSettingsDialog runs the
// exporter's dialog first. The creator is not kept.
OSErr ConvertMovieToDataRef(Movie* movie, Track* onlyThisTrack, const DataReference* dataRef, std::uint32_t dataRefType,
                            std::uint32_t fileType, std::uint32_t creator, std::int32_t flags,
                            const ComponentInstance& exporter);

}  // namespace quillora::toolbox
