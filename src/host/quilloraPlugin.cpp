#include "host/quilloraPlugin.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "host/RecordingDates.h"
#include "toolbox/Movie.h"

namespace quillora {

namespace {

bool isExecutable(const std::filesystem::path& path)
{
    return std::filesystem::is_regular_file(path) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

void quilloraPlugin::setHostContext(HostContext context)
{
    context_ = std::move(context);
    auto recording = toolbox::Movie::movieWithFile(context_.tempFileRecordingPath);
    if (!recording || recording->timeScale() == 0) return;
    auto dates = context_.startStopRecordingDates.asArray();
    if (!dates || dates->empty()) {
        std::error_code error;
        const auto written = std::filesystem::last_write_time(context_.tempFileRecordingPath, error);
        const Date end = error ? std::chrono::system_clock::now()
                               : std::chrono::time_point_cast<Date::duration>(std::chrono::file_clock::to_sys(written));
        context_.startStopRecordingDates =
            startStopDatesForRecording(end, static_cast<double>(recording->duration()) / recording->timeScale());
    }
    for (const Value* transitions : {&context_.slideTransitions, &context_.screenshotTransitions}) {
        addMissingTransitionDates(*transitions, context_.startStopRecordingDates, recording->timeScale());
    }
}

HostUserInterface& quilloraPlugin::userInterface() const
{
    if (!context_.userInterface) throw std::logic_error("the host gave the plug-in no user interface");
    return *context_.userInterface;
}

std::string quilloraPlugin::firstPresentationNameinWrapper(const std::string& wrapper) const
{
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(wrapper, error)) {
        if (entry.is_regular_file() && !entry.path().filename().string().starts_with(".")) {
            files.push_back(entry.path());
        }
    }
    if (files.empty()) return std::filesystem::path(wrapper).stem().string();
    return std::ranges::min(files).stem().string();
}

void quilloraPlugin::saveQTPanelDidEnd(int returnCode, const std::string& path)
{
    if (returnCode == kSavePanelOKButton) setResultFilePath(path);
}

std::string quilloraPlugin::pathForAuxiliaryExecutable(const std::string& name) const
{
    if (!context_.auxiliaryToolsFolderPath.empty()) {
        const auto shipped = std::filesystem::path(context_.auxiliaryToolsFolderPath) / name;
        if (isExecutable(shipped)) return shipped.string();
    }
    return name;
}

}  // namespace quillora
