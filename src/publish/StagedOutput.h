// Files and folders made beside their destination under a temporary name and
// renamed onto it only when complete, so a failed writer leaves nothing
// partial behind and an earlier version stays as it was.
#pragma once

#include <filesystem>
#include <string_view>

namespace quillora::publish {

class StagedFile {
public:
    // Makes an empty temporary file beside destination; throws PublishError
    // when the folder does not take new files.
    explicit StagedFile(std::filesystem::path destination);
    // Removes the temporary unless it was committed.
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    const std::filesystem::path& path() const { return staged_; }
    const std::filesystem::path& destination() const { return destination_; }
    // Renames the temporary onto the destination, replacing a file there.
    void commit();

private:
    std::filesystem::path destination_;
    std::filesystem::path staged_;
    bool committed_ = false;
};

class StagedFolder {
public:
    explicit StagedFolder(std::filesystem::path destination);
    ~StagedFolder();
    StagedFolder(const StagedFolder&) = delete;
    StagedFolder& operator=(const StagedFolder&) = delete;

    const std::filesystem::path& path() const { return staged_; }
    // Puts the temporary folder in the destination's place. An earlier folder
    // there is removed only when it holds nothing but files (an earlier
    // output); one with folders inside is refused before anything moves.
    void commit();

private:
    std::filesystem::path destination_;
    std::filesystem::path staged_;
    bool committed_ = false;
};

// Writes the whole text into the staged file, flushed to disk, for a commit later.
void writeText(const StagedFile& staged, std::string_view text);
// Writes the whole text through a staged file and commits it.
void writeWholeFile(const std::filesystem::path& destination, std::string_view text);

}  // namespace quillora::publish
