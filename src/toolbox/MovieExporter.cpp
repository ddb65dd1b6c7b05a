#include "toolbox/MovieExporter.h"

#include <algorithm>
#include <system_error>

#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/MovieProperties.h"

#include <fmt/format.h>

namespace quillora::toolbox {

namespace {

constexpr std::string_view kDoUserDialog = "MovieExportDoUserDialog";
constexpr std::string_view kExportToDataRef = "MovieExportToDataRef";

std::string describe(const MovieExportSettings& settings)
{
    std::vector<std::string> types;
    for (auto type : settings.mediaTypes) types.push_back(stringFromFourCC(type));
    return fmt::format("tracks of media types {}, the movie's metadata {}",
                       types.empty() ? "(all)" : fmt::format("{}", fmt::join(types, ", ")),
                       settings.copyMetaData ? "copied" : "left out");
}

bool isRootedContainer(std::span<const std::uint8_t> container)
{
    if (container.size() < kQTAtomContainerHeaderSize + kQTAtomHeaderSize) return false;
    const std::uint8_t* root = container.data() + kQTAtomContainerHeaderSize;
    return readU32BE(root) == container.size() - kQTAtomContainerHeaderSize &&
           readU32BE(root + 4) == kQTAtomContainerRootType;
}

// The tracks an export writes: the one given, or those of the kept types.
std::vector<Track*> exportedTracks(const Movie& movie, Track* onlyThisTrack, const MovieExportSettings& settings)
{
    if (onlyThisTrack) return {onlyThisTrack};
    std::vector<Track*> tracks;
    for (const auto& track : movie.tracks()) {
        const auto& types = settings.mediaTypes;
        if (track->media && (types.empty() || std::find(types.begin(), types.end(), track->mediaType()) != types.end()))
            tracks.push_back(track.get());
    }
    return tracks;
}

ComponentResult withExporter(const ComponentInstance& exporter, const std::function<ComponentResult()>& call)
{
    return exporter ? call() : badComponentInstance;
}

}  // namespace

MovieExporter::MovieExporter(std::uint32_t fileType, MovieExportSettings defaults)
    : fileType_(fileType), settings_(std::move(defaults))
{
}

OSErr MovieExporter::exportMovie(const DataReference& dataRef, Movie& movie, Track* onlyThisTrack, TimeValue startTime,
                                 TimeValue duration) const
{
    if (onlyThisTrack && onlyThisTrack->movie != &movie) return invalidTrack;
    if (startTime < 0 || duration <= 0 || startTime + duration > static_cast<TimeValue>(movie.duration()))
        return invalidDuration;
    const auto tracks = exportedTracks(movie, onlyThisTrack, settings_);
    if (tracks.empty()) {
        logMethod(kExportToDataRef, "The movie has no track to export ({})", describe(settings_));
        return invalidTrack;
    }
    // A new movie of the exported stretch of those tracks, sharing their samples.
    Movie exported;
    exported.setTimeScale(movie.timeScale());
    exported.setMatrix(movie.matrix());
    exported.setApertureMode(movie.apertureMode());
    if (settings_.copyMetaData) exported.metaData() = movie.metaData();
    std::vector<std::uint32_t> exportedIDs;
    for (Track* source : tracks) exportedIDs.push_back(source->trackID);
    for (Track* source : tracks) {
        if (!source->media) return invalidTrack;
        Track& track = exported.newTrack();
        track.trackID = source->trackID;
        track.width = source->width;
        track.height = source->height;
        track.apertureDimensions = source->apertureDimensions;
        Media* media = NewTrackMedia(&track, source->mediaType(), source->media->timeScale, nullptr, 0);
        if (!media) return invalidMedia;  // a damaged time scale
        media->language = source->media->language;
        if (OSErr status = InsertTrackSegment(source, startTime, duration, &track, 0); status != noErr) return status;
        CopyTrackSettings(source, &track);
        // References to tracks left out would name nothing.
        for (const auto& [type, ids] : source->references) {
            std::vector<std::uint32_t> kept;
            std::copy_if(ids.begin(), ids.end(), std::back_inserter(kept), [&exportedIDs](std::uint32_t id) {
                return std::find(exportedIDs.begin(), exportedIDs.end(), id) != exportedIDs.end();
            });
            if (!kept.empty()) track.references.emplace_back(type, std::move(kept));
        }
    }
    const Value attributes = Value::dictionary(
        {{QTMovieFlatten, true}, {QTMovieExport, true}, {QTMovieExportType, static_cast<std::int64_t>(fileType_)}});
    return exported.writeToFile(dataRef.path, attributes) ? noErr : ioErr;
}

OSErr MovieExporter::setSettings(std::span<const std::uint8_t> container)
{
    if (!isRootedContainer(container)) return paramErr;
    MovieExportSettings settings = settings_;
    if (auto types = findQTAtomData(container, {kExportSettingsMediaTypes})) {
        if (types->size() % 4 != 0) return paramErr;
        settings.mediaTypes.clear();
        for (std::size_t at = 0; at < types->size(); at += 4) settings.mediaTypes.push_back(readU32BE(&(*types)[at]));
    }
    if (auto tags = findQTAtomData(container, {kExportSettingsMetaData})) {
        if (tags->size() != 1 || (*tags)[0] > 1) return paramErr;
        settings.copyMetaData = (*tags)[0] == 1;
    }
    settings_ = std::move(settings);
    settingsStored_ = true;
    return noErr;
}

QTAtomContainer MovieExporter::settingsContainer() const
{
    QTAtomContainer container;
    if (QTNewAtomContainer(container) != noErr) return nullptr;
    ByteWriter types(4 * settings_.mediaTypes.size());
    for (auto type : settings_.mediaTypes) types.putFourCC(type);
    const std::uint8_t copyMetaData = settings_.copyMetaData ? 1 : 0;
    QTInsertChild(container, kParentAtomIsContainer, kExportSettingsMediaTypes, 1, 0,
                  static_cast<std::int32_t>(types.size()), types.bytes().data(), nullptr);
    QTInsertChild(container, kParentAtomIsContainer, kExportSettingsMetaData, 1, 0, 1, &copyMetaData, nullptr);
    return container;
}

ComponentRegistration handheldPlayerExporter()
{
    return {{MovieExportType, kHandheldPlayerFileType, kAppleManufacturer,
             canMovieExportFiles | hasMovieExportUserInterface, 0},
            "Handheld player movie (MPEG-4, .m4v)",
            [] {
                return std::make_shared<MovieExporter>(kHandheldPlayerFileType,
                                                       MovieExportSettings{{fourCC("soun")}, true});
            }};
}

ComponentRegistration movieExporter()
{
    return {{MovieExportType, kMovieFileType, kAppleManufacturer, canMovieExportFiles | hasMovieExportUserInterface, 0},
            "QuickTime movie (.mov)",
            [] {
                return std::make_shared<MovieExporter>(kMovieFileType, MovieExportSettings{{}, true});
            }};
}

ComponentResult MovieExportToDataRef(const ComponentInstance& exporter, const DataReference* dataRef,
                                     std::uint32_t dataRefType, Movie* movie, Track* onlyThisTrack, TimeValue startTime,
                                     TimeValue duration)
{
    return withExporter(exporter, [&]() -> ComponentResult {
        if (!movie) return invalidMovie;
        if (!dataRef || dataRefType != AliasDataHandlerSubType) return couldNotResolveDataRef;
        return exporter->exportMovie(*dataRef, *movie, onlyThisTrack, startTime, duration);
    });
}

ComponentResult MovieExportSetSettingsFromAtomContainer(const ComponentInstance& exporter,
                                                        const QTAtomContainer& settings)
{
    return withExporter(exporter, [&]() -> ComponentResult {
        if (!settings) return nilHandleErr;
        return exporter->setSettings(settings->bytes);
    });
}

ComponentResult MovieExportGetSettingsAsAtomContainer(const ComponentInstance& exporter, QTAtomContainer& settings)
{
    return withExporter(exporter, [&]() -> ComponentResult {
        settings = exporter->settingsContainer();
        return settings ? noErr : MemError();
    });
}

ComponentResult MovieExportDoUserDialog(const ComponentInstance& exporter, Movie* /*movie*/, Track* /*onlyThisTrack*/,
                                        TimeValue /*startTime*/, TimeValue /*duration*/, bool* canceled)
{
    return withExporter(exporter, [&]() -> ComponentResult {
        // A terminal host has no dialog to show: the settings stay as they are.
        logMethod(kDoUserDialog, "No settings dialog on this platform: exporting with the {} settings, {}",
                  exporter->settingsStored() ? "stored" : "default", describe(exporter->settings()));
        if (canceled) *canceled = false;
        return noErr;
    });
}

OSErr ConvertMovieToDataRef(Movie* movie, Track* onlyThisTrack, const DataReference* dataRef, std::uint32_t dataRefType,
                            std::uint32_t fileType, std::uint32_t /*creator*/, std::int32_t flags,
                            const ComponentInstance& exporter)
{
    if (!movie) return recordMoviesError(invalidMovie);
    if (!dataRef || dataRefType != AliasDataHandlerSubType) return recordMoviesError(couldNotResolveDataRef);
    ComponentInstance chosen = exporter;
    if (!chosen) {
        const Component found =
            FindNextComponent(0, {MovieExportType, fileType, 0, canMovieExportFiles, canMovieExportFiles});
        if (!found) return recordMoviesError(badComponentType);
        chosen = OpenComponent(found);
    }
    if (flags & showUserSettingsDialog) {
        bool canceled = false;
        const ComponentResult status =
            MovieExportDoUserDialog(chosen, movie, onlyThisTrack, 0, GetMovieDuration(movie), &canceled);
        if (status != noErr) return recordMoviesError(static_cast<OSErr>(status));
        if (canceled) return recordMoviesError(userCanceledErr);
    }
    std::error_code ignored;
    if (!(flags & createMovieFileDeleteCurFile) && std::filesystem::exists(dataRef->path, ignored))
        return recordMoviesError(dupFNErr);
    const ComponentResult status =
        MovieExportToDataRef(chosen, dataRef, dataRefType, movie, onlyThisTrack, 0, GetMovieDuration(movie));
    return recordMoviesError(static_cast<OSErr>(status));
}

}  // namespace quillora::toolbox
