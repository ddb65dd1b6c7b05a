#include "SoundTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>

namespace quillora::test {

std::filesystem::path makeWithFfmpeg(const TemporaryFolder& folder, const std::string& name,
                                     const std::string& arguments)
{
    const auto path = folder.path() / name;
    const auto made = runCommand("ffmpeg -nostdin -v error -y " + arguments + " " + shellQuote(path.string()));
    EXPECT_EQ(made.status, 0) << name << ": " << made.output;
    return path;
}

bool ffmpegCanEncode(const std::string& encoder)
{
    const auto listed = runCommand("ffmpeg -hide_banner -encoders");
    return listed.output.find(" " + encoder + " ") != std::string::npos;
}

std::string toneInput(int channels, int rate, double seconds)
{
    // A different pitch in each channel, over a little noise, so that the
    // encoders have something to spend their bits on and a mix-down shows.
    std::string expressions;
    for (int channel = 0; channel < channels; ++channel) {
        if (channel > 0) expressions += "|";
        expressions += "0.1*sin(2*PI*" + std::to_string(220 + 110 * channel) + "*t)+0.02*(random(" +
                       std::to_string(channel) + ")-0.5)";
    }
    return "-f lavfi -i " +
           shellQuote("aevalsrc=exprs=" + expressions + ":s=" + std::to_string(rate) + ":d=" + std::to_string(seconds));
}

std::vector<SoundSample> commonSoundSamples()
{
    std::vector<SoundSample> samples = {
        {"lecture.mp3", toneInput(1, 44100) + " -c:a libmp3lame -b:a 64k", "mp3", 1, 44100},
        {"lecture.wav", toneInput(2, 48000) + " -c:a pcm_s16le", "pcm_s16le", 2, 48000},
        {"lecture.flac", toneInput(2, 96000) + " -c:a flac", "flac", 2, 96000},
        {"lecture.ogg", toneInput(2, 48000) + " -c:a libopus -b:a 64k", "opus", 2, 48000},
        {"lecture.webm", toneInput(1, 32000) + " -c:a libvorbis", "vorbis", 1, 32000},
        {"lecture.m4a", toneInput(2, 44100) + " -c:a aac -b:a 96k", "aac", 2, 44100},
        {"lecture.mov", toneInput(1, 22050) + " -c:a pcm_s16le", "pcm_s16le", 1, 22050},
        {"surround.wav", toneInput(6, 48000) + " -c:a pcm_s16le", "pcm_s16le", 6, 48000},
        {"studio.wav", toneInput(1, 192000) + " -c:a pcm_s24le", "pcm_s24le", 1, 192000},
    };
    if (ffmpegCanEncode("libopencore_amrnb")) {
        samples.push_back({"phone.amr", toneInput(1, 8000) + " -c:a libopencore_amrnb -b:a 12.2k", "amr_nb", 1, 8000});
    }
    return samples;
}

ProbedSound ffprobeSound(const std::filesystem::path& path)
{
    const auto probed = runCommand("ffprobe -v error -select_streams a:0 -show_entries "
                                   "stream=codec_name,profile,channels,sample_rate,start_time,duration,bit_rate "
                                   "-of default=nw=1 " +
                                   shellQuote(path.string()));
    std::map<std::string, std::string> fields;
    std::istringstream lines(probed.output);
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find('=');
        if (equals != std::string::npos) fields[line.substr(0, equals)] = line.substr(equals + 1);
    }
    auto number = [&](const char* key) { return std::atof(fields[key].c_str()); };
    return ProbedSound{fields["codec_name"],
                       fields["profile"],
                       static_cast<int>(number("channels")),
                       static_cast<int>(number("sample_rate")),
                       number("start_time"),
                       number("duration"),
                       number("bit_rate")};
}

double decodedSeconds(const std::filesystem::path& path)
{
    // Samples counted at a fixed rate, one channel, 4 bytes each.
    const auto counted = runCommand("ffmpeg -nostdin -v error -i " + shellQuote(path.string()) +
                                    " -map 0:a:0 -ac 1 -ar 48000 -f f32le - | wc -c");
    return std::atof(counted.output.c_str()) / 4 / 48000;
}

MeasuredLoudness ffmpegLoudness(const std::filesystem::path& path)
{
    const auto measured = runCommand("ffmpeg -nostdin -hide_banner -nostats -i " + shellQuote(path.string()) +
                                     " -map 0:a:0 -af ebur128=peak=true -f null -");
    // The summary at the end: "I: -16.0 LUFS" ... "Peak: -1.2 dBFS".
    std::smatch integrated, peak;
    const std::regex integratedPattern(R"(I:\s+(-?[0-9.]+|-inf) LUFS)");
    const std::regex peakPattern(R"(Peak:\s+(-?[0-9.]+|-inf) dBFS)");
    const auto at = measured.output.rfind("Summary:");
    const std::string summary = at == std::string::npos ? measured.output : measured.output.substr(at);
    EXPECT_TRUE(std::regex_search(summary, integrated, integratedPattern)) << measured.output;
    EXPECT_TRUE(std::regex_search(summary, peak, peakPattern)) << measured.output;
    return MeasuredLoudness{std::atof(integrated[1].str().c_str()), std::atof(peak[1].str().c_str())};
}

void expectProgressComplete(const std::vector<double>& reports)
{
    ASSERT_FALSE(reports.empty());
    for (std::size_t i = 0; i < reports.size(); ++i) {
        EXPECT_GE(reports[i], 0);
        EXPECT_LE(reports[i], 1);
        if (i > 0) {
            EXPECT_GE(reports[i], reports[i - 1]) << "report " << i;
        }
    }
    EXPECT_GE(reports.back(), 0.99);
}

}  // namespace quillora::test
