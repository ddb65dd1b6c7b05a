// The export driver end to end, through a test host: the enhanced-podcast
// pipeline's stages and failures, the copy to the destination after the
// export returned, and the threads things happen on.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <sstream>
#include <thread>
#include <vips/vips8>

#include "QTDataEditor.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/RunLoop.h"
#include "foundation/UserDefaults.h"
#include "toolbox/Movie.h"

namespace quillora {
namespace {

using test::ScopedDefaults;
using test::TemporaryFolder;

// Records what the plug-in asks of its host's user interface.
class TestUserInterface : public HostUserInterface {
public:
    void showWindow(std::string_view nib) override { shownNib = nib; }
    void beginSavePanel(const SavePanelRequest& request, std::function<void(int, const std::string&)> done) override
    {
        savePanel = request;
        done(savePanelAnswer, savePanelPath);
    }
    void beginProgressSheet() override { ++progressSheets; }
    void endProgressSheet() override { doneThread = std::this_thread::get_id(); }
    void showAlert(const ErrorRecord& error, std::string_view anchor) override
    {
        alert = error;
        helpAnchor = anchor;
    }
    void registerUndo(std::function<void()>) override {}

    std::string shownNib;
    std::optional<SavePanelRequest> savePanel;
    int savePanelAnswer = kSavePanelOKButton;
    std::string savePanelPath;
    int progressSheets = 0;
    std::thread::id doneThread;
    std::optional<ErrorRecord> alert;
    std::string helpAnchor;
};

Value transition(std::int64_t time, const std::string& title, const std::filesystem::path& image)
{
    return Value::dictionary({{"timeValue", time}, {"slideTitle", title}, {"imagePath", image.string()}});
}

struct Lecture {
    TemporaryFolder folder;
    std::filesystem::path recording;
    std::string scratch;
    std::filesystem::path destination;
    Value slides = Value::array();

    explicit Lecture(const std::string& fixtureName = "recording-moov-first.m4a")
    {
        recording = test::copyFixture(fixtureName, folder);
        scratch = (folder.path() / "scratch").string() + "/";
        std::filesystem::create_directories(scratch);
        destination = folder.path() / "lecture.m4b";
    }
    std::filesystem::path picture(const std::string& fixtureName, const std::string& as)
    {
        auto path = folder.path() / as;
        std::filesystem::copy_file(test::fixture(fixtureName), path);
        return path;
    }
    void addSlide(std::int64_t time, const std::string& title, const std::filesystem::path& image)
    {
        slides.asArray()->push_back(transition(time, title, image));
    }
};

struct ExportOutcome {
    std::optional<ErrorRecord> alert;
    std::thread::id doneThread;
    std::thread::id notificationThread;
    bool notifiedAfterDone = false;
    std::optional<std::string> resultFilePath;
};

// Runs the host's side of the threads: the main run loop, until the export is over.
void waitForExport(const QuickTimePlugin& plugin)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while ((plugin.isExporting() || RunLoop::current()->hasPendingWork()) &&
           std::chrono::steady_clock::now() < deadline) {
        RunLoop::current()->runOnce(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(plugin.isExporting());
}

// Without tags (a null value) the parameters hold no "tags" at all.
ExportOutcome runExport(Lecture& lecture, const std::string& format, TestUserInterface& ui,
                        const Value& tags = Value::dictionary({{"title", "Waves"}}))
{
    ExportOutcome outcome;
    auto token = NotificationCenter::defaultCenter().addObserver(
        QuilloraQuickTimePluginExportCompleteNotification, nullptr, [&](const Notification& n) {
            outcome.notificationThread = std::this_thread::get_id();
            outcome.notifiedAfterDone = ui.doneThread != std::thread::id();
            outcome.resultFilePath = n.userInfo.stringForKey("resultFilePath");
        });
    {
        QuickTimePlugin plugin({lecture.recording.string(), lecture.scratch, lecture.slides, Value::array(), &ui});
        Value params = Value::dictionary({{"format", format}});
        if (!tags.isNull()) params.asDictionary()->set("tags", tags);
        plugin.exportDataWithParams(params, lecture.destination.string(), nullptr);
        waitForExport(plugin);
    }
    NotificationCenter::defaultCenter().removeObserver(token);
    outcome.alert = ui.alert;
    outcome.doneThread = ui.doneThread;
    return outcome;
}

std::vector<std::uint32_t> trackIDs(const std::filesystem::path& path)
{
    std::vector<std::uint32_t> ids;
    auto movie = toolbox::Movie::movieWithFile(path);
    if (movie) {
        for (const auto& track : movie->tracks()) ids.push_back(track->trackID);
    }
    return ids;
}

TEST(EnhancedPodcastExport, WritesTracksTwoThreeFourAndCopiesAfterTheExportOnTheWorkerThread)
{
    Lecture lecture("recording-moov-last.m4a");
    lecture.addSlide(0, "Intro", lecture.picture("slide.png", "a.png"));
    lecture.addSlide(600, "Body", lecture.picture("slide.jpg", "b.jpg"));
    lecture.slides.asArray()->at(1).asDictionary()->set(
        "linkURL", Value::dictionary({{"title", "Notes"}, {"url", "https://example.org/notes"}}));
    const Bytes original = test::readFile(lecture.recording);
    ScopedDefaults defaults(
        Value::dictionary({{"supportForURL", true}, {"textTrackFontFace", "Helvetica"}, {"textTrackFontSize", 12}}));
    TestUserInterface ui;
    CapturedLog log;

    auto outcome = runExport(lecture, ".m4b", ui);

    EXPECT_FALSE(outcome.alert) << outcome.alert->localizedDescription();
    EXPECT_EQ(ui.shownNib, "QuicktimePlugin");
    EXPECT_EQ(outcome.doneThread, std::this_thread::get_id());
    EXPECT_NE(outcome.notificationThread, std::this_thread::get_id());
    EXPECT_TRUE(outcome.notifiedAfterDone);
    EXPECT_EQ(outcome.resultFilePath, lecture.destination.string());
    EXPECT_EQ(trackIDs(lecture.destination), (std::vector<std::uint32_t>{1, 2, 3, 4}));
    EXPECT_EQ(test::readFile(lecture.recording), original);
    EXPECT_EQ(test::ffmpegDecodeErrors(lecture.destination), "");
    // The working copy stays in the scratch folder, named after the time.
    int workingCopies = 0;
    for (const auto& entry : std::filesystem::directory_iterator(lecture.scratch)) {
        if (entry.path().filename().string().ends_with("source.m4a")) ++workingCopies;
    }
    EXPECT_EQ(workingCopies, 1);
    // The driver's stage lines, each behind its source file and line.
    const std::vector<std::string> lines = log.lines();
    for (std::string stage : {"Exporting as .m4a/b", "Atom debugging is disabled", "Processing Images",
                              "The result for resizing images: SUCCESS", "The result for adding chapters: SUCCESS",
                              "The result for adding images: SUCCESS", "Closing file", "Export Complete",
                              "acceptDataAvailableNotification in QT Plugin"}) {
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.starts_with("QuickTimePlugin/QuickTimePlugin:") && line.ends_with("  " + stage);
        })) << stage;
    }
}

TEST(EnhancedPodcastExport, StagesThatCannotRunAreLeftOutOrReported)
{
    TestUserInterface ui;
    {
        // No transitions: metadata only.
        Lecture lecture;
        CapturedLog log;
        auto outcome = runExport(lecture, ".m4a", ui);
        EXPECT_FALSE(outcome.alert);
        EXPECT_TRUE(log.contains("No slide transitions."));
        EXPECT_EQ(trackIDs(lecture.destination), (std::vector<std::uint32_t>{1}));
    }
    for (const bool links : {true, false}) {
        // No slide picture can be loaded, so there is no frame to draw them
        // in: the export fails before any track is added, links on or off.
        SCOPED_TRACE(links ? "links on" : "links off");
        Lecture lecture;
        auto broken = lecture.folder.path() / "broken.png";
        test::writeFile(broken, Bytes{'n', 'o', 't', ' ', 'a', ' ', 'p', 'n', 'g'});
        lecture.addSlide(0, "One", broken);
        lecture.addSlide(900, "Two", broken);
        ScopedDefaults defaults(Value::dictionary({{"supportForURL", links}, {"textTrackFontSize", 12}}));
        TestUserInterface failing;
        CapturedLog log;
        auto outcome = runExport(lecture, links ? ".m4v" : ".m4a", failing);
        ASSERT_TRUE(outcome.alert);
        EXPECT_EQ(outcome.alert->domain, "qtPluginImageResizeErr");
        EXPECT_TRUE(log.contains("No slide image could be loaded"));
        EXPECT_FALSE(log.contains("The result for adding chapters"));
        EXPECT_EQ(trackIDs(lecture.destination), (std::vector<std::uint32_t>{1}));
    }
}

TEST(EnhancedPodcastExport, WithoutTagsTheItemListIsEmptyAndTheMovieUntagged)
{
    const std::string readTags = "/usr/bin/python3 -c 'import sys, mutagen\n"
                                 "print(sorted((mutagen.File(sys.argv[1]).tags or {}).keys()))' ";
    for (const std::string format : {".m4b", ".mov"}) {
        SCOPED_TRACE(format);
        Lecture lecture;
        lecture.destination.replace_extension(format);
        lecture.addSlide(0, "One", lecture.picture("slide.jpg", "a.jpg"));
        ScopedDefaults defaults(Value::dictionary({{"AppleLanguages", Value::array({"en"})}}));
        TestUserInterface ui;
        auto outcome = runExport(lecture, format, ui, Value());
        EXPECT_FALSE(outcome.alert) << outcome.alert->localizedDescription();
        const std::string file = test::shellQuote(lecture.destination.string());
        // Not even the software's name, which is set in the tags given.
        const auto shown = test::runCommand("ffprobe -v error -show_entries format_tags -of flat " + file).output;
        EXPECT_EQ(shown.find("Quillora"), std::string::npos) << shown;
        EXPECT_EQ(shown.find("com.apple.quicktime"), std::string::npos) << shown;
        if (format == ".m4b") {
            EXPECT_EQ(test::runCommand(readTags + file).output, "[]\n");
        }
    }
    // The item list is there, empty.
    Lecture lecture;
    TestUserInterface ui;
    ASSERT_FALSE(runExport(lecture, ".m4b", ui, Value()).alert);
    const test::WrittenFile written(lecture.destination);
    const auto ilst = written.tree.find({atom::moov, atom::udta, atom::meta, atom::ilst});
    ASSERT_TRUE(ilst);
    EXPECT_EQ(ilst->size, 8);
}

TEST(EnhancedPodcastExport, BlankTitlesAndTheBlanksTrimmedAreUnicodeWhiteSpace)
{
    // A no-break space alone is blank: the podcast names the chapter; an
    // ideographic space around a title is trimmed in the movie.
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {".m4b", "\u00A0", "Chapter 1"},
        {".m4b", "\u2003\u2029", "Chapter 1"},
        {".mov", "\u3000Wellen\u3000", "Wellen"}};
    for (const auto& [format, title, shown] : cases) {
        SCOPED_TRACE(format + " " + title);
        Lecture lecture;
        lecture.destination.replace_extension(format);
        lecture.addSlide(0, title, lecture.picture("slide.jpg", "a.jpg"));
        ScopedDefaults defaults(Value::dictionary({{"AppleLanguages", Value::array({"en"})}}));
        TestUserInterface ui;
        ASSERT_FALSE(runExport(lecture, format, ui).alert);
        EXPECT_EQ(test::runCommand("ffprobe -v error -show_entries chapter_tags=title -of csv=p=0 " +
                                   test::shellQuote(lecture.destination.string()))
                      .output,
                  shown + "\n");
    }
}

TEST(EnhancedPodcastExport, EqualSlideTimesFailTheImageStageButTheFileIsStillCopied)
{
    Lecture lecture;
    lecture.addSlide(0, "One", lecture.picture("slide.jpg", "a.jpg"));
    lecture.addSlide(0, "Two", lecture.picture("slide.png", "b.png"));
    // Whatever stood at the destination is replaced.
    test::writeFile(lecture.destination, Bytes{'o', 'l', 'd'});
    TestUserInterface ui;
    CapturedLog log;

    auto outcome = runExport(lecture, ".m4b", ui);

    ASSERT_TRUE(outcome.alert);
    EXPECT_EQ(outcome.alert->domain, "qtPluginImageResizeErr");
    EXPECT_EQ(outcome.alert->code, 0);
    EXPECT_EQ(ui.helpAnchor, "Qora0028");
    EXPECT_TRUE(log.contains("There was a problem adding the images"));
    EXPECT_TRUE(outcome.notifiedAfterDone);
    // The partly edited working copy: chapters in, no picture track, no tags.
    EXPECT_EQ(trackIDs(lecture.destination), (std::vector<std::uint32_t>{1, 2}));
}

struct Slide {
    std::int64_t time;
    std::string title;
    std::string fixture;
};

// Exports the slides with the preferences; the file is kept as `kept`.
void exportSlides(std::initializer_list<Slide> slides, const Value& preferences, const std::filesystem::path& kept)
{
    Lecture lecture;  // movie atom first: every insertion moves every chunk
    for (const Slide& slide : slides)
        lecture.addSlide(slide.time, slide.title, lecture.picture(slide.fixture, slide.fixture));
    ScopedDefaults defaults(preferences);
    TestUserInterface ui;
    ASSERT_FALSE(runExport(lecture, ".m4b", ui).alert);
    std::filesystem::copy_file(lecture.destination, kept);
}

TEST(EnhancedPodcastExport, EverySlideIsDrawnAndDeclaredAtItsDecodedSize)
{
    TemporaryFolder folder;
    for (const auto& [quality, codec] : {std::pair{1024, "png"}, {0, "mjpeg"}}) {
        SCOPED_TRACE(codec);
        const auto path = folder.path() / fmt::format("{}.m4b", codec);
        // The TIFF is subsampled YCbCr, which libvips' own loader refuses.
        exportSlides({{0, "PNG", "slide.png"}, {600, "TIFF", "slide.tif"}, {1200, "JPEG", "slide.jpg"}},
                     Value::dictionary({{"videoImageQuality", quality}}), path);
        const test::WrittenFile written(path);
        const auto& pictures = written.traks.back();
        const Bytes stsd = written.below(pictures, {atom::mdia, atom::minf, atom::stbl, atom::stsd});
        ASSERT_GE(stsd.size(), 52u);
        const std::uint16_t side = 96;                                      // the TIFF's height decides the frame
        EXPECT_EQ(readU32BE(&stsd[48]), std::uint32_t{side} << 16 | side);  // 16-bit width, then height
        const auto offsets = written.table(pictures, atom::stco), sizes = written.table(pictures, atom::stsz);
        ASSERT_EQ(offsets.size(), 3u);
        for (std::size_t i = 0; i < offsets.size(); ++i) {
            const Bytes sample = written.at(offsets[i], sizes[i]);
            const auto decoded = vips::VImage::new_from_buffer(sample.data(), sample.size(), "");
            EXPECT_EQ(decoded.width(), side);
            EXPECT_EQ(decoded.height(), side);
        }
        EXPECT_EQ(test::runCommand("ffprobe -v error -show_entries stream=codec_name,width,height,nb_frames "
                                   "-select_streams v -of csv=p=0 " +
                                   test::shellQuote(path.string()))
                      .output,
                  fmt::format("{},{},{},3\n", codec, side, side));
        EXPECT_EQ(test::ffmpegDecodeErrors(path), "");
    }
}

TEST(EnhancedPodcastExport, ChapterListWhenAskedForAndOtherwiseTheSameFile)
{
    TemporaryFolder folder;
    std::map<bool, std::filesystem::path> exported;
    for (bool on : {false, true}) {
        exported[on] = folder.path() / (on ? "on.m4b" : "off.m4b");
        exportSlides({{0, "Welcome", "slide.jpg"}, {900, "Über Wellen", "slide.png"}, {1234, "", "slide-exif.jpg"}},
                     Value::dictionary({{"addChapterList", on}}), exported[on]);
    }
    const std::string quoted = test::shellQuote(exported[true].string());
    EXPECT_EQ(test::ffmpegDecodeErrors(exported[true]), "");
    // Debian's mutagen scales the times by 1000 over the movie's time scale
    // (600 here); later releases read them as written.
    const auto listed = test::runCommand("/usr/bin/python3 -c 'import sys, mutagen.mp4\n"
                                         "for c in mutagen.mp4.MP4(sys.argv[1]).chapters: print(c.title, c.start)' " +
                                         quoted);
    const std::vector<std::pair<std::string, double>> expected = {
        {"Welcome", 0}, {"Über Wellen", 1.5}, {"Chapter 3", 1234 / 600.0}};
    std::istringstream lines(listed.output);
    for (const auto& [title, seconds] : expected) {
        std::string line;
        ASSERT_TRUE(std::getline(lines, line)) << listed.output;
        const auto blank = line.rfind(' ');
        EXPECT_EQ(line.substr(0, blank), title);
        const double start = std::stod(line.substr(blank + 1));
        EXPECT_TRUE(std::abs(start - seconds) < 1e-6 || std::abs(start - seconds * 1000 / 600) < 1e-6) << line;
    }

    // The list is udta's last child, after the item list; every chunk offset
    // still points at the bytes it did; taken out again, the file is the
    // one written without it.
    const test::WrittenFile off(exported[false]), on(exported[true]);
    const auto udta = on.tree.find({atom::moov, atom::udta});
    ASSERT_TRUE(udta);
    const auto children = on.tree.childrenOf(*udta);
    ASSERT_GE(children.size(), 2u);
    EXPECT_EQ(children[children.size() - 2].type, atom::meta);
    EXPECT_EQ(children.back().type, fourCC("chpl"));
    ASSERT_EQ(on.traks.size(), off.traks.size());
    for (std::size_t t = 0; t < on.traks.size(); ++t) {
        const auto onOffsets = on.table(on.traks[t], atom::stco), offOffsets = off.table(off.traks[t], atom::stco);
        ASSERT_EQ(onOffsets.size(), offOffsets.size());
        for (std::size_t i = 0; i < onOffsets.size(); ++i)
            EXPECT_EQ(on.at(onOffsets[i], 16), off.at(offOffsets[i], 16));
    }
    {
        QTDataEditor editor;
        FileHandle file(exported[true], FileHandle::Mode::Updating);
        EXPECT_TRUE(editor.removeAtomAtOffset(static_cast<std::int32_t>(children.back().offset), file));
    }
    EXPECT_EQ(test::readFile(exported[true]), off.bytes);
}

TEST(EnhancedPodcastExport, UnknownFormatsAreLoggedAndExportedAsPodcasts)
{
    Lecture lecture;
    TestUserInterface ui;
    ui.savePanelPath = lecture.destination.string();
    {
        CapturedLog log;
        QuickTimePlugin plugin({lecture.recording.string(), lecture.scratch, Value::array(), Value::array(), &ui});
        plugin.exportDataWithParams(Value::dictionary({{"format", ".avi"}, {"tags", Value::dictionary()}}));
        waitForExport(plugin);
        EXPECT_TRUE(log.contains("-[QuickTimePlugin handleExport]  *** Unexpected export format requested: .avi"));
        ASSERT_TRUE(ui.savePanel);
        EXPECT_EQ(ui.savePanel->fileName, "Untitled.avi");
        EXPECT_EQ(ui.savePanel->allowedFileTypes, std::vector<std::string>{"avi"});
        EXPECT_EQ(ui.progressSheets, 1);
        EXPECT_FALSE(ui.alert);
        EXPECT_EQ(trackIDs(lecture.destination), (std::vector<std::uint32_t>{1}));
    }
}

TEST(QuickTimePluginForm, RoundTripsParametersAndCancelledPanelsDoNothing)
{
    Lecture lecture;
    TestUserInterface ui;
    ui.savePanelAnswer = 0;
    QuickTimePlugin plugin({lecture.recording.string(), lecture.scratch, Value::array(), Value::array(), &ui});
    plugin.setExportParams(Value::dictionary(
        {{"format", ".m4b"}, {"tags", Value::dictionary({{"title", "Waves"}, {"class name", "Physics"}})}}));
    EXPECT_TRUE(plugin.loadParamsToInterface());
    EXPECT_EQ(plugin.form().selectedFormat, ".m4b");
    EXPECT_EQ(plugin.form().classNameTag, "Physics");
    Value params = plugin.exportParamsFromInterface();
    EXPECT_EQ(params.stringForKey("format"), ".m4b");
    const Value& tags = *params.get("tags");
    for (const char* key : {"title", "author", "university", "class name", "class number"}) {
        EXPECT_TRUE(tags.stringForKey(key).has_value()) << key;
    }
    EXPECT_EQ(tags.stringForKey("author"), "");
    EXPECT_EQ(tags.stringForKey("title"), "Waves");

    EXPECT_TRUE(plugin.exportData());
    EXPECT_FALSE(plugin.isExporting());
    EXPECT_EQ(ui.progressSheets, 0);
    EXPECT_FALSE(std::filesystem::exists(lecture.destination));
    EXPECT_EQ(QuickTimePlugin::pluginTitle(), "QuickTime");
    EXPECT_EQ(QuickTimePlugin::pluginDescription(), "Quicktime Publishing.");
}

}  // namespace
}  // namespace quillora
