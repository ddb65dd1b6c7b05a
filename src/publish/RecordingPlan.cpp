#include "publish/RecordingPlan.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <limits>

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

// What the reader found wrong with the sound track: a recording cut short,
// samples past the end of the file, tables that disagree with each other.
void checkSamples(const Track& sound, const std::string& name)
{
    const auto problems = sound.media->problems();
    if (problems.empty()) return;
    throw RecordingRefused(fmt::format("The recording {} is damaged: {}; copy it again from the recorder, or "
                                       "export it again from the program that made it",
                                       name, fmt::join(problems, "; ")));
}

// The sound copied into the prepared recording must fit its 32-bit sizes
// and times (the movie's in 1/600 s, the media's in its own time scale).
void checkSoundFits(const Track& sound, const Movie& movie, const std::string& name)
{
    std::uintmax_t bytes = 0;
    sound.media->forEachSample([&bytes](const toolbox::Sample& sample) { bytes += sample.size; });
    if (bytes > kLargestRecording) {
        throw RecordingRefused(fmt::format("The recording {} holds {:.1f} MB of sound; an enhanced podcast stays "
                                           "under 2 GiB: publish the lecture in parts",
                                           name, static_cast<double>(bytes) / 1e6));
    }
    constexpr double kLargestTime = std::numeric_limits<std::uint32_t>::max();
    const double seconds = static_cast<double>(sound.duration()) / static_cast<double>(movie.timeScale());
    const double mediaTime = static_cast<double>(sound.media->duration());
    if (seconds * kPodcastTimeScale > kLargestTime || mediaTime > kLargestTime) {
        const double longest = std::min(kLargestTime / kPodcastTimeScale, kLargestTime / sound.media->timeScale);
        throw RecordingRefused(fmt::format("The recording {} lasts {:.1f} hours; an enhanced podcast's times count "
                                           "{:.1f} hours at most at its sound's time scale: publish the lecture in "
                                           "parts",
                                           name, seconds / 3600, longest / 3600));
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
        checkSoundFits(*plan.sound, movie, name);
        plan.treatment =
            reasonToRewrite(recording, movie) ? RecordingTreatment::rewritten : RecordingTreatment::asGiven;
    }
    return plan;
}

}  // namespace quillora::publish
