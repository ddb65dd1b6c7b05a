// The older way to an enhanced podcast, kept beside the in-place pipeline:
// the chapters are described in an XML document, "ChapterTool" makes the
// podcast from the recording and that document, and "AtomicParsley" writes
// the tags. No export entry point leads here; a host calls createM4AFile,
// and then setID3Tags on its result if it wants the tags.
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>

#include "QuickTimePlugin/ErrorCreation.h"
#include "QuickTimePlugin/ImageResizer.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "foundation/Log.h"
#include "foundation/Progress.h"
#include "foundation/PropertyList.h"
#include "foundation/UserDefaults.h"
#include "host/ErrorStrings.h"

namespace quillora {

namespace {

constexpr std::string_view kCreateM4AFile = "-[QuickTimePlugin(Unused) createM4AFile:]";
constexpr std::string_view kGenerateXML = "-[QuickTimePlugin(Unused) generateXML]";
constexpr std::string_view kSetID3Tags = "-[QuickTimePlugin(Unused) setID3Tags:forFile:]";
constexpr std::string_view kAppendOutput = "-[QuickTimePlugin(Unused) appendOutput:]";
constexpr std::string_view kProcessStarted = "-[QuickTimePlugin(Unused) processStarted]";
constexpr std::string_view kProcessFinished = "-[QuickTimePlugin(Unused) processFinished]";

constexpr const char* kChapterTool = "ChapterTool";
constexpr const char* kTagTool = "AtomicParsley";
constexpr std::size_t kLongestTitle = 230;

// A transition in recording order with the recorded time before it, in
// seconds; no time when its picture is missing.
struct TimedTransition {
    Value transition;
    std::optional<double> elapsed;
};

Date dateOf(const Value& transition)
{
    const Value* date = transition.get("date");
    return date ? date->asDate().value_or(Date()) : Date();
}

double secondsBetween(Date from, Date to)
{
    return std::chrono::duration<double>(to - from).count();
}

// Sorted by "date"; the pauses between the stretches of recording do not
// count. The stretch index moves on at most once per transition, and never
// past the last stretch.
std::vector<TimedTransition> timedTransitions(const Value& transitions, const Value& startStopRecordingDates)
{
    std::vector<TimedTransition> timed;
    if (auto records = transitions.asArray()) {
        for (const Value& record : *records) timed.push_back({record, std::nullopt});
    }
    std::ranges::stable_sort(timed, {}, [](const TimedTransition& t) { return dateOf(t.transition); });

    const auto datesRef = startStopRecordingDates.asArray();
    const Array dates = datesRef ? *datesRef : Array();
    auto dateAt = [&](std::size_t index) {
        return index < dates.size() ? dates[index].asDate().value_or(Date()) : Date();
    };
    std::size_t index = 0;
    double recorded = 0;
    for (auto& entry : timed) {
        const auto imagePath = entry.transition.stringForKey("imagePath");
        if (!imagePath || !std::filesystem::is_regular_file(*imagePath)) continue;
        const Date date = dateOf(entry.transition);
        if (index + 3 < dates.size() && dateAt(index + 1) < date) {
            recorded += secondsBetween(dateAt(index), dateAt(index + 1));
            index += 2;
        }
        entry.elapsed = secondsBetween(dateAt(index), date) + recorded;
    }
    return timed;
}

double recordingSeconds(const std::string& recordingPath)
{
    auto recording = toolbox::Movie::movieWithFile(recordingPath);
    if (!recording || recording->timeScale() == 0) return 0;
    return static_cast<double>(recording->duration()) / recording->timeScale();
}

// "%H:%M:%S.%F" of the elapsed time as a time of day in GMT: hours wrap at
// 24, and a time before zero falls on the day before (-0.5 s is 23:59:59.500).
std::string startTime(double seconds)
{
    constexpr std::int64_t kDay = 24 * 3600000;
    const auto elapsed = static_cast<std::int64_t>(std::floor(seconds * 1000 + 1e-6));
    const std::int64_t milliseconds = (elapsed % kDay + kDay) % kDay;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", milliseconds / 3600000, milliseconds / 60000 % 60,
                       milliseconds / 1000 % 60, milliseconds % 1000);
}

// The first count characters (not bytes) of UTF-8 text.
std::string firstCharacters(const std::string& text, std::size_t count)
{
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) == 0x80) continue;
        if (characters++ == count) return text.substr(0, i);
    }
    return text;
}

std::string chapterTitle(const Value& transition)
{
    const std::string title = transition.stringForKey("slideTitle").value_or("");
    if (title.empty()) return " ";
    return firstCharacters(title, kLongestTitle);
}

// Percent escapes for the characters a URL may not hold, on UTF-8 bytes.
std::string percentEscaped(const std::string& path)
{
    constexpr std::string_view kKept = "!#$&'()*+,-./:;=?@_~";
    std::string escaped;
    for (unsigned char byte : path) {
        if (std::isalnum(byte) && byte < 0x80) {
            escaped += static_cast<char>(byte);
        } else if (kKept.find(static_cast<char>(byte)) != std::string_view::npos) {
            escaped += static_cast<char>(byte);
        } else {
            escaped += fmt::format("%{:02X}", byte);
        }
    }
    return escaped;
}

std::string description(const Value& value)
{
    return jsonFromValue(value, -1);
}

// A new globally unique name, in the form of a UUID.
std::string uniqueName()
{
    std::random_device random;
    std::uniform_int_distribution<unsigned> byte(0, 255);
    std::string name;
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) name += '-';
        name += fmt::format("{:02X}", byte(random));
    }
    return name;
}

std::string statusText(const char* key)
{
    return ErrorStrings::errorStrings()->lookup(key);
}

// The status is also the stage the host shows while the tools work.
void showStatus(QuickTimePlugin& plugin, const char* key)
{
    plugin.setSaveStatus(statusText(key));
    beginProgressStage(plugin.saveStatus());
}

Value filePathInfo(const std::string& path)
{
    return Value::dictionary({{std::string(kErrorFilePathKey), path}});
}

}  // namespace

Value QuickTimePlugin::createChapterItemsWithTransitions(const Value& transitions, const Value& startStopRecordingDates)
{
    std::vector<TimedTransition> timed = timedTransitions(transitions, startStopRecordingDates);
    std::erase_if(timed, [](const TimedTransition& t) { return !t.elapsed; });
    const double end = recordingSeconds(tempFileRecordingPath());
    Array items;
    for (std::size_t i = 0; i < timed.size(); ++i) {
        const double next = i + 1 < timed.size() ? *timed[i + 1].elapsed : end;
        const std::string title = timed[i].transition.stringForKey("slideTitle").value_or("");
        items.push_back(Value::dictionary({{"duration", next - *timed[i].elapsed},
                                           {"chapterTitle", title.empty() ? "Untitled" : title},
                                           {"imagePath", timed[i].transition.stringForKey("imagePath").value_or("")}}));
    }
    return Value::array(std::move(items));
}

std::unique_ptr<pugi::xml_document> QuickTimePlugin::generateXML()
{
    auto document = std::make_unique<pugi::xml_document>();
    auto declaration = document->append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "utf-8";
    auto chapters = document->append_child("chapters");
    chapters.append_attribute("version") = "1";

    Array all;
    for (const Value* list : {&slideTransitions(), &screenshotTransitions()}) {
        if (auto items = list->asArray()) all.insert(all.end(), items->begin(), items->end());
    }
    const double end = recordingSeconds(tempFileRecordingPath());
    const bool links = UserDefaults::standardUserDefaults().boolForKey("supportForURL");
    const auto timed = timedTransitions(Value::array(std::move(all)), startStopRecordingDates());
    for (std::size_t i = 0; i < timed.size(); ++i) {
        const Value& transition = timed[i].transition;
        if (!timed[i].elapsed) {
            logMethod(kGenerateXML, "did not put transition: {} as we could not find the image file",
                      description(transition));
            continue;
        }
        if (*timed[i].elapsed > end) {
            logMethod(kGenerateXML, "transition was not added because it happened after the end of the audio: {}",
                      description(transition));
            continue;
        }
        auto chapter = chapters.append_child("chapter");
        chapter.append_attribute("starttime") = startTime(i == 0 ? 0 : *timed[i].elapsed).c_str();
        if (transition.integerForKey("buildIndex").value_or(0) < 2) {
            chapter.append_child("title").text() = chapterTitle(transition).c_str();
        }
        chapter.append_child("picture").text() = percentEscaped(*transition.stringForKey("imagePath")).c_str();
        if (links) {
            const Value* link = transition.get("linkURL");
            auto element = chapter.append_child("link");
            element.append_attribute("href") = (link ? link->stringForKey("url").value_or("") : "").c_str();
            const std::string title = link ? link->stringForKey("title").value_or("") : "";
            if (!title.empty()) element.text() = title.c_str();
        }
    }
    return document;
}

bool QuickTimePlugin::createEnhancedPodcastInURL(const std::string& destination, const pugi::xml_document& document)
{
    if (tempFileRecordingPath().empty()) return false;
    const std::string xmlPath = (std::filesystem::temp_directory_path() / (uniqueName() + ".xml")).string();
    if (!document.save_file(xmlPath.c_str(), "    ", pugi::format_default, pugi::encoding_utf8)) {
        throw NamedException(std::string(QuilloraErrors::fileManipulationError), "could not create the XML file",
                             filePathInfo(xmlPath));
    }
    runTool(
        {pathForAuxiliaryExecutable(kChapterTool), "-x", xmlPath, "-a", tempFileRecordingPath(), "-o", destination});
    if (std::filesystem::exists(destination)) {
        std::error_code ignored;
        std::filesystem::remove(xmlPath, ignored);
        return true;
    }
    throw NamedException(std::string(QuilloraErrors::fileManipulationError), "Could not create the podcast file",
                         filePathInfo(xmlPath));
}

void QuickTimePlugin::setID3Tags(const Value& tags, const std::string& file)
{
    logMethod(kSetID3Tags, "Setting id3 Tags {}", description(tags));
    std::vector<std::string> arguments = {pathForAuxiliaryExecutable(kTagTool), file};
    auto addIfPresent = [&](const char* option, const char* key) {
        const std::string value = tags.stringForKey(key).value_or("");
        if (!value.empty()) arguments.insert(arguments.end(), {option, value});
    };
    addIfPresent("-a", "author");
    if (auto title = tags.stringForKey("title")) arguments.insert(arguments.end(), {"--title", *title});
    addIfPresent("--copyright", "copyright");
    addIfPresent("--TVNetwork", "university");
    addIfPresent("--TVShowName", "className");
    const std::string classNumber = tags.stringForKey("classNumber").value_or("");
    if (!classNumber.empty())
        arguments.insert(arguments.end(), {"--TVEpisode", fmt::format("{}: {}", classNumber, "test")});
    arguments.push_back("--overWrite");
    runTool(std::move(arguments));
}

void QuickTimePlugin::runTool(std::vector<std::string> arguments)
{
    std::erase_if(taskWrappers_, [](const auto& wrapper) { return wrapper->finished(); });
    auto wrapper = std::make_unique<TaskWrapper>(this, std::move(arguments));
    wrapper->startProcess();
    wrapper->waitUntilExit();
    taskWrappers_.push_back(std::move(wrapper));
}

bool QuickTimePlugin::createM4AFile(const std::string& destination)
{
    try {
        const std::string& recording = tempFileRecordingPath();
        if (recording.empty() || !std::filesystem::is_regular_file(recording)) {
            throw NamedException(std::string(QuilloraErrors::qtPluginSourceMovieErr), "Could not find source file",
                                 filePathInfo(recording));
        }
        const auto folder = std::filesystem::absolute(destination).parent_path();
        if (destination.empty() || !std::filesystem::is_directory(folder)) {
            throw NamedException(std::string(QuilloraErrors::qtPluginTargetMovieErr),
                                 "Could not create the new movie file.", filePathInfo(destination));
        }
        showStatus(*this, "savingImages");
        showStatus(*this, "resizingImages");
        try {
            resizeImages();
        } catch (const NoSlidePicture&) {
            throw noSlidePictureException();
        }
        showStatus(*this, "createXML");
        const auto document = generateXML();
        showStatus(*this, "createAudioFile");
        // Made beside the destination, so that moving it into place is a rename.
        const auto temporary =
            (folder / ("." + uniqueName() + std::filesystem::path(destination).extension().string())).string();
        createEnhancedPodcastInURL(temporary, *document);
        std::error_code renamed;
        std::filesystem::rename(temporary, destination, renamed);
        QUILLORA_ASSERT(!renamed, std::string(kCreateM4AFile), "could not rename temp file to final file name");
        return true;
    } catch (const NamedException& exception) {
        logMethod(kCreateM4AFile, "createM4aFile: Caught {}: {}\n{}", exception.name(), exception.reason(),
                  description(exception.userInfo()));
        saveError_ = errorWithException(exception);
        return false;
    }
}

void QuickTimePlugin::exportWithPodcastFile(const std::string& /*podcastFile*/, const std::string& archiveFile,
                                            const Value& /*startStopRecordingDates*/)
{
    SavePanelRequest request;
    request.allowedFileTypes = {"mov"};
    request.requiredFileType = "mov";
    const char* home = std::getenv("HOME");
    request.directory = home ? home : "/";
    request.fileName = firstPresentationNameinWrapper(archiveFile) + ".mov";
    userInterface().beginSavePanel(
        request, [this](int returnCode, const std::string& path) { saveQTPanelDidEnd(returnCode, path); });
}

void QuickTimePlugin::exportingContentPanelDidEnd(int /*returnCode*/)
{
    userInterface().endProgressSheet();
}

void QuickTimePlugin::appendOutput(const std::string& output)
{
    logMethod(kAppendOutput, "output: {}", output);
    // Only a report at the very start of a piece counts.
    if (output.starts_with("status: failed")) {
        saveError_ = errorWithException(
            NamedException(std::string(QuilloraErrors::chapterToolError), "Could not generate m4b file"));
        result_ = false;
    }
}

void QuickTimePlugin::processStarted()
{
    logMethod(kProcessStarted, "chapter tool started");
}

void QuickTimePlugin::processFinished()
{
    logMethod(kProcessFinished, "chapter tool finished");
}

}  // namespace quillora
