#include "publish/StagedOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <span>

#include <fmt/format.h>

#include "foundation/FileHandle.h"
#include "publish/PublishError.h"

namespace quillora::publish {

namespace {

// A name no other writer in this or another process picks: the process, a
// counter, and retries when a leftover holds the name all the same.
template <typename Make> std::filesystem::path makeBeside(const std::filesystem::path& destination, Make make)
{
    static std::atomic<unsigned> counter{0};
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto candidate = destination;
        candidate += fmt::format(".partial-{}-{}", ::getpid(), counter++);
        if (make(candidate)) return candidate;
        if (errno != EEXIST) {
            throw PublishError(fmt::format("Cannot write {}: {}. Check that its folder exists and takes new files.",
                                           destination.string(), std::strerror(errno)));
        }
    }
    throw PublishError(fmt::format("Cannot write {}: too many leftover temporary files beside it; remove them.",
                                   destination.string()));
}

[[noreturn]] void failToReplace(const std::filesystem::path& destination, const std::error_code& error)
{
    throw PublishError(fmt::format("Cannot put {} in place: {}. Check that nothing else uses that name.",
                                   destination.string(), error.message()));
}

}  // namespace

StagedFile::StagedFile(std::filesystem::path destination) : destination_(std::move(destination))
{
    staged_ = makeBeside(destination_, [](const std::filesystem::path& candidate) {
        const int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) return false;
        ::close(fd);
        return true;
    });
}

StagedFile::~StagedFile()
{
    std::error_code ignored;
    if (!committed_) std::filesystem::remove(staged_, ignored);
}

void StagedFile::commit()
{
    std::error_code error;
    std::filesystem::rename(staged_, destination_, error);
    if (error) failToReplace(destination_, error);
    committed_ = true;
}

StagedFolder::StagedFolder(std::filesystem::path destination) : destination_(std::move(destination))
{
    staged_ = makeBeside(destination_,
                         [](const std::filesystem::path& candidate) { return ::mkdir(candidate.c_str(), 0777) == 0; });
}

StagedFolder::~StagedFolder()
{
    std::error_code ignored;
    if (!committed_) std::filesystem::remove_all(staged_, ignored);
}

void StagedFolder::commit()
{
    std::error_code error;
    const auto status = std::filesystem::symlink_status(destination_, error);
    if (std::filesystem::is_directory(status)) {
        for (const auto& entry : std::filesystem::directory_iterator(destination_, error)) {
            if (!entry.is_regular_file()) {
                throw PublishError(fmt::format("Cannot replace the folder {}: it holds more than an earlier "
                                               "output's files ({}). Move it away or choose another name.",
                                               destination_.string(), entry.path().filename().string()));
            }
        }
        if (error) failToReplace(destination_, error);
        // The earlier folder steps aside first, so that the new one arrives in one rename.
        StagedFolder earlier(destination_);
        std::filesystem::rename(destination_, earlier.staged_ / "earlier", error);
        if (error) failToReplace(destination_, error);
        std::filesystem::rename(staged_, destination_, error);
        if (error) {
            std::error_code ignored;
            std::filesystem::rename(earlier.staged_ / "earlier", destination_, ignored);
            failToReplace(destination_, error);
        }
    } else {
        std::filesystem::rename(staged_, destination_, error);
        if (error) failToReplace(destination_, error);
    }
    committed_ = true;
}

void writeText(const StagedFile& staged, std::string_view text)
{
    try {
        auto file = FileHandle::forUpdating(staged.path());
        file.writeData(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
        file.synchronizeFile();
        file.closeFile();
    } catch (const FileError& error) {
        throw PublishError(fmt::format("Cannot write {}: {}. Check that the disk has room.",
                                       staged.destination().string(), error.code().message()));
    }
}

void writeWholeFile(const std::filesystem::path& destination, std::string_view text)
{
    StagedFile staged(destination);
    writeText(staged, text);
    staged.commit();
}

}  // namespace quillora::publish
