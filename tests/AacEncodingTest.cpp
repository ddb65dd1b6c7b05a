// encodeAac over files ffmpeg makes, read back with ffprobe and ffmpeg: the
// codec, channels, rate, length and loudness of what it writes, and what is
// left behind when it fails.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>

#include "SoundTestSupport.h"
#include "audio/AacEncoding.h"
#include "audio/AudioError.h"
#include "foundation/Bytes.h"

using namespace quillora;
using namespace quillora::test;
using audio::AudioError;

namespace {

// The movie header's time scale, read from the file's bytes.
std::uint32_t movieTimeScale(const std::filesystem::path& path)
{
    const Bytes bytes = readFile(path);
    const std::string text(bytes.begin(), bytes.end());
    const auto at = text.find("mvhd");
    if (at == std::string::npos) return 0;
    const std::size_t timeScale = at + (bytes[at + 4] == 1 ? 24 : 16);
    return readU32BE(bytes.data() + timeScale);
}

std::string failureOf(const std::function<void()>& encode)
{
    try {
        encode();
        ADD_FAILURE() << "no AudioError";
    } catch (const AudioError& error) {
        return error.what();
    }
    return "";
}

std::vector<std::string> filesIn(const std::filesystem::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST(AacEncoding, EveryCommonFormatBecomesAacLcAsLongAsItsInput)
{
    TemporaryFolder folder;
    for (const auto& sample : commonSoundSamples()) {
        SCOPED_TRACE(sample.name);
        const auto input = makeWithFfmpeg(folder, sample.name, sample.arguments);
        const auto output = folder.path() / (sample.name + ".m4a");
        std::vector<double> reports;
        audio::encodeAac(input, output, {}, [&](double fraction) { reports.push_back(fraction); });

        const ProbedSound probed = ffprobeSound(output);
        const int channels = std::min(sample.channels, 2);
        // AAC takes rates up to 96 kHz.
        const int rate = sample.sampleRate > 96000 ? 48000 : sample.sampleRate;
        EXPECT_EQ(probed.codec, "aac");
        EXPECT_EQ(probed.profile, "LC");
        EXPECT_EQ(probed.channels, channels);
        EXPECT_EQ(probed.sampleRate, rate);
        EXPECT_NEAR(probed.startSeconds, 0, 1e-6);
        const double inputSeconds = decodedSeconds(input);
        const double aacFrame = 1024.0 / rate;
        EXPECT_NEAR(inputSeconds, 6, 0.05);
        // The edit list gives the exact length; a decoder that ignores its
        // end plays the last frame whole.
        EXPECT_NEAR(probed.durationSeconds, inputSeconds, 0.002);
        const double outputSeconds = decodedSeconds(output);
        EXPECT_GT(outputSeconds, inputSeconds - 0.002);
        EXPECT_LT(outputSeconds, inputSeconds + aacFrame);
        // Narrow-band sound cannot take the full rate; the encoder caps it.
        if (rate >= 22050) {
            EXPECT_NEAR(probed.bitrate, channels == 1 ? 64000 : 96000, 8000);
        }
        EXPECT_EQ(ffmpegDecodeErrors(output), "");
        EXPECT_EQ(movieTimeScale(output), 600u);
        expectProgressComplete(reports);
        EXPECT_LE(reports.size(), 202u);
    }
}

TEST(AacEncoding, TakesTheChosenStreamAndTheChosenBitRate)
{
    TemporaryFolder folder;
    const auto film = makeWithFfmpeg(folder, "film.mkv",
                                     "-f lavfi -i testsrc=size=64x48:rate=5:duration=6 " + toneInput(1, 44100) + " " +
                                         toneInput(2, 48000) + " -map 0 -map 1 -map 2 -c:v mpeg4 -c:a flac");
    const auto first = folder.path() / "first.m4a";
    audio::encodeAac(film, first, {});
    EXPECT_EQ(ffprobeSound(first).channels, 1);
    EXPECT_EQ(ffprobeSound(first).sampleRate, 44100);

    const auto second = folder.path() / "second.m4a";
    audio::AacSettings settings;
    settings.streamIndex = 2;
    settings.bitrate = 128000;
    audio::encodeAac(film, second, settings);
    const ProbedSound probed = ffprobeSound(second);
    EXPECT_EQ(probed.channels, 2);
    EXPECT_EQ(probed.sampleRate, 48000);
    EXPECT_NEAR(probed.bitrate, 128000, 10000);
    EXPECT_EQ(runCommand("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 " + shellQuote(second.string()))
                  .output,
              "audio\n");

    settings.streamIndex = 0;
    const std::string message = failureOf([&] { audio::encodeAac(film, folder.path() / "picture.m4a", settings); });
    EXPECT_NE(message.find("no sound stream 0 (its sound streams: 1, 2)"), std::string::npos) << message;
}

TEST(AacEncoding, BringsQuietSoundToTheTargetLoudnessUnderTheTruePeakCeiling)
{
    TemporaryFolder folder;
    // About -31 LUFS of murmur, with a sharp click every two seconds that
    // the gain would push far over full scale.
    const std::string murmur = "0.06*sin(2*PI*300*t)*(0.6+0.4*sin(2*PI*3*t))+0.02*(random(0)-0.5)";
    const std::string clicks = "if(lt(mod(t\\,2)\\,0.0002)\\,0.7*sin(2*PI*2000*t)\\,0)";
    const auto input = makeWithFfmpeg(
        folder, "quiet.wav",
        "-f lavfi -i " + shellQuote("aevalsrc=exprs='" + murmur + "+" + clicks + "':s=48000:d=8") + " -c:a pcm_s16le");
    const MeasuredLoudness before = ffmpegLoudness(input);
    ASSERT_NEAR(before.integratedLufs, -31, 1);
    ASSERT_GT(before.truePeakDbtp + 15, -1);

    const auto output = folder.path() / "normalized.m4a";
    audio::AacSettings settings;
    settings.targetLoudness = -16;
    std::vector<double> reports;
    audio::encodeAac(input, output, settings, [&](double fraction) { reports.push_back(fraction); });
    const MeasuredLoudness after = ffmpegLoudness(output);
    EXPECT_NEAR(after.integratedLufs, -16, 1);
    EXPECT_LE(after.truePeakDbtp, -1 + 0.2);
    EXPECT_NEAR(decodedSeconds(output), decodedSeconds(input), 1024.0 / 48000);
    expectProgressComplete(reports);
    // Both passes report: the first ends partway, the second goes on to the end.
    const auto midway = std::count_if(reports.begin(), reports.end(), [](double f) { return f > 0.2 && f < 0.6; });
    EXPECT_GE(midway, 10);

    // Sound already louder than the target is brought down the same way.
    const auto loud = makeWithFfmpeg(folder, "loud.wav", toneInput(2, 44100) + " -af volume=12dB -c:a pcm_s16le");
    const auto softened = folder.path() / "softened.m4a";
    audio::encodeAac(loud, softened, settings);
    EXPECT_NEAR(ffmpegLoudness(softened).integratedLufs, -16, 1);
}

TEST(AacEncoding, AFailureNamesItsCauseAndLeavesNoPartialFile)
{
    TemporaryFolder folder;
    const auto input = makeWithFfmpeg(folder, "lecture.wav", toneInput(2, 48000) + " -c:a pcm_s16le");
    const Bytes inputBytes = readFile(input);

    std::string message = failureOf([&] { audio::encodeAac(input, folder.path() / "absent" / "out.m4a", {}); });
    EXPECT_NE(message.find("absent/out.m4a"), std::string::npos) << message;
    EXPECT_NE(message.find("No such file or directory"), std::string::npos) << message;

    message = failureOf([&] { audio::encodeAac(input, folder.path() / "." / "lecture.wav", {}); });
    EXPECT_NE(message.find("over its own input"), std::string::npos) << message;
    EXPECT_EQ(readFile(input), inputBytes);

    // An earlier output stays as it was when the new input is refused.
    const auto notes = folder.path() / "notes.txt";
    writeFile(notes, Bytes{'n', 'o', 't', 'e', 's'});
    const auto earlier = folder.path() / "earlier.m4a";
    writeFile(earlier, Bytes{'o', 'l', 'd'});
    message = failureOf([&] { audio::encodeAac(notes, earlier, {}); });
    EXPECT_NE(message.find("notes.txt"), std::string::npos) << message;
    EXPECT_EQ(readFile(earlier), (Bytes{'o', 'l', 'd'}));

    // A disk that takes no more than 16 KiB of a file: the write fails part-way.
    {
        rlimit saved{};
        getrlimit(RLIMIT_FSIZE, &saved);
        const auto savedSignal = signal(SIGXFSZ, SIG_IGN);
        rlimit small = saved;
        small.rlim_cur = 16 * 1024;
        setrlimit(RLIMIT_FSIZE, &small);
        message = failureOf([&] { audio::encodeAac(input, earlier, {}); });
        setrlimit(RLIMIT_FSIZE, &saved);
        signal(SIGXFSZ, savedSignal);
    }
    EXPECT_NE(message.find("earlier.m4a"), std::string::npos) << message;
    EXPECT_NE(message.find(std::strerror(EFBIG)), std::string::npos) << message;
    EXPECT_EQ(readFile(earlier), (Bytes{'o', 'l', 'd'}));
    EXPECT_EQ(filesIn(folder.path()), (std::vector<std::string>{"earlier.m4a", "lecture.wav", "notes.txt"}));
}
