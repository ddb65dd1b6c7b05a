// Recordings as lecturers' tools make them, published through the host: each
// comes out with its chapters at the slides' times and its sound whole, or is
// refused with its cause. Read back with ffprobe and ffmpeg.
#include <gtest/gtest.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cmath>

#include "TestSupport.h"

namespace quillora {
namespace {

using test::runCommand;
using test::runQuillora;
using test::shellQuote;

// The recordings, made once for all the cases of a run.
const std::filesystem::path& recordings()
{
    static const test::TemporaryFolder folder;
    static const bool made = [] {
        const auto script = std::filesystem::path(QUILLORA_SOURCE_DIR) / "scripts" / "make-recordings";
        const auto result = runCommand(shellQuote(script.string()) + " " + shellQuote(folder.path().string()));
        EXPECT_EQ(result.status, 0) << result.output;
        return true;
    }();
    (void)made;
    return folder.path();
}

nlohmann::json probe(const std::filesystem::path& file, const std::string& what)
{
    const auto result = runCommand("ffprobe -v error -of json " + what + " " + shellQuote(file.string()));
    EXPECT_EQ(result.status, 0) << result.output;
    return nlohmann::json::parse(result.output, nullptr, false);
}

// The MD5 of each packet of the first sound stream.
std::vector<std::string> soundPackets(const std::filesystem::path& file)
{
    std::vector<std::string> hashes;
    const auto packets = probe(file, "-select_streams a:0 -show_packets -show_data_hash MD5");
    for (const auto& packet : packets["packets"]) hashes.push_back(packet.value("data_hash", ""));
    return hashes;
}

// When the first sound stream starts to play (after a leading empty edit).
double soundStart(const std::filesystem::path& file)
{
    const auto streams = probe(file, "-select_streams a:0 -show_entries stream=start_time")["streams"];
    return streams.empty() ? -1 : std::stod(streams[0].value("start_time", "-1"));
}

double soundSeconds(const std::filesystem::path& file)
{
    const auto format = probe(file, "-show_format");
    return std::stod(format["format"].value("duration", "0"));
}

// Slides at 0, 10.5 and 25 s, in 1/600 s.
constexpr std::int64_t kSlideTimes[] = {0, 6300, 15000};

struct Lecture {
    test::TemporaryFolder folder;
    std::filesystem::path transitions = folder.path() / "transitions.json";

    Lecture()
    {
        const std::string json = fmt::format(
            R"([{{"timeValue": {}, "slideTitle": "One", "imagePath": "{}"}},
                {{"timeValue": {}, "slideTitle": "Two", "imagePath": "{}",
                  "linkURL": {{"title": "More", "url": "https://example.org/two"}}}},
                {{"timeValue": {}, "slideTitle": "Three", "imagePath": "{}"}}])",
            kSlideTimes[0], test::fixture("slide.jpg").string(), kSlideTimes[1], test::fixture("slide.png").string(),
            kSlideTimes[2], test::fixture("slide.gif").string());
        test::writeFile(transitions, Bytes(json.begin(), json.end()));
        const std::string defaults = R"({"supportForURL": true, "videoImageQuality": 512})";
        test::writeFile(folder.path() / "defaults.json", Bytes(defaults.begin(), defaults.end()));
    }

    test::CommandResult exportTo(const std::filesystem::path& recording, const std::filesystem::path& output,
                                 const std::string& extra = "") const
    {
        return runQuillora("export --recording " + shellQuote(recording.string()) + " --transitions " +
                           shellQuote(transitions.string()) + " --defaults " +
                           shellQuote((folder.path() / "defaults.json").string()) + " --output " +
                           shellQuote(output.string()) + " " + extra);
    }
};

struct Recording {
    const char* file;
    bool aac;  // its sound is copied packet for packet
};

class PreparedRecordings : public testing::TestWithParam<std::tuple<Recording, const char*>> {};

TEST_P(PreparedRecordings, PublishWithChaptersAtTheSlidesTimesAndTheSoundWhole)
{
    const auto& [recording, format] = GetParam();
    const auto input = recordings() / recording.file;
    const Bytes before = test::readFile(input);
    Lecture lecture;
    const auto output = lecture.folder.path() / (std::string("lecture") + format);

    const auto result = lecture.exportTo(input, output);
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(test::readFile(input), before) << "the user's recording changed";

    const auto chapters = probe(output, "-show_chapters")["chapters"];
    ASSERT_EQ(chapters.size(), std::size(kSlideTimes)) << chapters.dump();
    for (std::size_t i = 0; i < chapters.size(); ++i) {
        EXPECT_NEAR(std::stod(chapters[i].value("start_time", "-1")), kSlideTimes[i] / 600.0, 0.010) << i;
    }
    // The chapter samples last until the end of the recording. A .mov leaves
    // a silent start out, as its writer is designed to, and says so;
    // --modern puts it back.
    const double silentStart = soundStart(input);
    const bool leftOut = recording.aac && std::string_view(format) == ".mov" && silentStart > 0.010;
    if (leftOut) {
        EXPECT_NE(result.output.find("of silence that a .mov leaves out"), std::string::npos) << result.output;
        const auto modern = lecture.folder.path() / "modern.mov";
        const auto repaired = lecture.exportTo(input, modern, "--modern");
        ASSERT_EQ(repaired.status, 0) << repaired.output;
        EXPECT_NEAR(soundStart(modern), silentStart, 0.010) << "the silent start was not put back";
        EXPECT_NEAR(soundSeconds(modern), soundSeconds(input), 0.010);
        EXPECT_EQ(soundPackets(modern), soundPackets(input));
        EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -i " + shellQuote(modern.string()) + " -f null -").output, "");
    }
    const double length = soundSeconds(input) - (leftOut ? silentStart : 0);
    EXPECT_NEAR(std::stod(chapters.back().value("end_time", "0")), length, 0.1);
    EXPECT_NEAR(soundSeconds(output), length, 0.1);

    const auto decoded =
        runCommand("ffmpeg -nostdin -v error -i " + shellQuote(output.string()) + " -map 0:a -f null -");
    EXPECT_EQ(decoded.status, 0);
    EXPECT_EQ(decoded.output, "") << "ffmpeg found errors decoding the sound";
    if (recording.aac) {
        EXPECT_EQ(soundPackets(output), soundPackets(input)) << "the sound was not copied as it was";
        if (!leftOut) {
            EXPECT_NEAR(soundStart(output), silentStart, 0.010) << "the sound starts at another time";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    AsToolsMakeThem, PreparedRecordings,
    testing::Combine(testing::Values(Recording{"timescale-1000.m4a", true}, Recording{"timescale-44100.m4a", true},
                                     Recording{"screen.mp4", true}, Recording{"republished.m4a", true},
                                     Recording{"two-sounds.m4a", true}, Recording{"fragmented.mp4", true},
                                     Recording{"co64.m4a", true}, Recording{"large-size.m4a", true},
                                     Recording{"open-ended.m4a", true}, Recording{"delayed.m4a", true},
                                     Recording{"voice.3gp", false}, Recording{"pcm.mov", false},
                                     Recording{"lecture.mp3", false}, Recording{"lecture.wav", false},
                                     Recording{"lecture.opus", false}, Recording{"lecture.flac", false}),
                     testing::Values(".m4b", ".mov")),
    [](const testing::TestParamInfo<PreparedRecordings::ParamType>& param) {
        std::string name = std::string(std::get<0>(param.param).file) + std::get<1>(param.param);
        for (char& c : name) {
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        }
        return name;
    });

TEST(PreparedRecordings, RecordingsThatCannotBePreparedAreRefusedWithTheirCause)
{
    struct Case {
        const char* file;
        const char* word;
    };
    for (const Case& c : {Case{"truncated.m4a", "damaged"}, Case{"silent.mp4", "no sound"}}) {
        Lecture lecture;
        const auto output = lecture.folder.path() / "lecture.m4b";
        const auto result = lecture.exportTo(recordings() / c.file, output);
        EXPECT_EQ(result.status, 2) << c.file << "\n" << result.output;
        EXPECT_NE(result.output.find(c.word), std::string::npos) << c.file << "\n" << result.output;
        EXPECT_EQ(result.output.find("slide"), std::string::npos) << "a slide was blamed:\n" << result.output;
        EXPECT_FALSE(std::filesystem::exists(output));
    }
}

// The MD5 of the first sound stream decoded: the same for the same sound
// however its samples are gathered into chunks.
std::string decodedSound(const std::filesystem::path& file)
{
    return runCommand("ffmpeg -nostdin -v error -i " + shellQuote(file.string()) + " -map 0:a:0 -f md5 -").output;
}

// The device export copies the sound of a movie as it is, whatever its
// coding: the same sound, nothing added, starting when the recording's does.
TEST(PreparedRecordings, DeviceExportKeepsTheSoundOfEveryCoding)
{
    for (const char* file : {"voice.3gp", "pcm.mov", "delayed.m4a"}) {
        SCOPED_TRACE(file);
        const auto input = recordings() / file;
        test::TemporaryFolder folder;
        const auto output = folder.path() / "device.m4v";
        const auto result =
            runQuillora("export-device " + shellQuote(input.string()) + " " + shellQuote(output.string()));
        ASSERT_EQ(result.status, 0) << result.output;
        EXPECT_EQ(decodedSound(output), decodedSound(input));
        EXPECT_EQ(test::ffmpegDecodeErrors(output), "");
        EXPECT_NEAR(soundStart(output), soundStart(input), 0.010);
        EXPECT_NEAR(soundSeconds(output), soundSeconds(input), 0.1);
        // Tables as compact as the recorder's: PCM keeps one sample size, not one for every frame.
        EXPECT_LT(std::filesystem::file_size(output), std::filesystem::file_size(input) + 16384);
    }
}

// The chapter document and the external-tool route count the same times on
// a recording in ffmpeg's time scale as the in-place export does.
TEST(PreparedRecordings, EveryRouteCountsTheSameTimes)
{
    const auto input = recordings() / "timescale-1000.m4a";
    Lecture lecture;
    const auto xml = runQuillora("chapter-xml --recording " + shellQuote(input.string()) + " --transitions " +
                                 shellQuote(lecture.transitions.string()));
    ASSERT_EQ(xml.status, 0) << xml.output;
    for (const char* start : {"00:00:00.000", "00:00:10.500", "00:00:25.000"}) {
        EXPECT_NE(xml.output.find(fmt::format("starttime=\"{}\"", start)), std::string::npos) << xml.output;
    }
    if (runCommand("command -v AtomicParsley").status != 0) GTEST_SKIP() << "AtomicParsley is not installed";
    const auto output = lecture.folder.path() / "tools.m4b";
    const auto result = lecture.exportTo(input, output, "--pipeline tools");
    ASSERT_EQ(result.status, 0) << result.output;
    const auto chapters = probe(output, "-show_chapters")["chapters"];
    ASSERT_EQ(chapters.size(), std::size(kSlideTimes));
    for (std::size_t i = 0; i < chapters.size(); ++i) {
        EXPECT_NEAR(std::stod(chapters[i].value("start_time", "-1")), kSlideTimes[i] / 600.0, 0.010) << i;
    }
}

}  // namespace
}  // namespace quillora
