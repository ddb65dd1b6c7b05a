// encodeMp3 over files ffmpeg makes, read back with ffprobe, ffmpeg and
// mutagen: no ID3 tag, a Xing/LAME header that gives the length, the
// channels, rate and bit rate asked for.
#include <gtest/gtest.h>

#include <algorithm>

#include "SoundTestSupport.h"
#include "audio/AudioError.h"
#include "audio/Mp3Encoding.h"

using namespace quillora;
using namespace quillora::test;

TEST(Mp3Encoding, WritesUntaggedMp3WithTheHeaderThatGivesItsLength)
{
    TemporaryFolder folder;
    const std::vector<std::string> chosen = {"lecture.m4a", "lecture.ogg", "lecture.webm", "surround.wav",
                                             "lecture.flac"};
    for (const auto& sample : commonSoundSamples()) {
        if (std::find(chosen.begin(), chosen.end(), sample.name) == chosen.end()) continue;
        SCOPED_TRACE(sample.name);
        const auto input = makeWithFfmpeg(folder, sample.name, sample.arguments);
        const auto output = folder.path() / (sample.name + ".mp3");
        std::vector<double> reports;
        audio::encodeMp3(input, output, {}, [&](double fraction) { reports.push_back(fraction); });

        const Bytes bytes = readFile(output);
        ASSERT_GT(bytes.size(), 200u);
        // No tag: the file begins with a frame, whose first bytes are a frame sync.
        EXPECT_EQ(bytes[0], 0xff);
        EXPECT_EQ(bytes[1] & 0xe0, 0xe0);
        const std::string start(bytes.begin(), bytes.begin() + 200);
        EXPECT_TRUE(start.find("Info") != std::string::npos || start.find("Xing") != std::string::npos);

        const ProbedSound probed = ffprobeSound(output);
        const int channels = std::min(sample.channels, 2);
        // MPEG-1 layer III goes up to 48 kHz.
        const int rate = std::min(sample.sampleRate, 48000);
        EXPECT_EQ(probed.codec, "mp3");
        EXPECT_EQ(probed.channels, channels);
        EXPECT_EQ(probed.sampleRate, rate);
        EXPECT_EQ(probed.bitrate, channels == 1 ? 64000 : 128000);
        const double inputSeconds = decodedSeconds(input);
        const double mp3Frame = 1152.0 / rate;
        // The LAME header's delay and padding let the decoder trim the sound exactly.
        EXPECT_NEAR(decodedSeconds(output), inputSeconds, 0.002);
        // ffprobe's length is the header's frame count, the encoder's delay
        // and padding (under two frames) included; without the header it
        // would estimate it from the bit rate and say so.
        const auto packets = runCommand("ffprobe -v error -count_packets -select_streams a:0 -show_entries "
                                        "stream=nb_read_packets -of csv=p=0 " +
                                        shellQuote(output.string()));
        EXPECT_NEAR(probed.durationSeconds, std::atof(packets.output.c_str()) * mp3Frame, 1e-3);
        EXPECT_NEAR(probed.durationSeconds, inputSeconds, 3 * mp3Frame);
        EXPECT_EQ(runCommand("ffprobe -v warning " + shellQuote(output.string())).output, "");
        EXPECT_EQ(ffmpegDecodeErrors(output), "");
        expectProgressComplete(reports);

        const auto read = runCommand("/usr/bin/python3 -c 'import sys, mutagen.mp3; f = mutagen.mp3.MP3(sys.argv[1]); "
                                     "print(f.tags is None, f.info.bitrate_mode, f.info.channels)' " +
                                     shellQuote(output.string()));
        EXPECT_EQ(read.output, "True BitrateMode.CBR " + std::to_string(channels) + "\n");
    }

    // A bit rate of one's own, and the refusal of a file without sound.
    const auto speech = makeWithFfmpeg(folder, "speech.wav", toneInput(1, 16000) + " -c:a pcm_s16le");
    const auto output = folder.path() / "speech.mp3";
    audio::Mp3Settings settings;
    settings.bitrate = 32000;
    audio::encodeMp3(speech, output, settings);
    EXPECT_EQ(ffprobeSound(output).bitrate, 32000);
    EXPECT_EQ(ffprobeSound(output).sampleRate, 16000);

    const auto silentFilm = makeWithFfmpeg(folder, "silent.mp4", "-f lavfi -i testsrc=size=64x48:rate=5:duration=2");
    EXPECT_THROW(audio::encodeMp3(silentFilm, folder.path() / "silent.mp3", {}), audio::AudioError);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "silent.mp3"));
}
