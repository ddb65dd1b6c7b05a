#include "InputChecks.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <vips/vips8>

#include "ExportInputs.h"
#include "foundation/FourCC.h"
#include "foundation/TextEncoding.h"
#include "foundation/WhiteSpace.h"
#include "images/ImageLibrary.h"
#include "images/PictureFormat.h"
#include "layout/PodcastTrackIDs.h"
#include "toolbox/Movie.h"

namespace quillora::app {

namespace {

// Offsets and sizes in the podcast's atoms are signed 32-bit numbers.
constexpr std::uintmax_t kLargestRecording = (std::uintmax_t{1} << 31) - 1;
// A text sample stores its text's length in 16 bits, and a link sample its
// URL's length in 8.
constexpr std::size_t kLongestSampleText = 0xFFFF;
constexpr std::size_t kLongestURL = 0xFF;
// Besides the inputs, the scratch folder holds the copied pictures, their
// redrawn forms and the working copy, and the finished file beside it.
constexpr std::uintmax_t kScratchCopies = 3;
constexpr std::uintmax_t kSpareBytes = 16 * 1024 * 1024;

struct FormatExtensions {
    const char* format;
    std::vector<std::string> extensions;
};

const std::vector<FormatExtensions>& formatExtensions()
{
    static const std::vector<FormatExtensions> table = {
        {".m4a", {".m4a", ".m4b", ".m4v", ".mp4"}},
        {".m4b", {".m4a", ".m4b", ".m4v", ".mp4"}},
        {".m4v", {".m4a", ".m4b", ".m4v", ".mp4"}},
        {".mov", {".mov"}},
    };
    return table;
}

std::string lowercase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// The sentence that says why the image library cannot open a picture, or
// nothing when it can: the same loaders as the resizer's, the header only.
std::optional<std::string> pictureProblem(const std::filesystem::path& picture)
{
    if (!startImageLibrary()) return "the image library could not be started";
    try {
        const vips::VImage image = openPicture(picture.string(), nullptr);
        if (image.width() > 0 && image.height() > 0) return std::nullopt;
        return "the picture has no pixels";
    } catch (const vips::VError& refused) {
        std::string message = imageLibraryMessage(refused);
        if (auto newline = message.rfind('\n'); newline != std::string::npos) message = message.substr(newline + 1);
        if (auto format = formatNeedingDecoder(picture)) return undecodedFormatProblem(*format, message);
        return message.empty() ? "not a picture the image library can read" : message;
    }
}

const std::string* textOf(const Value* value, const std::string& where, const char* what)
{
    if (!value) return nullptr;
    const std::string* text = value->asString();
    if (!text) throw InputError(fmt::format("{}: {} is not text", where, what));
    return text;
}

void checkTextLength(const Value* value, std::size_t longest, const std::string& where, const char* what)
{
    const std::string* text = textOf(value, where, what);
    if (text && text->size() > longest) {
        throw InputError(
            fmt::format("{}: {} is {} bytes long; a text sample holds at most {}", where, what, text->size(), longest));
    }
}

// The time as the track writers read it: a whole number, a fraction dropped.
std::int64_t checkTime(const Dictionary& record, const std::string& where, std::optional<std::int64_t> previousTime,
                       std::uint64_t recordingDuration, std::vector<std::string>& warnings)
{
    const Value* time = record.find("timeValue");
    const auto value = time ? time->asInteger() : std::nullopt;
    if (!value) throw InputError(where + " has no \"timeValue\" (a number of the recording's time units)");
    if (time->isReal() && static_cast<double>(*value) != *time->asReal()) {
        warnings.push_back(fmt::format("{}: \"timeValue\" {} is not a whole number; the slide starts at {}, the "
                                       "whole number the tracks read from it",
                                       where, *time->asReal(), *value));
    }
    if (*value < 0) throw InputError(fmt::format("{}: \"timeValue\" {} is negative", where, *value));
    if (*value > std::numeric_limits<std::int32_t>::max()) {
        throw InputError(fmt::format("{}: \"timeValue\" {} does not fit the podcast's 32-bit times", where, *value));
    }
    if (static_cast<std::uint64_t>(*value) >= recordingDuration) {
        throw InputError(fmt::format("{}: \"timeValue\" {} is not before the end of the recording ({})", where, *value,
                                     recordingDuration));
    }
    if (previousTime && *value <= *previousTime) {
        throw InputError(fmt::format("{}: \"timeValue\" {} does not come after the slide before it ({}); times must "
                                     "increase from slide to slide",
                                     where, *value, *previousTime));
    }
    return *value;
}

void checkTexts(const Dictionary& record, const std::string& where, bool movie, std::vector<std::string>& warnings)
{
    const Value* title = record.find("slideTitle");
    if (!movie) {
        checkTextLength(title, kLongestSampleText, where, "the title");
    } else if (const std::string* text = textOf(title, where, "the title")) {
        // A movie's chapter sample holds the title in UTF-16, after a byte-order mark.
        const std::size_t bytes = 2 + 2 * utf16Length(trimmedWhiteSpaceAndLineEnds(*text));
        if (bytes > kLongestSampleText) {
            throw InputError(fmt::format("{}: the title is {} bytes long in UTF-16; a movie's chapter sample holds at "
                                         "most {}",
                                         where, bytes, kLongestSampleText));
        }
    }
    const Value* link = record.find("linkURL");
    if (!link || link->isNull()) return;
    const auto entries = link->asDictionary();
    if (!entries) throw InputError(where + ": \"linkURL\" must be a dictionary with \"title\" and \"url\"");
    const std::string* url = textOf(entries->find("url"), where, "the link's URL");
    if (movie) {
        textOf(entries->find("title"), where, "the link's title");  // cut to the sample's 65,535 bytes
        return;
    }
    checkTextLength(entries->find("title"), kLongestSampleText, where, "the link's title");
    if (url && url->size() > kLongestURL) {
        // Written whole, but its length is stored in one byte.
        const std::size_t read = url->size() % 256;
        warnings.push_back(
            fmt::format("{}: the link's URL is {} bytes long, more than the {} a podcast's link "
                        "holds; players will {}",
                        where, url->size(), kLongestURL,
                        read == 0 ? std::string("find no address in it")
                                  : fmt::format("open only its first {} bytes, \"{}\"", read, url->substr(0, read))));
    }
}

std::uintmax_t availableBytes(const std::filesystem::path& folder)
{
    struct statvfs info {};
    if (statvfs(folder.c_str(), &info) != 0) return std::numeric_limits<std::uintmax_t>::max();
    return static_cast<std::uintmax_t>(info.f_bavail) * info.f_frsize;
}

dev_t deviceOf(const std::filesystem::path& folder)
{
    struct stat info {};
    return stat(folder.c_str(), &info) == 0 ? info.st_dev : 0;
}

std::string megabytes(std::uintmax_t bytes)
{
    return fmt::format("{:.1f} MB", static_cast<double>(bytes) / 1e6);
}

}  // namespace

RecordingFacts checkRecording(const std::filesystem::path& path, bool enhancedPodcast)
{
    if (!std::filesystem::is_regular_file(path))
        throw InputError(fmt::format("The recording {} does not exist", path.string()));
    RecordingFacts facts;
    facts.bytes = std::filesystem::file_size(path);
    if (facts.bytes > kLargestRecording) {
        throw InputError(fmt::format("The recording {} is {}; recordings of 2 GiB or more cannot be published",
                                     path.string(), megabytes(facts.bytes)));
    }
    std::string error;
    auto movie = toolbox::Movie::movieWithFile(path, &error);
    if (!movie) throw InputError(fmt::format("The recording {} is not a movie file: {}", path.string(), error));
    facts.duration = movie->duration();

    if (!enhancedPodcast) return facts;
    const auto& tracks = movie->tracks();
    const auto sound = std::count_if(tracks.begin(), tracks.end(),
                                     [](const auto& track) { return track->mediaType() == fourCC("soun"); });
    if (tracks.size() != 1 || sound != 1) {
        throw InputError(fmt::format("The recording {} has {} tracks, {} of them sound; an enhanced podcast is made "
                                     "from a recording of exactly one sound track",
                                     path.string(), tracks.size(), sound));
    }
    const std::uint32_t id = tracks.front()->trackID;
    if (std::find(kPodcastTrackIDs.begin(), kPodcastTrackIDs.end(), id) != kPodcastTrackIDs.end()) {
        throw InputError(fmt::format("The recording {}: its sound track has ID {}, which the chapter, picture and "
                                     "link tracks (IDs 2, 3 and 4) need",
                                     path.string(), id));
    }
    if (facts.duration > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max())) {
        throw InputError(
            fmt::format("The recording {} is longer than a podcast's 32-bit durations hold", path.string()));
    }
    return facts;
}

std::optional<std::int64_t> checkTransition(const Dictionary& record,
                                            const std::optional<std::filesystem::path>& picture,
                                            const std::string& where, std::optional<std::int64_t> previousTime,
                                            std::uint64_t recordingDuration, const TransitionRules& rules,
                                            std::vector<std::string>& warnings)
{
    std::optional<std::int64_t> time;
    if (rules.checkTimes) time = checkTime(record, where, previousTime, recordingDuration, warnings);
    if (rules.checkTexts) checkTexts(record, where, rules.movie, warnings);
    if (!picture) return time;
    if (auto problem = pictureProblem(*picture)) {
        throw InputError(fmt::format("{}: the picture {} cannot be read: {}", where, picture->string(), *problem));
    }
    return time;
}

std::string undecodedFormatProblem(const std::string& format, const std::string& libraryMessage)
{
    return fmt::format("it is {} {} picture, which this system's image library cannot decode ({}); convert it to PNG "
                       "or JPEG",
                       format == "AVIF" ? "an" : "a", format, libraryMessage);
}

bool isFormatName(const std::string& format)
{
    const auto& table = formatExtensions();
    return std::any_of(table.begin(), table.end(),
                       [&](const FormatExtensions& entry) { return format == entry.format; });
}

void checkFormat(const std::string& format)
{
    if (!isFormatName(format)) {
        throw InputError(
            fmt::format("The format \"{}\" is not one the QuickTime plug-in makes (.m4a, .m4b or .m4v, .mov)", format));
    }
}

void checkOutputExtension(const std::filesystem::path& output, const std::string& format)
{
    for (const auto& entry : formatExtensions()) {
        if (format != entry.format) continue;
        const std::string extension = lowercaseExtension(output);
        if (std::find(entry.extensions.begin(), entry.extensions.end(), extension) != entry.extensions.end()) return;
        throw InputError(fmt::format("The output {} does not end in {}, the extension{} a {} file takes",
                                     output.string(), fmt::join(entry.extensions, ", "),
                                     entry.extensions.size() > 1 ? "s" : "", format));
    }
    checkFormat(format);
}

std::string lowercaseExtension(const std::filesystem::path& path)
{
    return lowercase(path.extension().string());
}

std::filesystem::path checkOutputPlace(const std::filesystem::path& output,
                                       const std::vector<std::filesystem::path>& inputs)
{
    const auto destination = std::filesystem::absolute(output);
    const auto folder = destination.parent_path();
    if (!std::filesystem::is_directory(folder)) {
        throw InputError(fmt::format("The output folder {} does not exist", folder.string()));
    }
    if (std::filesystem::is_directory(destination)) {
        throw InputError(fmt::format("The output {} is a folder", destination.string()));
    }
    checkFolderIsWritable(folder, "output folder");
    std::error_code error;
    if (!std::filesystem::exists(destination, error)) return destination;
    for (const auto& input : inputs) {
        if (std::filesystem::equivalent(destination, input, error)) {
            throw InputError(fmt::format("The output {} is one of the export's inputs ({}); choose another file",
                                         destination.string(), input.string()));
        }
    }
    return destination;
}

void checkFolderIsWritable(const std::filesystem::path& folder, std::string_view what)
{
    // An unnamed file tries the write itself (a read-only disk, an immutable
    // folder, permissions) and leaves nothing behind; where the file system
    // has no unnamed files, the permissions have to do.
    int error = 0;
    if (const int fd = ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600); fd >= 0) {
        ::close(fd);
        return;
    } else if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
        error = errno;
    } else if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        error = errno;
    }
    if (error != 0) {
        throw InputError(
            fmt::format("The {} {} cannot be written to: {}", what, folder.string(), std::strerror(error)));
    }
}

void checkFreeSpace(const std::filesystem::path& scratch, const std::filesystem::path& destinationFolder,
                    std::uintmax_t inputBytes)
{
    // The result is made in the scratch folder and renamed onto the
    // destination, or, on another disk, copied beside it first.
    const std::uintmax_t result = inputBytes + kSpareBytes;
    const std::uintmax_t scratchNeeds = kScratchCopies * inputBytes + result;
    if (const auto free = availableBytes(scratch); free < scratchNeeds) {
        throw InputError(fmt::format("The scratch folder {} has {} free; the export needs about {}", scratch.string(),
                                     megabytes(free), megabytes(scratchNeeds)));
    }
    if (deviceOf(scratch) == deviceOf(destinationFolder)) return;
    if (const auto free = availableBytes(destinationFolder); free < result) {
        throw InputError(fmt::format("The output folder {} has {} free; the exported file needs about {}",
                                     destinationFolder.string(), megabytes(free), megabytes(result)));
    }
}

}  // namespace quillora::app
