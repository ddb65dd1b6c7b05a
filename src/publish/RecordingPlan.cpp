#include "publish/RecordingPlan.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "foundation/FourCC.h"
#include "publish/RecordingShape.h"

namespace quillora::publish {

namespace {

using toolbox::Movie;
using toolbox::Track;

std::string trackKind(const Track& track, const Movie& movie)
{
    switch (track.mediaType()) {
    case fourCC("soun"):
        return "sound";
    case fourCC("vide"):
        return "video";
    case fourCC("text"):
    case fourCC("sbtl"):
        for (const auto& other : movie.tracks()) {
            for (const auto& [type, ids] : other->references) {
                if (type == fourCC("chap") && std::find(ids.begin(), ids.end(), track.trackID) != ids.end()) {
                    return "chapter";
                }
            }
        }
        return "text";
    default:
        return "other";
    }
}

const Track& chooseSoundTrack(const Movie& movie, const RecordingOptions& options, const std::string& name)
{
    std::vector<const Track*> sounds;
    for (const auto& track : movie.tracks()) {
        if (track->mediaType() == fourCC("soun") && track->media) sounds.push_back(track.get());
    }
    if (sounds.empty()) {
        throw RecordingRefused(fmt::format("The recording {} has no sound track: give the file the recorder made "
                                           "with the lecture's sound",
                                           name));
    }
    if (options.audioTrack) {
        for (const Track* sound : sounds) {
            if (sound->trackID == *options.audioTrack) return *sound;
        }
        std::vector<std::uint32_t> ids;
        for (const Track* sound : sounds) ids.push_back(sound->trackID);
        throw RecordingRefused(fmt::format("The recording {} has no sound track with ID {}; its sound tracks have "
                                           "the IDs {} (quillora inspect lists them)",
                                           name, *options.audioTrack, fmt::join(ids, ", ")));
    }
    const auto enabled = std::find_if(sounds.begin(), sounds.end(), [](const Track* track) { return track->enabled; });
    const Track* chosen = enabled != sounds.end() ? *enabled : sounds.front();
    return *chosen;
}

// Samples the file does not hold: a recording cut short, or tables that
// point past its end.
void checkSamples(const Track& sound, const std::string& name)
{
    const auto& samples = sound.media->samples();
    if (samples.empty()) {
        throw RecordingRefused(fmt::format("The recording {} is damaged: its sound track has no samples; copy it "
                                           "again from the recorder",
                                           name));
    }
    std::error_code error;
    const auto length = std::filesystem::file_size(sound.media->dataFile, error);
    if (error) return;
    const auto past = std::count_if(samples.begin(), samples.end(), [length](const toolbox::Sample& sample) {
        return !sample.held && sample.offset + sample.size > length;
    });
    if (past > 0) {
        throw RecordingRefused(fmt::format("The recording {} is damaged: {} of its {} sound samples lie past the end "
                                           "of the file, as when a copy or a recording is cut short; copy it again "
                                           "from the recorder",
                                           name, past, samples.size()));
    }
}

}  // namespace

RecordingPlan planRecording(const std::filesystem::path& recording, const RecordingOptions& options)
{
    const std::string name = recording.string();
    if (!std::filesystem::is_regular_file(recording)) {
        throw RecordingRefused(fmt::format("The recording {} does not exist", name));
    }
    RecordingPlan plan;
    plan.movie = Movie::movieWithFile(recording);
    const std::string file = recording.filename().string();
    if (!plan.movie) {
        plan.notes.push_back(fmt::format("the sound of {} is encoded to AAC", file));
        return plan;
    }
    const Movie& movie = *plan.movie;
    plan.sound = &chooseSoundTrack(movie, options, name);
    for (const auto& track : movie.tracks()) {
        if (track.get() == plan.sound) continue;
        plan.notes.push_back(fmt::format("the {} track of {} is not published", trackKind(*track, movie), file));
    }
    checkSamples(*plan.sound, name);
    if (options.loudness || !isCopiedSound(*plan.sound->media)) {
        const auto index = std::find_if(movie.tracks().begin(), movie.tracks().end(),
                                        [&](const auto& track) { return track.get() == plan.sound; }) -
                           movie.tracks().begin();
        plan.streamIndex = static_cast<int>(index);
        plan.treatment = RecordingTreatment::encoded;
        plan.notes.push_back(fmt::format("the sound of {} is encoded to AAC", file));
    } else {
        plan.treatment =
            reasonToRewrite(recording, movie) ? RecordingTreatment::rewritten : RecordingTreatment::asGiven;
    }
    return plan;
}

}  // namespace quillora::publish
