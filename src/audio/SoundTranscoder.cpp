#include "audio/SoundTranscoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "audio/AudioError.h"
#include "audio/FilterChain.h"
#include "audio/LoudnessCorrection.h"
#include "audio/LoudnessMeter.h"
#include "audio/PassProgress.h"
#include "audio/SampleConverter.h"
#include "audio/SoundDecoder.h"
#include "foundation/Log.h"

namespace quillora::audio {

namespace {

// Measuring decodes and scans the sound; encoding decodes and encodes it,
// which takes longer.
constexpr double kMeasuringShare = 0.4;

void refuseOutputOverInput(const std::filesystem::path& input, const std::filesystem::path& output)
{
    std::error_code ignored;
    if (std::filesystem::is_directory(output, ignored)) {
        throw AudioError(fmt::format("{} is a folder; name the file to write", output.string()));
    }
    if (std::filesystem::equivalent(input, output, ignored)) {
        throw AudioError(
            fmt::format("{} would be written over its own input; choose another output file", output.string()));
    }
}

// Decodes the whole stream and hands it over converted to `shape`.
void decodeConverted(SoundDecoder& decoder, const SampleShape& shape, const std::filesystem::path& input,
                     const FrameTaker& take, PassProgress& progress)
{
    SampleConverter converter(shape, input.string());
    decoder.decodeAll([&](AVFrame& decoded) { converter.convert(decoded, take); },
                      [&](double fraction) { progress.report(fraction); });
    converter.finish(take);
}

// The first pass: the filters that bring the sound, as it will be encoded,
// to the target loudness.
std::string measureCorrection(const std::filesystem::path& input, const TranscodeRequest& request,
                              const SampleShape& shape, PassProgress& progress)
{
    SoundDecoder decoder(input, request.streamIndex);
    LoudnessMeter meter(shape, input.string());
    decodeConverted(
        decoder, shape, input, [&](AVFrame& frame) { meter.add(frame); }, progress);
    const LoudnessMeasurement measured = meter.finish();
    std::string filters = loudnessCorrectionFilters(measured, *request.targetLoudness);
    logf("{}: {:.1f} LUFS integrated, true peak {:.1f} dBTP; to reach {:.1f} LUFS: {}", input.string(),
         measured.integratedLufs, measured.truePeakDbtp, *request.targetLoudness,
         filters.empty() ? "no change" : filters);
    return filters;
}

}  // namespace

void transcodeSound(const std::filesystem::path& input, const std::filesystem::path& output,
                    const TranscodeRequest& request, const ProgressCallback& callback)
{
    refuseOutputOverInput(input, output);
    if (request.bitrate && *request.bitrate <= 0) {
        throw AudioError(fmt::format("cannot write {}: a bit rate of {} bit/s; give a positive one, or none for the "
                                     "usual",
                                     output.string(), *request.bitrate));
    }
    if (request.targetLoudness && !(*request.targetLoudness > -70 && *request.targetLoudness <= 0)) {
        throw AudioError(fmt::format("cannot write {}: a target loudness of {} LUFS; give one between -70 and 0, "
                                     "such as -16",
                                     output.string(), *request.targetLoudness));
    }
    PassProgress progress(callback);
    SoundDecoder decoder(input, request.streamIndex);
    if (decoder.channels() < 1 || decoder.sampleRate() < 1) {
        throw AudioError(fmt::format("FFmpeg cannot tell the channels or the sample rate of the sound of {}; "
                                     "convert it to WAV, MP3 or AAC first",
                                     input.string()));
    }
    const int channels = std::min(decoder.channels(), 2);
    const std::int64_t bitrate = request.bitrate.value_or(channels == 1 ? request.monoBitrate : request.stereoBitrate);
    // Opened before any pass, so that an output that cannot be written is
    // refused before the work.
    SoundWriter writer(output, request.encoding, channels, decoder.sampleRate(), bitrate);

    std::string correction;
    if (request.targetLoudness) {
        progress.beginPass(kMeasuringShare);
        correction = measureCorrection(input, request, writer.shape(), progress);
        progress.beginPass(1 - kMeasuringShare);
    } else {
        progress.beginPass(1);
    }

    const FrameTaker write = [&](AVFrame& frame) { writer.write(frame); };
    if (correction.empty()) {
        decodeConverted(decoder, writer.shape(), input, write, progress);
    } else {
        FilterChain corrector(writer.shape(), correction, input.string());
        decodeConverted(
            decoder, writer.shape(), input, [&](AVFrame& frame) { corrector.push(frame, write); }, progress);
        corrector.finish(write);
    }
    writer.finish();
    progress.finish();
}

}  // namespace quillora::audio
