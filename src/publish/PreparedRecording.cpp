#include "publish/PreparedRecording.h"

#include <fmt/format.h>

#include "audio/AacEncoding.h"
#include "audio/AudioError.h"
#include "foundation/Progress.h"
#include "publish/RecordingShape.h"
#include "toolbox/SoundMovie.h"

namespace quillora::publish {

namespace {

using toolbox::Movie;
using toolbox::Track;

void reportEncoding(double fraction)
{
    reportProgress(ProgressUnit::fraction, static_cast<std::int64_t>(fraction * 1000), 1000);
}

// The chosen sound (the stream FFmpeg numbers streamIndex, or its first sound
// stream) encoded to AAC.
std::filesystem::path encodeSound(const std::filesystem::path& recording, std::optional<int> streamIndex,
                                  const std::filesystem::path& scratchFolder, const RecordingOptions& options)
{
    beginProgressStage(options.loudness ? "Measuring and encoding the sound" : "Encoding the sound");
    const auto encoded = scratchFolder / "recording-encoded.m4a";
    try {
        audio::encodeAac(recording, encoded, {streamIndex, options.bitrate, options.loudness}, reportEncoding);
    } catch (const audio::AudioError& failure) {
        throw RecordingRefused(failure.what());
    }
    return encoded;
}

std::unique_ptr<Movie> openMovie(const std::filesystem::path& path)
{
    std::string error;
    auto movie = Movie::movieWithFile(path, &error);
    if (!movie)
        throw RecordingRefused(fmt::format("The recording made of {} cannot be read: {}", path.string(), error));
    return movie;
}

// The movie's sound track as a movie of its own in the podcast's shape.
std::filesystem::path rewrite(const Track& sound, const std::filesystem::path& scratchFolder)
{
    beginProgressStage("Preparing the recording");
    const auto prepared = scratchFolder / "recording.m4a";
    if (!toolbox::writeSoundMovie(sound, kPodcastTimeScale, prepared)) {
        throw RecordingRefused(fmt::format("The recording's sound track could not be written to {}; check that the "
                                           "scratch folder's disk has room",
                                           prepared.string()));
    }
    return prepared;
}

}  // namespace

PreparedRecording prepareRecording(const std::filesystem::path& recording, const std::filesystem::path& scratchFolder,
                                   const RecordingOptions& options)
{
    const std::string name = recording.string();
    auto plan = planRecording(recording, options);
    PreparedRecording prepared;
    prepared.notes = std::move(plan.notes);
    switch (plan.treatment) {
    case RecordingTreatment::asGiven:
        prepared.path = recording;
        prepared.asGiven = true;
        break;
    case RecordingTreatment::rewritten:
        prepared.path = rewrite(*plan.sound, scratchFolder);
        break;
    case RecordingTreatment::encoded:
        prepared.path = encodeSound(recording, plan.streamIndex, scratchFolder, options);
        break;
    }
    auto movie = std::move(plan.movie);
    if (!prepared.asGiven) {
        // The encoder's file may already be in shape; otherwise its sound is rewritten once more.
        auto made = openMovie(prepared.path);
        if (reasonToRewrite(prepared.path, *made)) {
            const auto encoded = prepared.path;
            prepared.path = rewrite(*made->tracks().front(), scratchFolder);
            if (encoded != prepared.path) std::filesystem::remove(encoded);
            made = openMovie(prepared.path);
        }
        movie = std::move(made);
    }
    prepared.bytes = std::filesystem::file_size(prepared.path);
    if (prepared.bytes > kLargestRecording) {
        throw RecordingRefused(fmt::format("The recording {} comes to {:.1f} MB once prepared; an enhanced podcast "
                                           "stays under 2 GiB: lower the bit rate with --bitrate, or publish the "
                                           "lecture in parts",
                                           name, static_cast<double>(prepared.bytes) / 1e6));
    }
    prepared.seconds = movie->timeScale() > 0 ? static_cast<double>(movie->duration()) / movie->timeScale() : 0;
    return prepared;
}

}  // namespace quillora::publish
