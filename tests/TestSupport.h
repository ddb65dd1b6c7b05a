// Helpers shared by the tests: temporary folders, fixture paths, running
// other people's readers (ffmpeg, ffprobe, mutagen) on what we write.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/Bytes.h"
#include "foundation/UserDefaults.h"

namespace quillora::test {

class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

std::filesystem::path fixture(const std::string& name);
// Copies a fixture into the folder and returns the copy's path.
std::filesystem::path copyFixture(const std::string& name, const TemporaryFolder& folder);

Bytes readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const Bytes& bytes);
void writeText(const std::filesystem::path& path, const std::string& text);

struct CommandResult {
    int status = -1;
    std::string output;  // standard output and standard error together
};
CommandResult runCommand(const std::string& command);
// Runs the quillora program of this build with the arguments (already quoted).
CommandResult runQuillora(const std::string& arguments);
// Runs the command with a pseudo-terminal as its standard input, output and
// error, typing input on it (Ctrl-D, "\x04", at the start of a line ends
// the input); gives up (and kills it) after a minute rather than hang.
CommandResult runInTerminal(const std::string& command, const std::string& input = "");
std::string shellQuote(const std::string& text);

// Installs preferences for the process while it lives, then puts the old back.
class ScopedDefaults {
public:
    explicit ScopedDefaults(const Value& values) : saved_(UserDefaults::standardUserDefaults())
    {
        UserDefaults::setStandardUserDefaults(UserDefaults(values.asDictionary()));
    }
    ~ScopedDefaults() { UserDefaults::setStandardUserDefaults(saved_); }
    ScopedDefaults(const ScopedDefaults&) = delete;
    ScopedDefaults& operator=(const ScopedDefaults&) = delete;

private:
    UserDefaults saved_;
};

}  // namespace quillora::test

namespace quillora::test {

// Read with the bounds-checked tree reader, not with the engine under test.
struct TrackChunks {
    std::uint32_t table = 0;  // 'stco' or 'co64'
    std::vector<std::uint64_t> offsets;
};
std::vector<TrackChunks> chunkOffsetsByTrack(const std::filesystem::path& path);

// "moov/trak[2]/mdia" style paths of every atom, with their sizes, in file order.
std::vector<std::pair<std::string, std::int64_t>> atomSizes(const std::filesystem::path& path);

// The packet hashes of the first audio stream (ffmpeg -c copy -f framemd5), without their times.
std::vector<std::string> audioPacketHashes(const std::filesystem::path& path);

// ffmpeg decodes the whole file; returns what it complained about (empty when nothing).
std::string ffmpegDecodeErrors(const std::filesystem::path& path);

}  // namespace quillora::test
