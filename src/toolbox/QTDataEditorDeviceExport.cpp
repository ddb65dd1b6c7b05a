// The handheld-player movie: the source movie handed to the exporter
// component 'spit' 'M4V ' 'appl', its aperture mode and box adjusted for
// the export, the exporters listed and the exporter's settings loaded.
#include <algorithm>
#include <cstring>

#include "QTDataEditor.h"
#include "foundation/FileHandle.h"
#include "foundation/FileTypeCode.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"
#include "toolbox/Components.h"
#include "toolbox/MovieExporter.h"
#include "toolbox/MovieProperties.h"
#include "toolbox/Toolbox.h"

namespace quillora {

using namespace toolbox;

namespace {

constexpr std::string_view kExportAsiPodMovie = "-[QTDataEditor exportAsiPodMovieToPath:usingCleanApertureMode:]";
constexpr std::string_view kLoadExportSettings = "-[QTDataEditor loadExportSettings]";
// Fixed absolute paths, at the root of the file system as they always were.
constexpr const char* kExporterSettingsPath = "/ExporterSettings_iPod.atoms";
constexpr const char* kTypedMoviePath = "/iPodMovie.m4v";
constexpr std::uint32_t kMovieFileBundleType = fourCC("MFB ");
constexpr std::uint32_t kAnyCreator = 0xFFFFFFFF;
constexpr std::uint32_t kMovieExportFromFilesFlags = canMovieExportFiles;
constexpr ComponentDescription kHandheldPlayerExporter{MovieExportType, kHandheldPlayerFileType, kAppleManufacturer, 0,
                                                       0};

// The file's bytes in a new cleared handle of its length; empty when it
// cannot be read.
Handle readIntoHandle(const std::filesystem::path& path)
{
    Handle handle = NewHandleClear(0);
    try {
        handle->bytes = readWholeFile(path);
    } catch (const std::exception&) {
        // A missing or unreadable settings file is an empty container.
    }
    return handle;
}

}  // namespace

void QTDataEditor::exportToIPod(const std::filesystem::path& destination)
{
    ComponentInstance exporter;
    const Component component = FindNextComponent(0, kHandheldPlayerExporter);
    if (!component || OpenAComponent(component, &exporter) != noErr || !exporter) {
        if (exporter) CloseComponent(exporter);
        return;
    }
    Handle settings = readIntoHandle(kExporterSettingsPath);
    if (MovieExportSetSettingsFromAtomContainer(exporter, settings) == noErr) {
        std::unique_ptr<DataReference> reference;
        std::uint32_t referenceType = 0;
        if (QTNewDataReferenceFromFullPathCFString(destination.string(), -1, 0, reference, referenceType) == noErr) {
            ConvertMovieToDataRef(sourceMovie_, nullptr, reference.get(), referenceType, kHandheldPlayerFileType,
                                  kAnyCreator, createMovieFileDeleteCurFile, exporter);
        }
        DisposeHandle(settings);
    }
    CloseComponent(exporter);
}

std::int8_t QTDataEditor::exportAsiPodMovieToPath(const std::string& path, bool usingCleanApertureMode)
{
    logMethod(kExportAsiPodMovie, "Exporting as iPod Movie");
    Track* sound = sourceMovie_ ? sourceMovie_->trackOfMediaType(fourCC("soun")) : nullptr;
    std::uint32_t previousMode = 0;
    ComponentInstance exporter;
    std::unique_ptr<DataReference> reference;
    std::uint32_t referenceType = 0;
    OSErr status = QTNewDataReferenceFromFullPathCFString(path, -1, 0, reference, referenceType);
    logMethod(kExportAsiPodMovie, "Status QTNewDataReferenceFromFullPathCFString {}", status);
    if (status == noErr) {
        if (usingCleanApertureMode) setMovieCleanApertureMode(&previousMode);
        Rect box;
        GetMovieBox(sourceMovie_, box);
        status = GetMoviesError();
        if (status == noErr) {
            const Component component = FindNextComponent(0, kHandheldPlayerExporter);
            status = component ? OpenAComponent(component, &exporter) : badComponentType;
            logMethod(kExportAsiPodMovie, "Status opening component {}", status);
            if (exporter) {
                status = static_cast<OSErr>(MovieExportToDataRef(exporter, reference.get(), referenceType, sourceMovie_,
                                                                 sound, 0, GetMovieDuration(sourceMovie_)));
                logMethod(kExportAsiPodMovie, "Status after export {}", status);
                SetMovieBox(sourceMovie_, box);
            }
        }
    }
    if (previousMode != 0) {
        QTSetMovieProperty(sourceMovie_, kQTPropertyClass_Visual, kQTVisualPropertyID_ApertureMode, 4, &previousMode);
    }
    reference.reset();
    if (exporter) CloseComponent(exporter);
    setFileTypeCode(kTypedMoviePath, kMovieFileBundleType);
    return static_cast<std::int8_t>(status & 0xFF);
}

bool QTDataEditor::setMovieCleanApertureMode(std::uint32_t* previousMode)
{
    std::uint8_t hasDimensions = 0;
    if (QTGetMovieProperty(sourceMovie_, kQTPropertyClass_Visual, kQTVisualPropertyID_HasApertureModeDimensions, 1,
                           &hasDimensions, nullptr) != noErr) {
        return true;
    }
    if (!hasDimensions && GenerateMovieApertureModeDimensions(sourceMovie_) != noErr) return true;
    std::uint32_t mode = 0;
    if (QTGetMovieProperty(sourceMovie_, kQTPropertyClass_Visual, kQTVisualPropertyID_ApertureMode, 4, &mode,
                           nullptr) != noErr) {
        return true;
    }
    if (previousMode) *previousMode = mode;
    const std::uint32_t clean = kQTApertureMode_CleanAperture;
    QTSetMovieProperty(sourceMovie_, kQTPropertyClass_Visual, kQTVisualPropertyID_ApertureMode, 4, &clean);
    return true;
}

bool QTDataEditor::setExportMovieBoxToWidth(float width, float height)
{
    Rect box;
    GetMovieBox(sourceMovie_, box);
    OffsetRect(box, static_cast<std::int16_t>(-box.left), static_cast<std::int16_t>(-box.top));
    const float boxWidth = box.right;
    const float boxHeight = box.bottom;
    if (boxWidth >= 640 && width >= 640) return false;
    if (boxHeight >= 480 && height >= 480) return false;
    // A movie without pictures has no shape to keep.
    if (boxWidth <= 0 || boxHeight <= 0 || width <= 0 || height <= 0) return false;
    float newWidth = width;
    float newHeight = height;
    if (boxWidth / boxHeight > width / height) {
        newHeight = boxHeight * width / boxWidth;
    } else {
        newWidth = boxWidth * height / boxHeight;
    }
    SetRect(box, 0, 0, static_cast<std::int16_t>(newWidth), static_cast<std::int16_t>(newHeight));
    SetMovieBox(sourceMovie_, box);
    return true;
}

Value QTDataEditor::availableComponents()
{
    Value components = Value::array();
    const ComponentDescription looking{MovieExportType, 0, 0, kMovieExportFromFilesFlags, kMovieExportFromFilesFlags};
    for (Component component = FindNextComponent(0, looking); component != 0;
         component = FindNextComponent(component, looking)) {
        Handle name = NewHandle(4);
        ComponentDescription description;
        if (GetComponentInfo(component, &description, name, nullptr, nullptr) == noErr && !name->bytes.empty()) {
            const std::size_t length = std::min<std::size_t>(name->bytes[0], name->bytes.size() - 1);
            Bytes reference(4);
            std::memcpy(reference.data(), &component, 4);
            components.asArray()->push_back(Value::dictionary(
                {{"name", std::string(name->bytes.begin() + 1, name->bytes.begin() + 1 + static_cast<long>(length))},
                 {"component", std::move(reference)},
                 {"type", static_cast<std::int64_t>(description.componentType)},
                 {"subtype", static_cast<std::int64_t>(description.componentSubType)},
                 {"manufacturer", static_cast<std::int64_t>(description.componentManufacturer)}}));
        }
        DisposeHandle(name);
    }
    return components;
}

std::optional<Bytes> QTDataEditor::loadExportSettings()
{
    ComponentInstance exporter = OpenComponent(FindNextComponent(0, kHandheldPlayerExporter));
    bool canceled = false;
    ComponentResult status =
        MovieExportDoUserDialog(exporter, sourceMovie_, nullptr, 0, GetMovieDuration(sourceMovie_), &canceled);
    if (status != noErr) {
        logMethod(kLoadExportSettings, "Got error {} when calling MovieExportDoUserDialog", status);
        if (exporter) CloseComponent(exporter);
        return std::nullopt;
    }
    QTAtomContainer settings;
    status = MovieExportGetSettingsAsAtomContainer(exporter, settings);
    if (status != noErr) {
        logMethod(kLoadExportSettings, "Got error {} when calling MovieExportGetSettingsAsAtomContainer", status);
        CloseComponent(exporter);
        return std::nullopt;
    }
    Bytes bytes(settings->bytes.begin(), settings->bytes.begin() + static_cast<long>(GetHandleSize(settings)));
    QTDisposeAtomContainer(settings);
    CloseComponent(exporter);
    return bytes;
}

}  // namespace quillora
