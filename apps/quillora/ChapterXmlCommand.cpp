#include "ChapterXmlCommand.h"

#include <fmt/format.h>

#include <stdlib.h>

#include <ostream>

#include "ExitStatus.h"
#include "ExportInputs.h"
#include "InputChecks.h"
#include "QuickTimePlugin/QuickTimePlugin.h"
#include "RecordingPreparation.h"

namespace quillora::app {

namespace {

// Transition records with their pictures named from the file's folder. A
// missing picture is no error here: the document leaves that slide out and
// says so.
Value readChapterTransitions(const std::filesystem::path& path)
{
    Value transitions = readInputFile(path, "The transitions file");
    auto records = transitions.asArray();
    if (!records) throw InputError(fmt::format("{}: expected an array of transitions", path.string()));
    for (std::size_t i = 0; i < records->size(); ++i) {
        auto record = (*records)[i].asDictionary();
        if (!record || !(*records)[i].integerForKey("timeValue")) {
            throw InputError(fmt::format("{}: transition {} has no \"timeValue\"", path.string(), i + 1));
        }
        if (auto image = (*records)[i].stringForKey("imagePath");
            image && std::filesystem::path(*image).is_relative()) {
            record->set("imagePath",
                        std::filesystem::absolute(path.parent_path() / *image).lexically_normal().string());
        }
    }
    return transitions;
}

}  // namespace

int runChapterXmlCommand(const ChapterXmlOptions& options, std::ostream& out, std::ostream& err)
{
    SilentUserInterface userInterface;  // the document is made without any window
    HostContext context;
    // The times are counted on the recording as an export prepares it.
    std::string scratch = (std::filesystem::temp_directory_path() / "quillora-XXXXXX").string();
    if (!mkdtemp(scratch.data())) {
        err << "quillora: no scratch folder can be made in the temporary folder\n";
        return kExitFailed;
    }
    struct RemovedAtEnd {
        std::filesystem::path folder;
        ~RemovedAtEnd()
        {
            std::error_code ignored;
            std::filesystem::remove_all(folder, ignored);
        }
    } removed{scratch};
    try {
        const auto recording = prepareRecordingInScratch(options.recording, {}, scratch, err, false);
        checkRecording(recording, false);
        context.tempFileRecordingPath = recording.string();
        context.slideTransitions = readChapterTransitions(options.transitions);
        UserDefaults::setStandardUserDefaults(options.defaults ? readDefaults(*options.defaults) : UserDefaults());
    } catch (const InputError& failure) {
        err << "quillora: " << failure.what() << "\n";
        return kExitRefused;
    }
    context.userInterface = &userInterface;
    QuickTimePlugin plugin(std::move(context));
    plugin.generateXML()->save(out, "    ", pugi::format_default, pugi::encoding_utf8);
    return kExitSuccess;
}

}  // namespace quillora::app
