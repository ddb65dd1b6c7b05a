// The chapterized movie (.mov): the sample lecture through the host, read
// back by ffmpeg and ffprobe; the wired action of a link read by a reader
// that follows the published QT atom container layout; the export's error
// codes; the metadata display texts.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "QTDataEditor.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"
#include "metadata/MetaDataFormatting.h"
#include "toolbox/MovieContents.h"
#include "toolbox/TextMedia.h"

namespace quillora {
namespace {

using test::runCommand;
using test::shellQuote;

std::filesystem::path sampleFolder()
{
    return test::fixture("").parent_path().parent_path().parent_path() / "sample";
}

TEST(ChapterizedMovie, SampleLectureExportsAMovieOtherReadersPlay)
{
    test::TemporaryFolder folder;
    const auto sample = sampleFolder();
    const auto movie = folder.path() / "lecture.mov";
    const Bytes recordingBefore = test::readFile(sample / "lecture.m4a");
    auto exported = test::runQuillora(
        "export --recording " + shellQuote((sample / "lecture.m4a").string()) + " --transitions " +
        shellQuote((sample / "transitions.json").string()) + " --tags " + shellQuote((sample / "tags.json").string()) +
        " --defaults " + shellQuote((sample / "defaults.json").string()) + " --scratch " +
        shellQuote((folder.path() / "scratch").string()) + " --output " + shellQuote(movie.string()));
    ASSERT_EQ(exported.status, 0) << exported.output;
    EXPECT_EQ(test::readFile(sample / "lecture.m4a"), recordingBefore);
    EXPECT_EQ(test::ffmpegDecodeErrors(movie), "");
    EXPECT_EQ(test::audioPacketHashes(movie), test::audioPacketHashes(sample / "lecture.m4a"));

    const auto probe = runCommand("ffprobe -v error -of compact=p=0 -show_entries "
                                  "stream=codec_type,codec_tag_string,nb_frames:chapter=start_time:chapter_tags=title:"
                                  "format_tags " +
                                  shellQuote(movie.string()))
                           .output;
    const Value slides = readValueFile(sample / "transitions.json");
    std::string chapters;
    for (const auto& slide : *slides.asArray()) {
        chapters += fmt::format("start_time={:.6f}|tag:title={}\n", *slide.integerForKey("timeValue") / 600.0,
                                *slide.stringForKey("slideTitle"));
    }
    EXPECT_NE(probe.find("codec_type=audio|codec_tag_string=mp4a"), std::string::npos) << probe;
    EXPECT_NE(probe.find(fmt::format("codec_type=video|codec_tag_string=png |nb_frames={}", slides.asArray()->size())),
              std::string::npos)
        << probe;
    EXPECT_NE(probe.find("codec_type=subtitle|codec_tag_string=text"), std::string::npos) << probe;
    EXPECT_NE(probe.find(chapters), std::string::npos) << probe;
    const Value tags = readValueFile(sample / "tags.json");
    EXPECT_NE(probe.find("tag:com.apple.quicktime.author=" + *tags.stringForKey("author")), std::string::npos);
    EXPECT_NE(probe.find("tag:com.apple.quicktime.displayname=" + *tags.stringForKey("title")), std::string::npos);

    const auto inspected = test::runQuillora("inspect " + shellQuote(movie.string()));
    EXPECT_EQ(inspected.status, 0) << inspected.output;
    EXPECT_NE(inspected.output.find("Course page  ->  https://example.org/optics\n"), std::string::npos);
    EXPECT_NE(inspected.output.find("com.apple.quicktime.author  " + *tags.stringForKey("author")), std::string::npos);

    QTDataEditor editor;
    const Value native = *editor.getMetaDataForFileAtPath(movie.string()).get("QuickTimeNative");
    EXPECT_EQ(native.stringForKey("com.apple.quicktime.author"), tags.stringForKey("author"));
    EXPECT_EQ(native.stringForKey("com.apple.quicktime.software"), "Quillora");
}

// Exports one slide as a movie through the plug-in's movie export.
std::optional<ErrorRecord> exportOneSlide(const std::filesystem::path& movie, const Value& slide,
                                          const Value& preferences, const Value& tags)
{
    test::TemporaryFolder folder;
    const auto picture = folder.path() / "slide.jpg";
    std::filesystem::copy_file(test::fixture("slide.jpg"), picture);
    slide.asDictionary()->set("imagePath", picture.string());
    test::ScopedDefaults defaults(preferences);
    SilentUserInterface ui;
    QuickTimePlugin plugin({test::copyFixture("recording-moov-first.m4a", folder).string(),
                            folder.path().string() + "/", Value::array({slide}), Value::array(), &ui});
    plugin.setExportParams(Value::dictionary({{"format", ".mov"}, {"tags", tags}}));
    plugin.exportAsChapterizedQuicktimeFileToPath(movie.string());
    return plugin.saveError();
}

TEST(ChapterizedMovie, AReplacementCharacterIsConvertedLikeAnyOther)
{
    test::TemporaryFolder folder;
    const auto movie = folder.path() / "odd.mov";
    const std::string odd = "\uFFFD";
    const Value slide = Value::dictionary(
        {{"timeValue", 0},
         {"slideTitle", "Wave " + odd},
         {"linkURL", Value::dictionary({{"title", "Notes " + odd}, {"url", "https://example.org/" + odd}})}});
    const auto error = exportOneSlide(
        movie, slide, Value::dictionary({{"supportForURL", true}, {"AppleLanguages", Value::array({"en"})}}),
        Value::dictionary({{"author", "Ada " + odd}}));
    ASSERT_FALSE(error) << error->code << " " << error->localizedDescription();
    const auto probe = runCommand("ffprobe -v error -of compact=p=0 -show_entries chapter_tags=title:format_tags " +
                                  shellQuote(movie.string()))
                           .output;
    EXPECT_NE(probe.find("tag:title=Wave " + odd), std::string::npos) << probe;
    EXPECT_NE(probe.find("tag:com.apple.quicktime.author=Ada " + odd), std::string::npos) << probe;
    // The address in the action is in the platform's C-string encoding, which has no U+FFFD.
    const auto inspected = test::runQuillora("inspect " + shellQuote(movie.string())).output;
    EXPECT_NE(inspected.find("Notes " + odd + "  ->  https://example.org/?"), std::string::npos) << inspected;
}

TEST(ChapterizedMovie, LinksWhenSupportForURLIsExactlyTrue)
{
    test::TemporaryFolder folder;
    // A stored 1 is equal to YES as much as a stored boolean; 2 is not.
    for (const auto& [stored, links] : {std::pair{Value(true), true}, {Value(1), true}, {Value(2), false}}) {
        const auto movie = folder.path() / "links.mov";
        const Value slide = Value::dictionary(
            {{"timeValue", 0}, {"linkURL", Value::dictionary({{"title", "Notes"}, {"url", "https://example.org"}})}});
        const auto error = exportOneSlide(
            movie, slide, Value::dictionary({{"supportForURL", stored}, {"AppleLanguages", Value::array({"en"})}}),
            Value::dictionary());
        ASSERT_FALSE(error) << error->code;
        const auto streams =
            runCommand("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 " + shellQuote(movie.string()))
                .output;
        // The chapter track is data to ffprobe, the link track a subtitle.
        EXPECT_EQ(streams, links ? "audio\ndata\nvideo\nsubtitle\n" : "audio\ndata\nvideo\n")
            << jsonFromValue(stored, -1);
    }
}

// A QT atom as the file format lays it out, read without the toolbox.
struct QTAtomRead {
    std::string type;
    std::int32_t id = 0;
    Bytes data;
    std::vector<QTAtomRead> children;
};

QTAtomRead readQTAtom(const Bytes& bytes, std::size_t at)
{
    auto u32 = [&](std::size_t offset) { return readU32BE(bytes.data() + at + offset); };
    QTAtomRead atom{std::string(bytes.begin() + static_cast<long>(at) + 4, bytes.begin() + static_cast<long>(at) + 8),
                    static_cast<std::int32_t>(u32(8)),
                    {},
                    {}};
    const std::size_t size = u32(0);
    const int childCount = (bytes[at + 14] << 8) | bytes[at + 15];
    std::size_t child = at + 20;
    for (int i = 0; i < childCount; ++i) {
        atom.children.push_back(readQTAtom(bytes, child));
        child += readU32BE(bytes.data() + child);
    }
    if (childCount == 0)
        atom.data.assign(bytes.begin() + static_cast<long>(at) + 20, bytes.begin() + static_cast<long>(at + size));
    return atom;
}

TEST(ChapterizedMovie, LinkActionContainerFollowsTheQTAtomLayout)
{
    struct Case {
        std::string url;
        std::uint32_t characters;
        Bytes parameter;
    };
    const std::string plain = "http://example.org/a";  // 20 characters
    for (const Case& c :
         {Case{plain, 20, Bytes(plain.begin(), plain.end())},
          Case{"http://ex.org/\u00FC\u2713", 16,
               Bytes{'h', 't', 't', 'p', ':', '/', '/', 'e', 'x', '.', 'o', 'r', 'g', '/', 0x9F, '?'}}}) {
        QTDataEditor editor;
        QTDataEditor::Handle container;
        ASSERT_TRUE(editor.addHTAct_CreateHyperTextActionContainer(container, c.url));
        const Bytes& bytes = container->bytes;
        ASSERT_EQ(Bytes(bytes.begin(), bytes.begin() + 12), Bytes(12, 0));  // reserved, lock count
        const QTAtomRead root = readQTAtom(bytes, 12);
        EXPECT_EQ(root.type, "sean");
        EXPECT_EQ(readU32BE(bytes.data() + 12), bytes.size() - 12);
        ASSERT_EQ(root.children.size(), 1u);
        const QTAtomRead& wired = root.children[0];
        ASSERT_EQ(wired.children.size(), 1u);
        const QTAtomRead& item = wired.children[0];
        EXPECT_EQ(std::make_tuple(wired.type, wired.id, item.type, item.id), std::make_tuple("wtxt", 1, "htxt", 1));
        ASSERT_EQ(item.children.size(), 3u);
        EXPECT_EQ(std::make_tuple(item.children[0].type, item.children[0].id, item.children[0].data),
                  std::make_tuple("strt", 1, Bytes{0, 0, 0, 0}));
        EXPECT_EQ(std::make_tuple(item.children[1].type, item.children[1].id, item.children[1].data),
                  std::make_tuple("end ", 1, Bytes{0, 0, 0, static_cast<std::uint8_t>(c.characters)}));
        const QTAtomRead& event = item.children[2];
        EXPECT_EQ(std::make_tuple(event.type, static_cast<std::uint32_t>(event.id)),
                  std::make_tuple("evnt", fourCC("clik")));
        ASSERT_EQ(event.children.size(), 1u);
        const QTAtomRead& action = event.children[0];
        ASSERT_EQ(action.children.size(), 2u);
        EXPECT_EQ(std::make_tuple(action.type, action.id), std::make_tuple("actn", 1));
        EXPECT_EQ(std::make_tuple(action.children[0].type, action.children[0].data),
                  std::make_tuple("whic", Bytes{0, 0, 0x18, 0x02}));
        EXPECT_EQ(std::make_tuple(action.children[1].type, action.children[1].data),
                  std::make_tuple("parm", c.parameter));
    }
}

// Text track of the given sample texts, 600 units each.
void addTextTrack(toolbox::Movie& movie, std::initializer_list<std::string> texts)
{
    using namespace toolbox;
    Track* track = NewMovieTrack(movie, 0, 0, 0);
    Media* media = NewTrackMedia(track, fourCC("text"), 600, nullptr, 0);
    for (const auto& text : texts) {
        TextMediaAddTextSample(media, text.data(), text.size(), 0, 0, 0, nullptr, nullptr, 0, nullptr, 0, 0, 0, 0,
                               nullptr, 600, nullptr);
    }
    InsertMediaIntoTrack(track, 0, 0, GetMediaDuration(media), kFixed1);
}

TEST(ChapterizedMovie, WiringAnExistingTextTrackAddsActionsToItsSamples)
{
    test::TemporaryFolder folder;
    toolbox::Movie movie;
    addTextTrack(movie, {"chapter one", "chapter two"});
    addTextTrack(movie, {"link one", "link two"});
    QTDataEditor editor;
    editor.setSourceMovie(&movie);
    // The wired sample moves to the end of the media; the whole media is then shown from the start.
    ASSERT_TRUE(editor.AddHTAct_AddHyperTextToTextMovie(Value::array({Value::dictionary({{"timeValue", 0}})})));
    ASSERT_TRUE(movie.writeToFile(folder.path() / "wired.mov", Value::dictionary()));

    const auto contents = toolbox::readMovieContents(folder.path() / "wired.mov");
    std::vector<std::pair<std::string, std::string>> links;
    for (const auto& sample : contents.links.samples) links.emplace_back(sample.text, sample.url);
    EXPECT_EQ(contents.links.trackID, 2u);
    EXPECT_EQ(links, (std::vector<std::pair<std::string, std::string>>{
                         {"link one", ""}, {"link two", ""}, {"link one", "http://www.example.com/"}}));
    EXPECT_EQ(movie.tracks()[1]->duration(), 1800 + 600);

    // After the first sample's span is cut out, the second's time lies past the track's end.
    CapturedLog log;
    EXPECT_FALSE(editor.AddHTAct_AddHyperTextToTextMovie(Value::array({Value::dictionary({{"timeValue", 2400}})})));
    EXPECT_TRUE(log.contains("-[QTDataEditor AddHTAct_AddHyperTextToTextMovie:]  Could not get media sample"));
}

TEST(ChapterizedMovie, WiringThatFailsStillPutsTheMediaBackAndUpdatesTheMovieFile)
{
    test::TemporaryFolder folder;
    const auto path = folder.path() / "wired.mov";
    {
        toolbox::Movie movie;
        addTextTrack(movie, {"chapter one", "chapter two"});
        addTextTrack(movie, {"link one", "link two"});
        ASSERT_TRUE(movie.writeToFile(path, Value::dictionary()));
    }
    auto movie = toolbox::Movie::movieWithFile(path);
    ASSERT_TRUE(movie);
    QTDataEditor editor;
    editor.setSourceMovie(movie.get());
    // The first slide is wired; the second lies past the track's end, which ends the loop.
    CapturedLog log;
    EXPECT_FALSE(editor.AddHTAct_AddHyperTextToTextMovie(
        Value::array({Value::dictionary({{"timeValue", 0}}), Value::dictionary({{"timeValue", 99999}})})));
    EXPECT_TRUE(log.contains("-[QTDataEditor AddHTAct_AddHyperTextToTextMovie:]  Could not get media sample"));

    // Read back from the file itself: the wired sample is there and the whole media is in the track.
    const auto contents = toolbox::readMovieContents(path);
    std::vector<std::pair<std::string, std::string>> links;
    for (const auto& sample : contents.links.samples) links.emplace_back(sample.text, sample.url);
    EXPECT_EQ(links, (std::vector<std::pair<std::string, std::string>>{
                         {"link one", ""}, {"link two", ""}, {"link one", "http://www.example.com/"}}));
    // The link media now holds three samples of a second each; the track shows them after what is left
    // of the first second.
    const auto durations =
        runCommand("ffprobe -v error -show_entries stream=duration -of csv=p=0 " + shellQuote(path.string())).output;
    EXPECT_EQ(durations, "2.000000\n3.000000\n") << durations;
    const auto reread = toolbox::Movie::movieWithFile(path);
    ASSERT_TRUE(reread);
    EXPECT_EQ(reread->tracks()[1]->duration(), 600 + 1800);
}

// A movie with a text track only: a recording without sound.
std::filesystem::path silentMovie(const std::filesystem::path& folder)
{
    using namespace toolbox;
    Movie movie;
    Track* track = NewMovieTrack(movie, 0, 0, 0);
    Media* media = NewTrackMedia(track, fourCC("text"), 600, nullptr, 0);
    TextMediaAddTextSample(media, "quiet", 5, 0, 0, 0, nullptr, nullptr, 0, nullptr, 0, 0, 0, 0, nullptr, 6000,
                           nullptr);
    InsertMediaIntoTrack(track, 0, 0, 6000, kFixed1);
    const auto path = folder / "silent.mov";
    EXPECT_TRUE(movie.writeToFile(path, Value::dictionary()));
    return path;
}

TEST(ChapterizedMovie, FailuresGiveTheirCodesAndTexts)
{
    test::TemporaryFolder folder;
    const auto slide = folder.path() / "slide.jpg";
    std::filesystem::copy_file(test::fixture("slide.jpg"), slide);
    const auto recording = test::copyFixture("recording-moov-first.m4a", folder);
    const Value slides =
        Value::array({Value::dictionary({{"timeValue", 0}, {"slideTitle", "One"}, {"imagePath", slide.string()}})});
    struct Case {
        std::string name;
        std::filesystem::path recording;
        Value defaults;
        Value tags;
        std::string destination;
        std::optional<ErrorRecord> staleError;
        std::int64_t code;
        std::string description;
        Value otherSlides = Value();
        bool causeNamed = false;  // the failure reason says what went wrong
    };
    const Value links = Value::dictionary(
        {{"supportForURL", true}, {"textTrackFontSize", -20}, {"AppleLanguages", Value::array({"en"})}});
    const Value plain = Value::dictionary({{"AppleLanguages", Value::array({"en"})}});
    const Value goodTags = Value::dictionary({{"author", "Ada"}});
    const std::vector<Case> cases = {
        {"not a movie", slide, plain, goodTags, "a.mov", std::nullopt, -101, "Could not create the new movie file.",
         Value(), true},
        {"stale error", recording, plain, goodTags, "b.mov", ErrorRecord{"earlier", 7}, -101,
         "Could not create the new movie file."},
        {"no sound", silentMovie(folder.path()), plain, goodTags, "c.mov", std::nullopt, -103,
         "Could not add chapters to the destination movie."},
        {"no destination folder", recording, plain, goodTags, "missing/d.mov", std::nullopt, -102,
         "Could not write the movie to disk."},
        {"link track", recording, links, goodTags, "e.mov", std::nullopt, -105,
         "Could not add a hyperlink text track to the destination movie."},
        {"tag not text", recording, plain, Value::dictionary({{"author", 42}}), "f.mov", std::nullopt, -106,
         "Could not set the metadata"},
        {"no slide picture loads", recording, plain, goodTags, "g.mov", std::nullopt, -103,
         "Could not add chapters to the destination movie.",
         Value::array({Value::dictionary({{"timeValue", 0}, {"imagePath", recording.string()}})}), true},
    };
    SilentUserInterface ui;
    for (const auto& c : cases) {
        test::ScopedDefaults defaults(c.defaults);
        QuickTimePlugin plugin({c.recording.string(), (folder.path() / "scratch/").string(),
                                c.otherSlides.isNull() ? slides : c.otherSlides, Value::array(), &ui});
        plugin.setExportParams(Value::dictionary({{"format", ".mov"}, {"tags", c.tags}}));
        plugin.setSaveError(c.staleError);
        EXPECT_FALSE(plugin.exportAsChapterizedQuicktimeFileToPath((folder.path() / c.destination).string())) << c.name;
        ASSERT_TRUE(plugin.saveError()) << c.name;
        EXPECT_EQ(plugin.saveError()->domain, "org.quillora.QuickTimePlugin.exportErr") << c.name;
        EXPECT_EQ(plugin.saveError()->code, c.code) << c.name;
        EXPECT_EQ(plugin.saveError()->localizedDescription(), c.description) << c.name;
        // Pictures that cannot be loaded, or a recording that cannot be read, are named as the cause.
        EXPECT_EQ(plugin.saveError()->userInfo.stringForKey(kLocalizedFailureReasonKey).has_value(), c.causeNamed)
            << c.name;
    }
    // Only a failure past the write leaves the movie behind.
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "f.mov"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "e.mov"));
}

TEST(MetaDataFormatting, DisplayTextsOfTheDataTypes)
{
    const std::uint8_t abc[] = {'a', 'b', 'c'};
    const std::uint8_t bytes[] = {0x0A, 0xFF};
    EXPECT_EQ(GetStringForMetaDataValue(1, abc, 3), "(3 bytes) : abc \n");
    EXPECT_EQ(GetStringForMetaDataValue(22, abc, 0), "(0 bytes) :  \n");
    EXPECT_EQ(GetStringForMetaDataValue(5, bytes, 2), "(2 bytes) :  \n");
    EXPECT_EQ(GetBinaryDataAsString(bytes, 2), " a ff");
    EXPECT_EQ(GetDataTypePropValueAndSizeAsString(24, 8), "(8 bytes) : 24=Float64BE\n");
}

}  // namespace
}  // namespace quillora
