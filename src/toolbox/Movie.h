// Our movie toolbox: a small object model of a QuickTime movie. A movie has
// tracks; a track has an edit list that maps its time onto its media; a
// media has a type, a time scale, sample descriptions and samples. A sample
// is either a range of a file (a copied recording's audio, streamed when the
// movie is written) or bytes held in memory (a text sample, a picture).
//
// One reader fills the model from a file (movieWithFile); one writer
// flattens it into a self-contained file, movie atom first (writeToFile).
// The C-style calls in Toolbox.h are thin functions over this model.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Bytes.h"
#include "foundation/FourCC.h"
#include "foundation/Value.h"
#include "layout/Matrix.h"

namespace quillora::toolbox {

using TimeValue = std::int64_t;
using TimeScale = std::int32_t;
using Fixed = std::int32_t;  // 16.16
using OSErr = std::int16_t;

inline constexpr Fixed kFixed1 = 0x00010000;
inline constexpr TimeScale kDefaultMovieTimeScale = 600;

// The file types a movie is written as: a QuickTime movie, an MPEG-4 file of
// the handheld player's brand, and an MPEG-4 audio file.
inline constexpr std::uint32_t kMovieFileType = fourCC("MooV");
inline constexpr std::uint32_t kHandheldPlayerFileType = fourCC("M4V ");
inline constexpr std::uint32_t kAudioFileType = fourCC("M4A ");

using quillora::kIdentityMatrix;
using quillora::Matrix;

struct Sample {
    std::uint64_t offset = 0;  // in the media's data file, or in its held bytes
    std::uint32_t size = 0;
    std::uint32_t duration = 0;  // media time units
    std::uint32_t descriptionIndex = 1;
    bool held = false;  // the bytes are in Media::heldBytes
};

// One entry of the edit list: a stretch of the track's time, in the movie's
// time scale, showing media from mediaTime on (-1: nothing, an empty edit).
struct Edit {
    TimeValue trackDuration = 0;
    TimeValue mediaTime = -1;
    Fixed rate = kFixed1;
};

struct Media {
    std::uint32_t type = 0;  // 'soun', 'vide', 'text'
    TimeScale timeScale = kDefaultMovieTimeScale;
    std::uint16_t language = 0;
    // Whole sample description entries, size and format included.
    std::vector<Bytes> sampleDescriptions;
    // Where referenced samples lie, and the bytes of held ones.
    std::filesystem::path dataFile;
    Bytes heldBytes;
    // Text media: the encoding that later samples announce in an 'encd' atom.
    std::optional<std::uint32_t> textEncoding;

    // The samples. A media read from a file reads them when first asked, so
    // that opening a recording for its duration stays cheap.
    std::vector<Sample>& samples();
    const std::vector<Sample>& samples() const;
    // Each sample in turn. Until samples() is asked for, a media read from a
    // file reads its table again for each call and holds none of it: a long
    // recording is checked and copied in the same memory as a short one.
    using SampleVisitor = std::function<void(const Sample&)>;
    void forEachSample(const SampleVisitor& visit) const;
    // Hands each sample of the file's table to visit, and notes what it finds
    // wrong with them in problems. Without a header duration (a fragmented
    // file's media, whose header does not count the fragments) the duration
    // comes from the samples.
    using SampleReader = std::function<void(std::vector<std::string>& problems, const SampleVisitor& visit)>;
    void setSampleReader(SampleReader reader, std::optional<TimeValue> headerDuration);
    // Takes the other media's samples and descriptions without copying them:
    // the table is shared until one of the two changes it, and a table not
    // yet read is read by each from the file.
    void shareSamples(const Media& other);

    TimeValue duration() const;
    // The sample that plays at a media time, and the time it starts.
    std::optional<std::size_t> sampleAtTime(TimeValue time, TimeValue* start = nullptr) const;
    // The bytes of a sample, read from the file when it is referenced.
    Bytes sampleBytes(const Sample& sample) const;

    // Why the media does not play as its file describes it: a file cut
    // short, tables that disagree, fragments that cannot be read, a time
    // scale out of range (then 0), samples past the end of the data file, no
    // samples at all. Empty for a sound media that plays whole. Reads the
    // samples when they were not yet read.
    std::vector<std::string> problems() const;
    // Notes damage found while reading the media.
    void addProblem(std::string problem) { problems_.push_back(std::move(problem)); }

private:
    // One pass of the reader; its problems are kept from the first.
    void readSamples(const SampleVisitor& visit) const;

    mutable std::shared_ptr<std::vector<Sample>> samples_ = std::make_shared<std::vector<Sample>>();
    mutable SampleReader sampleReader_;
    std::optional<TimeValue> headerDuration_;
    // The samples' own duration, once the reader has gone through them.
    mutable std::optional<TimeValue> readDuration_;
    mutable std::vector<std::string> problems_;
};

class Movie;

// The picture sizes of a visual track in each aperture mode: clean
// aperture, production aperture and encoded pixels (16.16 each).
struct ApertureDimensions {
    Fixed cleanWidth = 0, cleanHeight = 0;
    Fixed productionWidth = 0, productionHeight = 0;
    Fixed encodedWidth = 0, encodedHeight = 0;
    friend bool operator==(const ApertureDimensions&, const ApertureDimensions&) = default;
};

inline constexpr std::uint32_t kQTApertureMode_Classic = 0x636C6173;             // 'clas'
inline constexpr std::uint32_t kQTApertureMode_CleanAperture = 0x636C6561;       // 'clea'
inline constexpr std::uint32_t kQTApertureMode_ProductionAperture = 0x70726F64;  // 'prod'
inline constexpr std::uint32_t kQTApertureMode_EncodedPixels = 0x656E636F;       // 'enco'

struct Track {
    Movie* movie = nullptr;
    std::uint32_t trackID = 0;
    bool enabled = true;
    std::int16_t layer = 0;
    std::int16_t alternateGroup = 0;
    std::int16_t volume = 0;  // 8.8
    Matrix matrix = kIdentityMatrix;
    Fixed width = 0;
    Fixed height = 0;
    std::vector<Edit> edits;
    // Track references by type ('chap', ...): the IDs they name.
    std::vector<std::pair<std::uint32_t, std::vector<std::uint32_t>>> references;
    std::string name;  // shown by players; empty for none
    // Written as the track's 'tapt' atom (clef, prof, enof) when present.
    std::optional<ApertureDimensions> apertureDimensions;
    std::unique_ptr<Media> media;

    // In the movie's time scale: the sum of the edits.
    TimeValue duration() const;
    std::uint32_t mediaType() const { return media ? media->type : 0; }
};

// One metadata item. Storage is 'mdta' (the movie's own 'meta') or 'itms'
// (the iTunes item list); the key format is 'mdta' (reverse-DNS names),
// 'itsk' (four-byte keys) or 'itlk' (long, '----' keys).
struct MetaDataItem {
    std::uint32_t storage = 0;
    std::uint32_t keyFormat = 0;
    Bytes key;
    std::uint32_t dataType = 0;  // 1 UTF-8, 21 signed integer, ...
    std::string locale;          // "en", "fr_CA", or empty
    Bytes value;
};

class Movie {
public:
    Movie() = default;
    Movie(const Movie&) = delete;
    Movie& operator=(const Movie&) = delete;

    // Opens the movie at path. On failure returns nothing and, when error is
    // given, puts a sentence saying what is wrong there.
    static std::unique_ptr<Movie> movieWithFile(const std::filesystem::path& path, std::string* error = nullptr);

    const std::filesystem::path& path() const { return path_; }
    void setPath(std::filesystem::path path) { path_ = std::move(path); }
    TimeScale timeScale() const { return timeScale_; }
    void setTimeScale(TimeScale scale) { timeScale_ = scale; }
    // The movie's duration in its own time scale: its longest track, or the
    // header's value when that is longer (a movie read from a file).
    std::uint64_t duration() const;
    const std::vector<std::unique_ptr<Track>>& tracks() const { return tracks_; }
    std::vector<MetaDataItem>& metaData() { return metaData_; }
    const std::vector<MetaDataItem>& metaData() const { return metaData_; }
    bool editable() const { return editable_; }
    void setEditable(bool on) { editable_ = on; }
    // The movie's own matrix (in its header): it places the tracks' picture
    // in the movie box.
    const Matrix& matrix() const { return matrix_; }
    void setMatrix(const Matrix& matrix) { matrix_ = matrix; }
    // Which picture size the movie shows ('clas' classic by default). Any
    // other mode is written as an 'apmd' atom (4 bytes) in the movie's user
    // data, so that it survives a flatten.
    std::uint32_t apertureMode() const { return apertureMode_; }
    void setApertureMode(std::uint32_t mode) { apertureMode_ = mode; }

    Track& newTrack();
    std::uint32_t nextTrackID() const;
    Track* trackWithID(std::uint32_t trackID) const;
    // The index-th track (from 1) whose media is of the type.
    Track* trackOfMediaType(std::uint32_t type, int index = 1) const;

    // Appends a still picture to the movie's video track (made when missing),
    // encoded with the codec ('png ' or 'jpeg') at the quality (0-1023), for
    // duration in the movie's time scale. False when the picture cannot be read.
    bool addImage(const std::filesystem::path& picture, TimeValue duration, const Value& attributes);
    // Flattens the movie into one self-contained file at path: the movie
    // atom first, then the media data. Attributes hold "QTMovieFlatten",
    // "QTMovieExport" and "QTMovieExportType": 'MooV' (the default) writes a
    // QuickTime movie, 'M4V ' an MPEG-4 file of that brand for handheld
    // players; other types are not written. False when the file cannot be written; nothing is left then.
    // A file that only this program reads again, in a scratch folder that a
    // crash leaves useless anyway, need not wait for the disk.
    enum class Durability { synchronized, scratch };
    bool writeToFile(const std::filesystem::path& path, const Value& attributes,
                     Durability durability = Durability::synchronized) const;
    // Writes the movie back over the file it was opened from.
    bool updateMovieFile();

private:
    std::filesystem::path path_;
    TimeScale timeScale_ = kDefaultMovieTimeScale;
    std::uint64_t headerDuration_ = 0;
    std::vector<std::unique_ptr<Track>> tracks_;
    std::vector<MetaDataItem> metaData_;
    bool editable_ = false;
    Matrix matrix_ = kIdentityMatrix;
    std::uint32_t apertureMode_ = kQTApertureMode_Classic;

    friend class MovieReader;
};

// Attribute keys of addImage and writeToFile.
inline constexpr const char* QTAddImageCodecType = "QTAddImageCodecType";
inline constexpr const char* QTAddImageCodecQuality = "QTAddImageCodecQuality";
inline constexpr const char* QTMovieFlatten = "QTMovieFlatten";
inline constexpr const char* QTMovieExport = "QTMovieExport";
inline constexpr const char* QTMovieExportType = "QTMovieExportType";

}  // namespace quillora::toolbox
