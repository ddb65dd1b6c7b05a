// The hyperlink text track through our toolbox: one text sample per slide
// showing its link's title, carrying a wired go-to-URL action in a QT atom
// container appended to the sample as an 'htxt' atom.
#include <cstring>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/TextEncoding.h"
#include "layout/ColorData.h"
#include "layout/TextSamples.h"
#include "toolbox/AtomContainer.h"
#include "toolbox/TextMedia.h"
#include "toolbox/Toolbox.h"

namespace quillora {

using namespace toolbox;

namespace {

constexpr std::string_view kCreateContainer = "-[QTDataEditor addHTAct_CreateHyperTextActionContainer:withURL:]";
constexpr std::string_view kAddActions = "-[QTDataEditor addHTAct_AddHyperActions:toSample:]";
constexpr std::string_view kAddToTextMovie = "-[QTDataEditor AddHTAct_AddHyperTextToTextMovie:]";
constexpr std::string_view kAddLinkTrack = "-[QTDataEditor addTextTrackWithHyperLinks:attributes:parameters:]";

constexpr QTAtomType kTextWiredObjectsAtomType = fourCC("wtxt");
constexpr QTAtomType kHyperTextItemAtomType = fourCC("htxt");
constexpr QTAtomType kRangeStart = fourCC("strt");
constexpr QTAtomType kRangeEnd = fourCC("end ");
constexpr QTAtomType kQTEventType = fourCC("evnt");
constexpr QTAtomID kQTEventMouseClick = static_cast<QTAtomID>(fourCC("clik"));
constexpr QTAtomType kAction = fourCC("actn");
constexpr QTAtomType kWhichAction = fourCC("whic");
constexpr QTAtomType kActionParameter = fourCC("parm");
constexpr std::uint32_t kActionGoToURL = 6146;

constexpr std::uint32_t kText = fourCC("text");
constexpr std::uint32_t kVideo = fourCC("vide");
constexpr std::size_t kMaximumTextLength = 65535;
constexpr std::uint32_t kMacRomanEncoding = 0;
constexpr std::int16_t kCentred = 1;
constexpr std::int16_t kInterestingFlags = 16385;  // next media sample, edge allowed
// Any valid address will do: the wiring of an existing track attaches one container to every sample.
constexpr const char* kPlaceholderURL = "http://www.example.com/";

Bytes bigEndian32(std::uint32_t value)
{
    ByteWriter writer(4);
    writer.putU32BE(value);
    return writer.take();
}

// The title's bytes in the first encoding that takes it: Mac OS Roman, else Unicode.
std::pair<Bytes, std::uint32_t> encodedTitle(const std::string& title)
{
    if (auto roman = macRomanFromUTF8(title, false)) return {*roman, kMacRomanEncoding};
    if (!decodeUTF8(title)) {
        throw InternalInconsistency(
            std::string(kAddLinkTrack), "QTDataEditor", __LINE__,
            fmt::format("*** Failed getting text data using fallback encoding {}.", kTextEncodingUnicode));
    }
    return {utf16BigEndian(title, true), kTextEncodingUnicode};
}

}  // namespace

bool QTDataEditor::addHTAct_CreateHyperTextActionContainer(Handle& container, const std::string& url)
{
    auto failed = [](std::string_view message) {
        logMethod(kCreateContainer, "{}", message);
        return false;
    };
    if (QTNewAtomContainer(container) != noErr) return failed("Error creating new atom container");
    QTAtom wired = 0;
    QTAtom item = 0;
    QTAtom event = 0;
    QTAtom action = 0;
    if (QTInsertChild(container, kParentAtomIsContainer, kTextWiredObjectsAtomType, 1, 0, 0, nullptr, &wired) != noErr)
        return failed("Error creating kTextWiredObjectsAtomType atom");
    if (QTInsertChild(container, wired, kHyperTextItemAtomType, 1, 0, 0, nullptr, &item) != noErr)
        return failed("Error adding kHyperTextItemAtomType  atom");
    const Bytes start = bigEndian32(0);
    if (QTInsertChild(container, item, kRangeStart, 1, 0, 4, start.data(), nullptr) != noErr)
        return failed("Error adding kRangeStart atom");
    const Bytes end = bigEndian32(static_cast<std::uint32_t>(utf16Length(url)));
    if (QTInsertChild(container, item, kRangeEnd, 1, 0, 4, end.data(), nullptr) != noErr)
        return failed("Error adding kRangeEnd atom");
    if (QTInsertChild(container, item, kQTEventType, kQTEventMouseClick, 0, 0, nullptr, &event) != noErr)
        return failed("Error adding kQTEventType atom");
    if (QTInsertChild(container, event, kAction, 1, 1, 0, nullptr, &action) != noErr)
        return failed("Error adding kAction atom");
    const Bytes which = bigEndian32(kActionGoToURL);
    if (QTInsertChild(container, action, kWhichAction, 1, 1, 4, which.data(), nullptr) != noErr)
        return failed("Error adding kWhichAction atom");
    const Bytes address = macRomanFromUTF8(url, true).value_or(Bytes{});
    if (QTInsertChild(container, action, kActionParameter, 1, 1, static_cast<std::int32_t>(address.size()),
                      address.data(), nullptr) != noErr)
        return failed("Error adding kActionParameter atom");
    return true;
}

bool QTDataEditor::addHTAct_AddHyperActions(const Handle& container, const Handle& sample)
{
    const std::size_t oldSize = GetHandleSize(sample);
    const std::size_t containerSize = GetHandleSize(container);
    SetHandleSize(sample, oldSize + containerSize + 8);
    if (MemError() != noErr) {
        logMethod(kAddActions, "Memory Error while adding hyperaction");
        return false;
    }
    const HandleState state = HGetState(sample);
    HLock(sample);
    ByteWriter atom(containerSize + 8);
    atom.putU32BE(static_cast<std::uint32_t>(containerSize + 8)).putFourCC(kHyperTextItemAtomType);
    atom.putBytes(container->bytes);
    std::memcpy(sample->bytes.data() + oldSize, atom.bytes().data(), atom.size());
    HSetState(sample, state);
    return true;
}

bool QTDataEditor::AddHTAct_AddHyperTextToTextMovie(const Value& transitions)
{
    Track* track = GetMovieIndTrackType(*sourceMovie_, 2, kText, movieTrackMediaType);
    Media* media = GetTrackMedia(track);
    Handle container;
    if (!media) return false;
    // A failed step ends the loop; the media is still put back into the
    // track, the movie written and the container disposed of.
    bool wired = addHTAct_CreateHyperTextActionContainer(container, kPlaceholderURL);
    auto stop = [&wired](std::string_view message) {
        logMethod(kAddToTextMovie, "{}", message);
        logMethod(kAddToTextMovie, "An error has occurred");
        wired = false;
    };
    const auto items = wired && transitions.asArray() ? *transitions.asArray() : Array{};
    for (const auto& transition : items) {
        logMethod(kAddToTextMovie, "Adding link URL");
        transition.get("linkURL");  // read, not used: every sample gets the one container
        const TimeValue mediaTime = transition.integerForKey("timeValue").value_or(0);
        logMethod(kAddToTextMovie, "my track offset {}", GetTrackOffset(track));
        logMethod(kAddToTextMovie, "myMediaTime {}", mediaTime);
        Handle sample = NewHandle(0);
        Handle description = NewHandle(0);
        long size = 0;
        TimeValue sampleTime = 0;
        TimeValue sampleDuration = 0;
        if (GetMediaSample(media, sample, 0, &size, mediaTime, &sampleTime, &sampleDuration, description, nullptr, 1,
                           nullptr, nullptr) != noErr) {
            stop("Could not get media sample");
            break;
        }
        logMethod(kAddToTextMovie, "sampleSize {} and time {}", size, sampleTime);
        logMethod(kAddToTextMovie, "sampleSize from direct call {}", GetHandleSize(sample));
        if (!addHTAct_AddHyperActions(container, sample)) {
            stop("Error adding hepertext actions");
            break;
        }
        // The edit rate is asked for, but the search runs at normal speed.
        [[maybe_unused]] const Fixed rate = GetTrackEditRate(track, mediaTime);
        TimeValue interesting = 0;
        TimeValue interestingDuration = 0;
        GetTrackNextInterestingTime(track, kInterestingFlags, mediaTime, kFixed1, &interesting, &interestingDuration);
        const char* failed = nullptr;
        if (GetMoviesError() != noErr) {
            failed = "Could not GetTrackNextInterestingTime";
        } else if (DeleteTrackSegment(track, interesting, interestingDuration) != noErr) {
            failed = "Could not DeleteTrackSegment";
        } else if (BeginMediaEdits(media) != noErr) {
            failed = "Could not BeginMediaEdits";
        } else if (AddMediaSample(media, sample, 0, GetHandleSize(sample), sampleDuration, description, 1, 0,
                                  nullptr) != noErr) {
            failed = "Could not AddMediaSample";
        } else if (EndMediaEdits(media) != noErr) {
            failed = "Could not EndMediaEdits";
        }
        if (failed) {
            stop(failed);
            break;
        }
    }
    InsertMediaIntoTrack(track, 0, 0, GetMediaDuration(media), kFixed1);
    sourceMovie_->updateMovieFile();  // the movie resource; a movie never saved has none
    if (container) QTDisposeAtomContainer(container);
    return wired;
}

bool QTDataEditor::addTextTrackWithHyperLinks(const Value& transitions, const Value& attributes,
                                              const Value& parameters)
{
    logMethod(kAddLinkTrack, "Adding Text Track With Hyperlinks");
    Movie& movie = *sourceMovie_;
    if (!pullDesc_) {
        pullDesc_ = NewHandle(0);
        pullDesc_->bytes = textDescriptionBytes(0, 0, {0xFFFF, 0xFFFF, 0xFFFF}, {}, 0, 0, 0, {});
    }
    setDescriptionU32(pullDesc_, textDescription::displayFlags,
                      getDescriptionU32(pullDesc_, textDescription::displayFlags) | dfAntiAlias);
    setDescriptionU32(pullDesc_, textDescription::textJustification, kCentred);

    RGBColor textColor{255, 255, 255};
    RGBColor backgroundColor{0, 0, 0};
    if (const Value* data = attributes.get("textTrackFontColorData"); data && data->asData()) {
        QRGetRGBColorFromData(*data->asData(), textColor);
    }
    if (const Value* data = attributes.get("textTrackBackgroundColorData"); data && data->asData()) {
        QRGetRGBColorFromData(*data->asData(), backgroundColor);
    }
    setDescriptionColor(pullDesc_, textDescription::backgroundColor, backgroundColor);
    setDescriptionColor(pullDesc_, textDescription::defaultStyleColor, textColor);

    const auto width = static_cast<std::int16_t>(parameters.integerForKey("width").value_or(0));
    const auto height = static_cast<std::int16_t>(parameters.integerForKey("height").value_or(0));
    Track* track = NewMovieTrack(movie, FixRatio(width, 1), FixRatio(height, 1), 0);
    logMethod(kAddLinkTrack, "Created track of size {{width: {}, height: {}}}.", width, height);

    Fixed videoWidth = 0;
    Fixed videoHeight = 0;
    if (Track* video = GetMovieIndTrackType(movie, 1, kVideo, movieTrackMediaType)) {
        GetTrackDimensions(video, videoWidth, videoHeight);
    } else {
        logMethod(kAddLinkTrack, "Couldn't find a master video track");
    }
    Matrix matrix;
    GetTrackMatrix(track, matrix);
    TranslateMatrix(matrix, 0, videoHeight);
    SetTrackMatrix(track, matrix);
    SetTrackEnabled(track, true);
    setDescriptionU16(pullDesc_, textDescription::defaultTextBox + 6,
                      static_cast<std::uint16_t>((videoWidth + 0x8000) >> 16));

    Handle dataReference = NewHandleDataReference();
    Media* media = NewTrackMedia(track, kText, movie.timeScale(), dataReference, HandleDataHandlerSubType);
    if (BeginMediaEdits(media) != noErr) {
        logMethod(kAddLinkTrack, "Could not BeginMediaEdits");
        return false;
    }
    MediaHandler handler = GetMediaHandler(media);

    const auto slides = transitions.asArray() ? *transitions.asArray() : Array{};
    for (std::size_t i = 0; i < slides.size(); ++i) {
        const TimeValue start = slides[i].integerForKey("timeValue").value_or(0);
        const TimeValue end = i + 1 < slides.size() ? slides[i + 1].integerForKey("timeValue").value_or(0)
                                                    : static_cast<TimeValue>(movie.duration());
        const Value* link = slides[i].get("linkURL");
        const std::string title = link ? link->stringForKey("title").value_or("") : "";
        auto [text, encoding] = encodedTitle(title);
        if (text.size() > kMaximumTextLength) text.resize(kMaximumTextLength);

        Handle sample = NewHandle(0);
        sample->bytes = textSample(text, encoding);

        if (const auto url = link ? link->stringForKey("url") : std::nullopt) {
            Handle container;
            if (!addHTAct_CreateHyperTextActionContainer(container, *url)) {
                logMethod(kAddLinkTrack, "Failed creating hypertext action container for {}", *url);
            } else if (!addHTAct_AddHyperActions(container, sample)) {
                logMethod(kAddLinkTrack, "Failed adding hypertext actions to QT sample data handle.");
            }
        }
        const std::uint32_t unicode = kTextEncodingUnicode;
        TextMediaSetTextSampleData(handler, &unicode, kTextEncodingSelector);
        const OSErr added =
            AddMediaSample(media, sample, 0, GetHandleSize(sample), end - start, pullDesc_, 1, 0, nullptr);
        DisposeHandle(sample);
        if (added != noErr) {
            logMethod(kAddLinkTrack, "AddMediaSample Error {}", added);
            return false;
        }
    }

    auto check = [](OSErr status, std::string_view message) {
        if (status != noErr) logMethod(kAddLinkTrack, "{}", fmt::format(fmt::runtime(message), status));
        return status == noErr;
    };
    if (!check(EndMediaEdits(media), "Error ending media edits {}")) return false;
    if (!check(InsertMediaIntoTrack(track, 0, 0, GetMediaDuration(media), kFixed1), "Error inserting media {}"))
        return false;
    if (!check(BeginMediaEdits(media), "Error beginning media edits to set offset {}")) return false;
    SetTrackOffset(track, 0);
    return check(EndMediaEdits(media), "Error ending media edits to set offset {}");
}

void QTDataEditor::QTUtils_SetName(const std::string& name, Track* track)
{
    if (track) track->name = name;
}

void QTDataEditor::QTText_SetTextTrackAsHREFTrack(Track* track, bool isHREFTrack)
{
    QTUtils_SetName(isHREFTrack ? "HREFTrack" : "", track);
}

QTDataEditor::Handle QTDataEditor::myCreatePointerReferenceHandleForData(const void* data, std::size_t size)
{
    Handle handle = NewHandle(0);
    if (handle && size > 0) PtrAndHand(data, handle, size);
    return handle;
}

QTDataEditor::Handle QTDataEditor::myCreateURLDataReferenceHandle(const std::string& url)
{
    return myCreatePointerReferenceHandleForData(url.c_str(), url.size() + 1);
}

void QTDataEditor::qtText_CopyCStringToPascal(const char* source, std::uint8_t (&destination)[256])
{
    const std::size_t length = std::min<std::size_t>(std::strlen(source), 255);
    destination[0] = static_cast<std::uint8_t>(length);
    std::memcpy(destination + 1, source, length);
}

Bytes QTDataEditor::dataRepresentationOfString(const std::string& text)
{
    return utf16BigEndian(text, false);
}

}  // namespace quillora
