// The slide pictures as a video track: every picture's file bytes go into the
// media data unchanged, one sample and one chunk each, lasting until the next
// slide (the last one until the end of the recording).
#include <memory>

#include "QTDataEditor.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/NotificationCenter.h"
#include "layout/ImageTrackLayout.h"
#include "toolbox/Movie.h"

namespace quillora {

namespace {

constexpr std::string_view kAddImages = "-[QTDataEditor addImages:toFile:path:withParameters:notifying:error:]";
constexpr std::string_view kAddImagesAtPath = "-[QTDataEditor addImages:toFileAtPath:notifying:]";

constexpr std::uint32_t kTrackSize = 0x012C0000;       // 300.0, whatever the pictures
constexpr std::uint32_t kOlderTrackSize = 0x00A00000;  // 160.0

std::optional<Bytes> readWholeFile(const std::string& path)
{
    try {
        FileHandle file(path, FileHandle::Mode::Reading);
        return file.readDataToEndOfFile();
    } catch (const FileError&) {
        return std::nullopt;
    }
}

std::string imagePathOf(const Value& transition)
{
    return transition.stringForKey("imagePath").value_or("");
}

std::int32_t timeOf(const Value& transition)
{
    return static_cast<std::int32_t>(transition.integerForKey("timeValue").value_or(0));
}

// The notification comes once per wait; the registration goes with it, so it
// never outlives the handle whose address it watches.
void observeDataAvailableOnce(const FileHandle& file, std::function<void()> callback)
{
    auto token = std::make_shared<NotificationCenter::Token>();
    *token = NotificationCenter::defaultCenter().addObserver(
        kFileHandleDataAvailableNotification, &file, [token, callback = std::move(callback)](const Notification&) {
            NotificationCenter::defaultCenter().removeObserver(*token);
            if (callback) callback();
        });
}

bool fail(std::string_view message)
{
    logMethod(kAddImages, "{}", message);
    return false;
}

}  // namespace

bool QTDataEditor::addImages(const Value& transitions, FileHandle& file, const std::string& /*path*/,
                             const Value& parameters, const void* /*notifying*/, ErrorRecord* /*error*/)
{
    logMethod(kAddImages, "Adding images");
    const Value* durationValue = parameters.get("duration");
    const Value* trackIDValue = parameters.get("trackID");
    QUILLORA_ASSERT(durationValue && trackIDValue, std::string(kAddImages),
                    "Either no duration or no trackID was specified.");
    const auto duration = static_cast<std::int32_t>(durationValue->asInteger().value_or(0));
    const auto trackID = static_cast<std::uint32_t>(trackIDValue->asInteger().value_or(0));

    logMethod(kAddImages, "Describing atoms");
    setDoneWritingFile(false);
    ImageTrackBuilder track(*this,
                            {static_cast<std::uint32_t>(duration), trackID, kTrackSize, videoHandlerNameUTF16()});

    logMethod(kAddImages, "Beginning chaptering");
    logMethod(kAddImages, "stsd config");
    logMethod(kAddImages, "vmhdSTSD config");
    logMethod(kAddImages, "getting image path");
    const ArrayRef slides = transitions.asArray();
    const std::size_t count = slides ? slides->size() : 0;
    const std::string firstPath = count > 0 ? imagePathOf((*slides)[0]) : std::string();
    logMethod(kAddImages, "creating image");
    const PointSize size = imageSizeInPoints(firstPath).value_or(PointSize{});

    logMethod(kAddImages, "attempting to fetch image type from file");
    const auto imageType = getImageTypeFromFile(firstPath);
    if (!imageType) return fail("Couldn't determine image type");
    logMethod(kAddImages, "Image type {}", *imageType);
    track.describe(imageFormatFor(imageType, firstPath), size);

    const std::int32_t mdat = findAtomOfType(atom::mdat, 0, 1, file).value_or(AtomLocation{}).offset;
    SampleTable samples;
    // With a single slide no next time is ever read, and its checks pass.
    bool nextRead = false;
    const Value* nextTime = nullptr;
    std::int32_t next = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Value& transition = (*slides)[i];
        const auto image = readWholeFile(imagePathOf(transition));
        if (!image) return fail("Couldn't create buffer of image data");

        const std::int32_t start = timeOf(transition);
        std::int32_t imageDuration = 0;
        if (i + 1 < count) {
            nextRead = true;
            nextTime = (*slides)[i + 1].get("timeValue");
            next = nextTime ? static_cast<std::int32_t>(nextTime->asInteger().value_or(0)) : 0;
            imageDuration = wrappingSubtract(next, start);
        } else {
            imageDuration = wrappingSubtract(duration, start);
        }
        if (nextRead && !nextTime) return fail("Couldn't get next record time");
        if (nextRead && next == 0) return fail("Couldn't get nextChapterValue");
        if (imageDuration == 0) return fail("Couldn't get nextDuration");

        const std::int32_t offset = appendData(*image, mdat, file);
        if (offset <= 0) return fail("Could not append data");
        samples.add(static_cast<std::uint32_t>(image->size()), static_cast<std::uint32_t>(imageDuration),
                    static_cast<std::uint32_t>(offset));
    }
    const Bytes trak = track.finish(samples);

    const auto moov = findAtomOfType(atom::moov, 0, 1, file);
    if (!moov) return fail("couldn't get targetSearchResult for moov atom");
    std::int32_t childPosition = 0;
    appendChildAtom(trak, moov->offset, file, childPosition);
    return true;
}

bool QTDataEditor::addImages(const Value& transitions, const std::filesystem::path& path,
                             std::function<void()> dataAvailableObserver)
{
    logMethod(kAddImagesAtPath, "Adding images");
    const auto movie = toolbox::Movie::movieWithFile(path);
    if (!movie) {
        logMethod(kAddImagesAtPath, "Error creating movie");
        return false;
    }
    std::optional<FileHandle> file;
    try {
        file.emplace(path, FileHandle::Mode::Updating);
    } catch (const FileError&) {
        return true;  // no file to write to: nothing happens, as with no handle at all
    }

    setDoneWritingFile(false);
    file->waitForDataInBackgroundAndNotify();
    observeDataAvailableOnce(*file, [this] { acceptDataAvailableNotification(); });
    observeDataAvailableOnce(*file, std::move(dataAvailableObserver));
    logMethod(kAddImagesAtPath, "Added notifications");

    const auto duration = static_cast<std::int32_t>(movie->duration());
    const auto trackID = static_cast<std::uint32_t>(movie->tracks().size() + 1);
    ImageTrackBuilder track(*this,
                            {static_cast<std::uint32_t>(duration), trackID, kOlderTrackSize, videoHandlerNameASCII()});
    logMethod(kAddImagesAtPath, "Swapped and added duration and track count");

    // The description comes from the second slide; a single slide has none.
    const ArrayRef slides = transitions.asArray();
    const Array noSlides;
    const Array& list = slides ? *slides : noSlides;
    const std::string describedPath = imagePathOf(list.at(1));
    track.describe(imageFormatFor(getImageTypeFromFile(describedPath), describedPath),
                   imageSizeInPoints(describedPath).value_or(PointSize{}));

    const std::int32_t mdat = findAtomOfType(atom::mdat, 0, 1, *file).value_or(AtomLocation{}).offset;
    SampleTable samples;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const Bytes image = readWholeFile(imagePathOf(list[i])).value_or(Bytes{});
        const std::int32_t end = i + 1 < list.size() ? timeOf(list[i + 1]) : duration;
        const std::int32_t offset = std::max(appendData(image, mdat, *file), 0);
        samples.add(static_cast<std::uint32_t>(image.size()),
                    static_cast<std::uint32_t>(wrappingSubtract(end, timeOf(list[i]))),
                    static_cast<std::uint32_t>(offset));
    }
    const Bytes trak = track.finish(samples);

    std::int32_t childPosition = 0;
    appendChildAtom(trak, findAtomOfType(atom::moov, 0, 1, *file).value_or(AtomLocation{}).offset, *file,
                    childPosition);
    file->synchronizeFile();
    file->closeFile();
    return true;
}

}  // namespace quillora
