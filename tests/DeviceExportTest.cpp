// The handheld-player movie: the movie box fitted to a target, the aperture
// mode around an export, the sample lecture's movie exported for a handheld
// player and read by ffprobe, ffmpeg and mutagen, the stored settings, and
// the paths taken without an exporter or a settings file.
#include <gtest/gtest.h>
#include <unistd.h>

#include "QTDataEditor.h"
#include "TestSupport.h"
#include "foundation/FileTypeCode.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "toolbox/AtomContainer.h"
#include "toolbox/Components.h"
#include "toolbox/MovieProperties.h"

namespace quillora {
namespace {

using namespace toolbox;
using test::runCommand;
using test::shellQuote;

const std::filesystem::path kSample = test::fixture("").parent_path().parent_path().parent_path() / "sample";
constexpr const char* kSettingsPath = "/ExporterSettings_iPod.atoms";

// The sample lecture exported as a chapterized movie, once for all tests.
const std::filesystem::path& lectureMovie()
{
    static test::TemporaryFolder folder;
    static const auto movie = [] {
        const auto path = folder.path() / "lecture.mov";
        const auto done =
            test::runQuillora("export --recording " + shellQuote((kSample / "lecture.m4a").string()) +
                              " --transitions " + shellQuote((kSample / "transitions.json").string()) + " --tags " +
                              shellQuote((kSample / "tags.json").string()) + " --output " + shellQuote(path.string()));
        EXPECT_EQ(done.status, 0) << done.output;
        return path;
    }();
    return movie;
}

std::uint32_t apertureMode(const Movie& movie)
{
    std::uint32_t mode = 0;
    QTGetMovieProperty(&movie, kQTPropertyClass_Visual, kQTVisualPropertyID_ApertureMode, 4, &mode, nullptr);
    return mode;
}

TEST(DeviceExport, MovieBoxIsFittedToTheTargetSize)
{
    struct Case {
        std::int16_t width, height;
        float targetWidth, targetHeight;
        bool changed;
        std::int16_t newWidth, newHeight;
    };
    for (const Case c : {Case{320, 240, 640, 480, true, 640, 480}, Case{1280, 720, 640, 480, false, 1280, 720},
                         Case{400, 300, 320, 320, true, 320, 240}, Case{480, 640, 320, 240, true, 180, 240}}) {
        Movie movie;
        Track& picture = movie.newTrack();
        picture.width = c.width << 16;
        picture.height = c.height << 16;
        QTDataEditor editor;
        editor.setSourceMovie(&movie);
        EXPECT_EQ(editor.setExportMovieBoxToWidth(c.targetWidth, c.targetHeight), c.changed) << c.width;
        Rect box;
        GetMovieBox(&movie, box);
        EXPECT_EQ(box, (Rect{0, 0, c.newHeight, c.newWidth})) << c.width << "x" << c.height;
    }
}

TEST(DeviceExport, LectureMovieBecomesAHandheldPlayerMovieOfItsRecordingsSound)
{
    test::TemporaryFolder folder;
    auto movie = Movie::movieWithFile(lectureMovie());
    ASSERT_TRUE(movie);
    QTDataEditor editor;
    editor.setSourceMovie(movie.get());
    ASSERT_TRUE(editor.setExportMovieBoxToWidth(320, 240));
    Rect box;
    GetMovieBox(movie.get(), box);
    const auto exported = folder.path() / "lecture.m4v";
    CapturedLog log;
    EXPECT_EQ(editor.exportAsiPodMovieToPath(exported.string(), true), 0);
    EXPECT_TRUE(log.contains("-[QTDataEditor exportAsiPodMovieToPath:usingCleanApertureMode:]  Status after export 0"));
    // The clean aperture was for the export only; the box is as it was.
    EXPECT_EQ(apertureMode(*movie), kQTApertureMode_Classic);
    Rect after;
    GetMovieBox(movie.get(), after);
    EXPECT_EQ(after, box);

    const auto probe = runCommand("ffprobe -v error -of compact=p=0 -show_entries stream=codec_type,codec_name:"
                                  "format_tags=major_brand " +
                                  shellQuote(exported.string()))
                           .output;
    EXPECT_EQ(probe, "codec_name=aac|codec_type=audio\ntag:major_brand=M4V \n");
    EXPECT_EQ(test::audioPacketHashes(exported), test::audioPacketHashes(kSample / "lecture.m4a"));
    EXPECT_EQ(test::ffmpegDecodeErrors(exported), "");
    const auto mutagen = runCommand("/usr/bin/python3 -c 'import sys, mutagen.mp4; f = mutagen.mp4.MP4(sys.argv[1]); "
                                    "print(f.info.codec, round(f.info.length))' " +
                                    shellQuote(exported.string()));
    EXPECT_EQ(mutagen.status, 0) << mutagen.output;
    EXPECT_EQ(mutagen.output.substr(0, 5), "mp4a.") << mutagen.output;

    // The mode, the aperture sizes and the box survive a flatten.
    QTSetMovieProperty(movie.get(), kQTPropertyClass_Visual, kQTVisualPropertyID_ApertureMode, 4,
                       &kQTApertureMode_CleanAperture);
    ASSERT_TRUE(movie->writeToFile(folder.path() / "flat.mov", Value::dictionary()));
    auto flat = Movie::movieWithFile(folder.path() / "flat.mov");
    EXPECT_EQ(apertureMode(*flat), kQTApertureMode_CleanAperture);
    std::uint8_t hasDimensions = 0;
    QTGetMovieProperty(flat.get(), kQTPropertyClass_Visual, kQTVisualPropertyID_HasApertureModeDimensions, 1,
                       &hasDimensions, nullptr);
    EXPECT_EQ(hasDimensions, 1);
    GetMovieBox(flat.get(), after);
    EXPECT_EQ(after, box);
}

// Moves what a test writes at the root away for the test, and back after.
class RootFileGuard {
public:
    explicit RootFileGuard(std::filesystem::path path) : path_(std::move(path)), saved_(path_.string() + ".saved")
    {
        std::error_code error;
        std::filesystem::rename(path_, saved_, error);
        moved_ = !error;
    }
    ~RootFileGuard()
    {
        std::error_code error;
        std::filesystem::remove(path_, error);
        if (moved_) std::filesystem::rename(saved_, path_, error);
    }

private:
    std::filesystem::path path_;
    std::filesystem::path saved_;
    bool moved_ = false;
};

TEST(DeviceExport, StoredSettingsExportTheSameFileAndTheFixedPathsAreUsed)
{
    test::TemporaryFolder folder;
    auto movie = Movie::movieWithFile(lectureMovie());
    QTDataEditor editor;
    editor.setSourceMovie(movie.get());
    CapturedLog log;
    const auto settings = editor.loadExportSettings();
    ASSERT_TRUE(settings);
    EXPECT_TRUE(log.contains("No settings dialog on this platform: exporting with the default settings"));
    // The documented entries, read as the QT atom container layout has them.
    const auto types = findQTAtomData(*settings, {fourCC("mtyp")});
    const auto tags = findQTAtomData(*settings, {fourCC("tags")});
    ASSERT_TRUE(types && tags);
    EXPECT_EQ(Bytes(types->begin(), types->end()), (Bytes{'s', 'o', 'u', 'n'}));
    EXPECT_EQ(Bytes(tags->begin(), tags->end()), Bytes{1});

    if (access("/", W_OK) != 0) GTEST_SKIP() << "the settings file lives at the root, which is not writable here";
    RootFileGuard guard(kSettingsPath);
    RootFileGuard typed("/iPodMovie.m4v");
    test::writeFile("/iPodMovie.m4v", {});
    editor.exportToIPod(folder.path() / "unset.m4v");
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "unset.m4v"));
    test::writeFile(kSettingsPath, *settings);
    ASSERT_EQ(editor.exportAsiPodMovieToPath((folder.path() / "direct.m4v").string(), false), 0);
    // The type goes on that fixed path, whatever the destination.
    EXPECT_EQ(fileTypeCode("/iPodMovie.m4v"), fourCC("MFB "));
    editor.exportToIPod(folder.path() / "stored.m4v");
    EXPECT_EQ(test::readFile(folder.path() / "stored.m4v"), test::readFile(folder.path() / "direct.m4v"));
}

TEST(DeviceExport, WithoutTheExporterNothingIsWrittenAndTheStatusSaysSo)
{
    const auto handheld = builtInExporters().front();
    const Component component = FindNextComponent(0, handheld.description);
    ASSERT_NE(component, 0u);
    ASSERT_EQ(UnregisterComponent(component), noErr);
    struct Reregister {
        ComponentRegistration registration;
        ~Reregister() { RegisterComponent(registration); }
    } reregister{handheld};

    test::TemporaryFolder folder;
    auto movie = Movie::movieWithFile(kSample / "lecture.m4a");
    QTDataEditor editor;
    editor.setSourceMovie(movie.get());
    CapturedLog log;
    // -2005 is 0xF82B: its low byte is what the method answers.
    EXPECT_EQ(editor.exportAsiPodMovieToPath((folder.path() / "none.m4v").string(), false), 0x2B);
    EXPECT_TRUE(log.contains("Status opening component -2005"));
    EXPECT_FALSE(editor.loadExportSettings());
    EXPECT_TRUE(log.contains("-[QTDataEditor loadExportSettings]  Got error -2147450879 when calling "
                             "MovieExportDoUserDialog"));
    editor.exportToIPod(folder.path() / "none.m4v");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    const Value components = editor.availableComponents();
    for (const auto& entry : *components.asArray()) EXPECT_NE(entry.integerForKey("subtype"), fourCC("M4V "));
}

TEST(DeviceExport, HostListsTheExportersAndExportsAMovieWithoutHarmingItsFiles)
{
    const auto listed = test::runQuillora("components");
    EXPECT_EQ(listed.status, 0);
    EXPECT_NE(listed.output.find("spit   M4V      appl          Handheld player movie"), std::string::npos)
        << listed.output;
    test::TemporaryFolder folder;
    const auto output = folder.path() / "lecture.m4v";
    const std::string movie = shellQuote(lectureMovie().string());
    EXPECT_EQ(
        test::runQuillora("export-device " + movie + " " + shellQuote(output.string()) + " --clean-aperture").status,
        0);
    EXPECT_EQ(test::audioPacketHashes(output), test::audioPacketHashes(kSample / "lecture.m4a"));
    const Bytes before = test::readFile(lectureMovie());
    const std::string exported = shellQuote(output.string());
    EXPECT_EQ(test::runQuillora("export-device " + exported + " " + exported).status, 2);
    EXPECT_EQ(test::runQuillora("export-device " + movie + " " + shellQuote((folder.path() / "x.mp3").string())).status,
              2);
    EXPECT_EQ(test::readFile(lectureMovie()), before);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

}  // namespace
}  // namespace quillora
