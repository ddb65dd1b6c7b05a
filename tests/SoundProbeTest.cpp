// What probeSound reports of files made by ffmpeg, and how it refuses files
// that hold no sound it can decode.
#include <gtest/gtest.h>

#include "SoundTestSupport.h"
#include "audio/AudioError.h"
#include "audio/SoundProbe.h"

using namespace quillora;
using namespace quillora::test;
using audio::AudioError;

namespace {

// The message of the AudioError the probe throws; empty (and a failure) when it does not throw.
std::string refusal(const std::filesystem::path& path)
{
    try {
        audio::probeSound(path);
        ADD_FAILURE() << path << " was not refused";
    } catch (const AudioError& error) {
        return error.what();
    }
    return "";
}

}  // namespace

TEST(SoundProbe, ReportsTheSoundStreamsOfEveryCommonFormat)
{
    TemporaryFolder folder;
    for (const auto& sample : commonSoundSamples()) {
        SCOPED_TRACE(sample.name);
        const auto file = makeWithFfmpeg(folder, sample.name, sample.arguments);
        const audio::SoundInfo info = audio::probeSound(file);
        ASSERT_EQ(info.streams.size(), 1u);
        const audio::SoundStreamInfo& stream = info.streams[0];
        EXPECT_EQ(stream.index, 0);
        EXPECT_EQ(stream.codecName, sample.codec);
        EXPECT_EQ(stream.channels, sample.channels);
        EXPECT_EQ(stream.sampleRate, sample.sampleRate);
        EXPECT_TRUE(stream.decodable);
        ASSERT_TRUE(info.durationSeconds.has_value());
        EXPECT_NEAR(*info.durationSeconds, 6, 0.1);
        if (stream.durationSeconds) {
            EXPECT_NEAR(*stream.durationSeconds, 6, 0.1);
        }
    }

    // A film with two sound tracks: FFmpeg's numbering counts the picture too.
    const auto film =
        makeWithFfmpeg(folder, "film.mkv",
                       "-f lavfi -i testsrc=size=64x48:rate=5:duration=3 " + toneInput(1, 44100, 3) + " " +
                           toneInput(2, 48000, 3) + " -map 0 -map 1 -map 2 -c:v mpeg4 -c:a:0 flac -c:a:1 libvorbis");
    const audio::SoundInfo info = audio::probeSound(film);
    ASSERT_EQ(info.streams.size(), 2u);
    EXPECT_EQ(info.streams[0].index, 1);
    EXPECT_EQ(info.streams[0].codecName, "flac");
    EXPECT_EQ(info.streams[0].channels, 1);
    EXPECT_EQ(info.streams[1].index, 2);
    EXPECT_EQ(info.streams[1].codecName, "vorbis");
    EXPECT_EQ(info.streams[1].sampleRate, 48000);
}

TEST(SoundProbe, RefusesFilesWithoutDecodableSoundSayingWhatToDo)
{
    TemporaryFolder folder;
    const auto notes = folder.path() / "notes.txt";
    writeFile(notes, Bytes{'S', 'l', 'i', 'd', 'e', ' ', '1', '\n'});
    std::string message = refusal(notes);
    EXPECT_NE(message.find(notes.string()), std::string::npos) << message;
    EXPECT_NE(message.find("cannot be read as sound"), std::string::npos) << message;

    const auto silentFilm = makeWithFfmpeg(folder, "silent.mp4", "-f lavfi -i testsrc=size=64x48:rate=5:duration=2");
    message = refusal(silentFilm);
    EXPECT_NE(message.find(silentFilm.string()), std::string::npos) << message;
    EXPECT_NE(message.find("no sound stream"), std::string::npos) << message;

    message = refusal(folder.path() / "absent.mp3");
    EXPECT_NE(message.find("does not exist"), std::string::npos) << message;

    // A WAV whose format tag names a codec FFmpeg does not know.
    const auto wav = makeWithFfmpeg(folder, "odd.wav", toneInput(1, 8000, 1) + " -c:a pcm_s16le");
    Bytes bytes = readFile(wav);
    ASSERT_EQ(std::string(bytes.begin() + 12, bytes.begin() + 16), "fmt ");
    bytes[20] = 0x77;
    bytes[21] = 0x77;
    writeFile(wav, bytes);
    message = refusal(wav);
    EXPECT_NE(message.find("no sound FFmpeg can decode"), std::string::npos) << message;
    EXPECT_NE(message.find("convert it"), std::string::npos) << message;
}
