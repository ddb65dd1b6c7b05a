// The chapterized movie through our toolbox: a new movie in a temporary
// file, the recording's sound copied into it, the slides as pictures and a
// chapter text track that the sound track names.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/TextEncoding.h"
#include "foundation/WhiteSpace.h"
#include "toolbox/TextMedia.h"
#include "toolbox/Toolbox.h"

namespace quillora {

using namespace toolbox;

namespace {

constexpr std::string_view kAddChapterTrack = "-[QTDataEditor addChapterTrack:error:]";
constexpr std::uint32_t kSound = fourCC("soun");
constexpr std::uint32_t kText = fourCC("text");
constexpr std::uint32_t kVideo = fourCC("vide");
constexpr std::uint32_t kChapterReference = fourCC("chap");
constexpr std::uint32_t kMovieCreator = fourCC("TVOD");
constexpr std::size_t kTextDescriptionHandleSize = 60;
constexpr std::int16_t kCentred = 1;
constexpr std::int32_t kChapterDisplayFlags = 4;
constexpr std::int64_t kChapterImageQuality = 512;

}  // namespace

std::unique_ptr<Movie> QTDataEditor::movieFromTempFile(std::unique_ptr<MovieStorage>& dataHandler, std::int16_t& status)
{
    status = -1;
    // A fresh name in the temporary folder, made by creating the file, so no
    // other process can take it between naming and use.
    std::string name = (std::filesystem::temp_directory_path() / "quillora-movie-XXXXXX").string();
    const int fd = ::mkstemp(name.data());
    if (fd < 0) return nullptr;
    ::close(fd);
    std::unique_ptr<DataReference> reference;
    std::uint32_t referenceType = 0;
    const OSErr made = QTNewDataReferenceFromFullPathCFString(name, -1, 0, reference, referenceType);
    if (made != noErr) {
        status = made;
        return nullptr;
    }
    std::unique_ptr<Movie> movie;
    CreateMovieStorage(*reference, referenceType, kMovieCreator, -1, newMovieActive, dataHandler, movie);
    status = GetMoviesError();
    if (status != noErr) return nullptr;
    moviePath_ = name;
    return movie;
}

std::int16_t QTDataEditor::copyAudioTrackFrom(Movie& recording)
{
    Track* sound = recording.trackOfMediaType(kSound);
    if (!sound || !sourceMovie_) return 0;
    Track* track = NewMovieTrack(*sourceMovie_, 0, 0, GetTrackVolume(sound));
    Media* media = NewTrackMedia(track, kSound, recording.timeScale(), nullptr, 0);
    BeginMediaEdits(media);
    InsertTrackSegment(sound, GetTrackOffset(sound), GetTrackDuration(sound), track, 0);
    EndMediaEdits(media);
    return CopyTrackSettings(sound, track);
}

bool QTDataEditor::addChapterTrack(const Value& transitions, ErrorRecord* /*error*/)
{
    logMethod(kAddChapterTrack, "Adding Chapter Track");
    Handle dataReference = NewHandleDataReference();
    Movie& movie = *sourceMovie_;
    Track* track = NewMovieTrack(movie, 0, 0, 0);
    const TimeScale timeScale = movie.timeScale();
    Media* media = NewTrackMedia(track, kText, timeScale, dataReference, HandleDataHandlerSubType);
    MediaHandler handler = GetMediaHandler(media);
    SetTrackEnabled(track, true);
    if (BeginMediaEdits(media) != noErr) return false;

    const auto duration = static_cast<TimeValue>(movie.duration());
    const Value imageAttributes =
        Value::dictionary({{QTAddImageCodecType, "png "}, {QTAddImageCodecQuality, kChapterImageQuality}});
    logMethod(kAddChapterTrack, "adding chapter information to movie");

    auto fail = [&](std::string_view message, OSErr status) {
        logMethod(kAddChapterTrack, "{}", fmt::format(fmt::runtime(message), static_cast<long>(status)));
        EndMediaEdits(media);
        DisposeHandle(dataReference);
        return false;
    };
    const auto slides = transitions.asArray() ? *transitions.asArray() : Array{};
    for (std::size_t i = 0; i < slides.size(); ++i) {
        const Value& transition = slides[i];
        const int chapter = static_cast<int>(i + 1);
        logMethod(kAddChapterTrack, "chapter {}:", chapter);
        const TimeValue start = transition.integerForKey("timeValue").value_or(0);
        const TimeValue end = i + 1 < slides.size() ? slides[i + 1].integerForKey("timeValue").value_or(0) : duration;
        const QTTime length = QTMakeTime(end - start, timeScale);
        logMethod(kAddChapterTrack, "    duration: {}", QTStringFromTime(length));

        const std::string imagePath = transition.stringForKey("imagePath").value_or("");
        movie.addImage(imagePath, length.timeValue, imageAttributes);
        logMethod(kAddChapterTrack, "    image: {}", std::filesystem::path(imagePath).filename().string());

        const auto slideTitle = transition.stringForKey("slideTitle");
        const std::string title = slideTitle && !slideTitle->empty()
                                      ? std::string(trimmedWhiteSpaceAndLineEnds(*slideTitle))
                                      : fmt::format("Chapter {}", chapter);
        logMethod(kAddChapterTrack, "    title: {}", title);

        const Bytes text = utf16BigEndian(title, true);
        if (!decodeUTF8(title)) logMethod(kAddChapterTrack, "Non-lossy conversion to UTF-16 failed!");
        const std::uint32_t encoding = kTextEncodingUnicode;
        OSErr status = TextMediaSetTextSampleData(handler, &encoding, kTextEncodingSelector);
        if (status != noErr) return fail("*** Failed setting text media to expect UTF-16 text with error {}.", status);
        const Rect noBox{};
        status = TextMediaAddTextSample(handler, text.data(), text.size(), 0, 0, 0, nullptr, nullptr, kCentred, &noBox,
                                        kChapterDisplayFlags, 0, 0, 0, nullptr, length.timeValue, nullptr);
        if (status != noErr) return fail("*** Failed adding text sample with error {}.", status);
    }

    pullDesc_ = NewHandleClear(kTextDescriptionHandleSize);
    GetMediaSampleDescription(media, 1, pullDesc_);
    const OSErr ended = EndMediaEdits(media);
    DisposeHandle(dataReference);
    if (ended != noErr) {
        logMethod(kAddChapterTrack, "*** Failed ending media edits with error {}.", static_cast<long>(ended));
        return false;
    }
    const OSErr inserted = InsertMediaIntoTrack(track, 0, 0, GetMediaDuration(media), kFixed1);
    if (inserted != noErr) {
        logMethod(kAddChapterTrack, "*** Failed inserting media into text media into chapter track with error {}.",
                  static_cast<long>(inserted));
        return false;
    }
    Track* sound = movie.trackOfMediaType(kSound);
    if (!sound) throw std::out_of_range("the movie has no sound track to refer to its chapters from");
    const OSErr referenced = AddTrackReference(sound, track, kChapterReference, nullptr);
    if (referenced != noErr) {
        logMethod(kAddChapterTrack, "*** Failed adding reference from sound track to chapter track with error {}.",
                  static_cast<long>(referenced));
        return false;
    }
    Track* video = movie.trackOfMediaType(kVideo);
    if (!video) {
        logMethod(kAddChapterTrack, "No video track.");
        return true;
    }
    SetTrackOffset(video, 0);
    logMethod(kAddChapterTrack, "Set video track to start at time 0.");
    return true;
}

std::string QTDataEditor::saveAsEnhancedPodcast(const std::string& path)
{
    const std::string moviePath = std::filesystem::path(path).replace_extension("mov").string();
    sourceMovie_->writeToFile(moviePath, Value::dictionary({{QTMovieExport, true},
                                                            {QTMovieExportType, std::int64_t{kMovieFileType}},
                                                            {QTMovieFlatten, true}}));
    return moviePath;
}

Value QTDataEditor::chapterList() const
{
    return Value::array({Value::dictionary()});
}

}  // namespace quillora
