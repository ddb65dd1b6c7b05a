// Error records made from a name and a reason, with their texts taken from
// the host's "errorStrings" table. For a reason R the table may hold the
// description (R), a recovery suggestion (R + "-recovery") and up to three
// button titles (R + "-recoveryOption1" ... "-recoveryOption3").
#pragma once

#include <string_view>

#include "foundation/Errors.h"
#include "foundation/Value.h"

namespace quillora {

// The error group names, used as the domains of the records.
struct QuilloraErrors {
    static constexpr std::string_view serverError = "serverError";
    static constexpr std::string_view chapterToolError = "chapterToolError";
    static constexpr std::string_view fileManipulationError = "fileManipulationError";
    static constexpr std::string_view appleEventErrors = "AppleEventErrors";
    static constexpr std::string_view importError = "importError";
    static constexpr std::string_view podcastMigration = "podcastMigration";
    static constexpr std::string_view qtPluginChapFromTransErr = "qtPluginChapFromTransErr";
    static constexpr std::string_view qtPluginImageResizeErr = "qtPluginImageResizeErr";
    static constexpr std::string_view qtPluginMetadataFromValuesErr = "qtPluginMetadataFromValuesErr";
    static constexpr std::string_view qtPluginSourceMovieErr = "qtPluginSourceMovieErr";
    static constexpr std::string_view qtPluginTargetMovieErr = "qtPluginTargetMovieErr";
};

// User-info keys whose value fills the placeholder of a recovery suggestion.
inline constexpr std::string_view kErrorFilePathKey = "filePath";
inline constexpr std::string_view kErrorAddressKey = "address";
inline constexpr std::string_view kErrorImportErrorKey = "importError";
inline constexpr std::string_view kErrorStringKey = "errorStringKey";

// A record with domain name, code 0 and the texts found for reason. The
// user info is only read, to fill the recovery suggestion; it is never
// copied into the record.
ErrorRecord errorWithName(std::string_view name, std::string_view reason, const Value& userInfo);
ErrorRecord errorWithException(const NamedException& exception);

// The slides' pictures could not be resized because none of them could be loaded.
NamedException noSlidePictureException();

}  // namespace quillora
