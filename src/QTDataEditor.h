// The editor of one export: owns the open file being edited, the scratch
// folder and the atom-debugging switch, and carries the atom engine (search,
// in-place edits with size and chunk-offset fix-up, file helpers). Its other
// member functions (track writers, metadata, toolbox path) are defined in the
// subsystem folders; this header declares them all.
//
// The engine is deliberately 32-bit: 8-byte atom headers only, signed 32-bit
// offsets and sizes, `stco` only, the first five tracks only.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/Bytes.h"
#include "foundation/Errors.h"
#include "foundation/FileHandle.h"
#include "foundation/Value.h"
#include "layout/AtomFactory.h"

namespace quillora {

namespace toolbox {
class Movie;
struct Track;
struct MovieStorage;
struct HandleBlock;
}  // namespace toolbox

// Where a search found an atom: its offset and the size its header declares.
struct AtomLocation {
    std::int32_t offset = 0;
    std::int32_t size = 0;
    friend bool operator==(const AtomLocation&, const AtomLocation&) = default;
};

class QTDataEditor : public AtomFactory {
public:
    QTDataEditor();

    // --- fields and accessors -------------------------------------------
    const std::shared_ptr<FileHandle>& sourceFileHandle() const { return sourceFileHandle_; }
    void setSourceFileHandle(std::shared_ptr<FileHandle> handle) { sourceFileHandle_ = std::move(handle); }
    toolbox::Movie* sourceMovie() const { return sourceMovie_; }
    void setSourceMovie(toolbox::Movie* movie) { sourceMovie_ = movie; }
    const Value& supportedAtomTypes() const { return supportedAtomTypes_; }
    void setSupportedAtomTypes(Value types) { supportedAtomTypes_ = std::move(types); }
    const Value& supportedM4aTags() const { return supportedM4aTags_; }
    void setSupportedM4aTags(Value tags) { supportedM4aTags_ = std::move(tags); }
    bool atomDebugging() const { return atomDebugging_; }
    void setAtomDebugging(bool on) { atomDebugging_ = on; }
    bool doneWritingFile() const { return doneWritingFile_; }
    void setDoneWritingFile(bool done) { doneWritingFile_ = done; }
    const std::string& tempProcessingFolderPath() const { return tempProcessingFolderPath_; }
    // Creates the folder, with any missing intermediate folders.
    void setTempProcessingFolderPath(const std::string& path);
    const std::string& tempSourceFilePath() const { return tempSourceFilePath_; }
    // Creates the folder that will contain the file.
    void setTempSourceFilePath(const std::string& path);
    std::int32_t kQTInfoAnyAtomType() const { return kQTInfoAnyAtomType_; }
    void acceptDataAvailableNotification() { doneWritingFile_ = true; }

    // --- search ------------------------------------------------------------
    // Walks one chain of atoms from offset and returns the index-th atom of
    // the type (counted from 1; type kQTInfoAnyAtomType matches any atom).
    // The walk does not stop at the end of a parent: it runs on through later
    // atoms to the end of the file.
    std::optional<AtomLocation> findAtomOfType(std::uint32_t type, std::int32_t offset, int index, FileHandle& file);
    // The same on sourceFileHandle.
    std::optional<AtomLocation> findAtomOfType(std::uint32_t type, std::int32_t offset, int index);
    static std::int32_t getSizeOfAtom(const Bytes& atom);

    // --- in-place editing --------------------------------------------------
    Bytes createAtomOfType(std::uint32_t type, std::span<const std::uint8_t> data) override;
    // Grows the atom at offset by data; returns the offset at which the data
    // now lies (the atom's old end), or -1 when no atom can be read there.
    std::int32_t appendData(std::span<const std::uint8_t> data, std::int32_t atomOffset, FileHandle& file);
    // Appends a child as the parent's last child; childPosition receives its
    // offset. Returns 1.
    std::int32_t appendChildAtom(std::span<const std::uint8_t> atom, std::int32_t parentOffset, FileHandle& file,
                                 std::int32_t& childPosition);
    // Cuts out the atom at offset. NO only when no atom can be read there.
    bool removeAtomAtOffset(std::int32_t offset, FileHandle& file);
    bool updateParentSize(std::int32_t delta, std::int32_t childOffset, FileHandle& file, bool addition);
    bool findParentAtomsOfChildAtOffset(std::int32_t childOffset, std::int32_t readOffset, FileHandle& file,
                                        std::int32_t& parentOffset, std::int32_t delta, bool addition);
    bool updateSTCOAtomsInFile(FileHandle& file, std::int32_t editOffset, std::int32_t withNewOffet, bool addition);
    bool isLastAtomInFile(std::uint32_t type, int index);

    // --- file helpers ------------------------------------------------------
    // "JPEG", "PNG", "TIFF", "GIF", "BMP", "PSD", or nothing.
    static std::optional<std::string> getImageTypeFromFile(const std::filesystem::path& path);
    bool convertMovAtPath(const std::filesystem::path& source, const std::filesystem::path& destination);
    bool cleanFreeAtoms();
    bool copyTRAKAtomsFromFile(FileHandle& source, std::int32_t offset, FileHandle& destination);
    Value readiTunesMetadata();

    // --- text tracks (src/tracks/) ----------------------------------------
    // Transitions are an array of transition dictionaries; parameters hold
    // "duration" and "trackID"; attributes are the text-track attributes
    // ("textTrackFontFace", "textTrackFontSize", "textTrackFontColorData",
    // "textTrackBackgroundColorData"). The error out-arguments are never set.
    bool addChapters(const Value& transitions, FileHandle& file, const std::string& path, const Value& parameters,
                     ErrorRecord* error = nullptr);
    bool addTextTrackURLs(const Value& transitions, const Value& attributes, FileHandle& file, const std::string& path,
                          const Value& parameters, ErrorRecord* error = nullptr);
    // The older variant: opens the movie and the file at path itself.
    bool addTextTrackURLs(const Value& transitions, const Value& attributes, const std::filesystem::path& path);
    bool addTextTrackForNotes(const Value& transitions, const Value& attributes, FileHandle& file,
                              const std::filesystem::path& path);

    // --- slide image track (src/tracks/) ----------------------------------
    // notifying and error are accepted and not used.
    bool addImages(const Value& transitions, FileHandle& file, const std::string& path, const Value& parameters,
                   const void* notifying = nullptr, ErrorRecord* error = nullptr);
    // The older variant: opens the movie and the file itself, and registers
    // the editor and the observer for the file's data-available notification.
    bool addImages(const Value& transitions, const std::filesystem::path& path,
                   std::function<void()> dataAvailableObserver);

    // --- iTunes metadata (src/metadata/) ----------------------------------
    // tags: a dictionary of tag key to string; its "software" entry is set.
    // Anything else (no tags) writes an empty item list.
    bool addMetadata(const Value& tags, FileHandle& file, const std::string& path);
    bool addMetadata(const Value& tags, const std::filesystem::path& path);
    // The chapter list ('chpl') for readers that know no chapter track: the
    // slides' start times and chapter names, last in moov/udta, replacing any
    // old one. At most 255 chapters. False (and nothing written) without a
    // user data atom.
    bool addChapterList(const Value& transitions, FileHandle& file);

    // --- the chapterized movie through the toolbox (src/toolbox/) ------------
    using Handle = std::shared_ptr<toolbox::HandleBlock>;
    // A new, empty movie stored in a temporary file; status is -1 until the
    // storage is made, then the toolbox's answer.
    std::unique_ptr<toolbox::Movie> movieFromTempFile(std::unique_ptr<toolbox::MovieStorage>& dataHandler,
                                                      std::int16_t& status);
    // Copies the recording's first sound track into the source movie.
    std::int16_t copyAudioTrackFrom(toolbox::Movie& recording);
    // The slides as pictures and a chapter text track that the sound track
    // names; error is never set. Throws std::out_of_range when the movie has
    // no sound track to refer from.
    bool addChapterTrack(const Value& transitions, ErrorRecord* error = nullptr);
    std::string saveAsEnhancedPodcast(const std::string& path);
    Value chapterList() const;
    void setChapterList(const Value& /*list*/) {}
    const std::string& moviePath() const { return moviePath_; }
    // The chapter media's text description, kept for the hyperlink track.
    const Handle& pullDesc() const { return pullDesc_; }

    // --- hyperlinks through the toolbox (src/toolbox/) -----------------------
    bool addHTAct_CreateHyperTextActionContainer(Handle& container, const std::string& url);
    bool addHTAct_AddHyperActions(const Handle& container, const Handle& sample);
    bool AddHTAct_AddHyperTextToTextMovie(const Value& transitions);
    bool addTextTrackWithHyperLinks(const Value& transitions, const Value& attributes, const Value& parameters);
    void QTUtils_SetName(const std::string& name, toolbox::Track* track);
    // Players treat a text track named "HREFTrack" as one whose samples are links.
    void QTText_SetTextTrackAsHREFTrack(toolbox::Track* track, bool isHREFTrack);
    // The bytes themselves, as a pointer data reference's handle holds them.
    static Handle myCreatePointerReferenceHandleForData(const void* data, std::size_t size);
    // The URL as a C string, terminator included.
    static Handle myCreateURLDataReferenceHandle(const std::string& url);
    // At most 255 bytes of the C string after a length byte.
    static void qtText_CopyCStringToPascal(const char* source, std::uint8_t (&destination)[256]);
    // UTF-16 big-endian, '?' for what cannot be converted.
    static Bytes dataRepresentationOfString(const std::string& text);

    // --- movie metadata through the toolbox (src/toolbox/) -------------------
    // {"iTunesShortForm", "iTunesLongForm", "QuickTimeNative"}: key to text.
    Value getMetaDataForFileAtPath(const std::string& path);
    Value getMetaDataFromMovie(toolbox::Movie& movie, std::uint32_t dataStorageFormatType,
                               std::uint32_t dataKeyFormatType);
    // Sets "software" in tags, then adds the common items of the source
    // movie; no tags (a null value) add nothing. Failures are
    // InternalInconsistency.
    bool setMetaData(const Value& tags, std::uint32_t storageFormat);
    // The user's first language ("AppleLanguages"), Mac OS Roman bytes.
    std::string langCode();
    void updateMovie();

    // --- the handheld-player movie through the toolbox (src/toolbox/) -------
    // Exports the source movie (its tracks of the kept media types) with
    // the exporter settings stored in "/ExporterSettings_iPod.atoms", to the
    // destination (a URL's path). Reports nothing.
    void exportToIPod(const std::filesystem::path& destination);
    // Exports the source movie's first sound track to path. Returns the low
    // byte of the last toolbox status: 0 is success (and so is any status
    // whose low byte is 0). Marks "/iPodMovie.m4v" with the type 'MFB '.
    std::int8_t exportAsiPodMovieToPath(const std::string& path, bool usingCleanApertureMode);
    // Sets the aperture mode to clean aperture; previousMode receives the old
    // one (untouched when a step fails). Always true.
    bool setMovieCleanApertureMode(std::uint32_t* previousMode);
    bool setExportMovieBoxToWidth(float width, float height);
    // The exporters that write files: {"name", "component" (the reference's
    // 4 bytes as they lie in memory), "type", "subtype", "manufacturer"}.
    Value availableComponents();
    // The handheld-player exporter's settings (an atom container), after
    // its settings dialog.
    std::optional<Bytes> loadExportSettings();

private:
    struct AtomHeader {
        std::int32_t size;
        std::uint32_t type;
    };
    // The 8-byte header at offset, or nothing when the offset is negative or
    // fewer than 8 bytes are left there.
    static std::optional<AtomHeader> readAtomHeader(FileHandle& file, std::int32_t offset);
    static std::uint32_t scanLength(FileHandle& file);
    std::optional<AtomLocation> search(std::uint32_t type, std::int32_t offset, int index, FileHandle& file,
                                       std::string_view method);
    FileHandle& requireSourceFileHandle() const;

    std::string aFileName_;
    std::string moviePath_;
    Handle pullDesc_;
    std::shared_ptr<FileHandle> sourceFileHandle_;
    toolbox::Movie* sourceMovie_ = nullptr;
    std::string tempSourceFilePath_;
    Value supportedAtomTypes_;
    Value supportedM4aTags_;
    std::int32_t kQTInfoAnyAtomType_ = 0;
    std::string tempProcessingFolderPath_;
    bool doneWritingFile_ = false;
    bool atomDebugging_ = false;
};

// Wrapping 32-bit arithmetic, the way the engine's signed offsets behave.
inline std::int32_t wrappingAdd(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
inline std::int32_t wrappingSubtract(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

}  // namespace quillora
