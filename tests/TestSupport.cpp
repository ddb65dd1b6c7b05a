#include "TestSupport.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace quillora::test {

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "quillora-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary folder");
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path fixture(const std::string& name)
{
    return std::filesystem::path(QUILLORA_FIXTURES) / name;
}

std::filesystem::path copyFixture(const std::string& name, const TemporaryFolder& folder)
{
    auto destination = folder.path() / name;
    std::filesystem::copy_file(fixture(name), destination, std::filesystem::copy_options::overwrite_existing);
    return destination;
}

Bytes readFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path.string());
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::filesystem::path& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

void writeText(const std::filesystem::path& path, const std::string& text)
{
    writeFile(path, Bytes(text.begin(), text.end()));
}

std::string shellQuote(const std::string& text)
{
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

CommandResult runCommand(const std::string& command)
{
    CommandResult result;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return result;
    std::array<char, 4096> buffer;
    std::size_t n;
    while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.output.append(buffer.data(), n);
    int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

CommandResult runQuillora(const std::string& arguments)
{
    return runCommand(shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora") + " " + arguments);
}

CommandResult runInTerminal(const std::string& command, const std::string& input)
{
    CommandResult result;
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0) return result;
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    // Typed ahead: the terminal keeps each line until the program reads it.
    if (!input.empty() && write(terminal, input.data(), input.size()) < 0) result.output = "(input not typed)";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    char buffer[4096];
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd ready{terminal, POLLIN, 0};
        if (poll(&ready, 1, 1000) <= 0) continue;
        const ssize_t n = read(terminal, buffer, sizeof buffer);
        if (n <= 0) break;  // EIO once the program has closed its side
        result.output.append(buffer, static_cast<std::size_t>(n));
    }
    kill(child, SIGKILL);  // nothing left to end when it finished in time
    int status = 0;
    waitpid(child, &status, 0);
    close(terminal);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

}  // namespace quillora::test

#include <fmt/format.h>

#include <map>

#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"

namespace quillora::test {

std::vector<TrackChunks> chunkOffsetsByTrack(const std::filesystem::path& path)
{
    const Bytes bytes = readFile(path);
    auto tree = toolbox::readAtomTree(path);
    std::vector<TrackChunks> tracks;
    auto moov = tree.find({atom::moov});
    if (!moov) return tracks;
    for (const auto& trak : tree.childrenOf(*moov)) {
        if (trak.type != atom::trak) continue;
        TrackChunks chunks;
        for (const auto& node : tree.atoms) {
            bool inside = node.offset > trak.offset && node.offset < trak.offset + trak.size;
            if (!inside || (node.type != atom::stco && node.type != atom::co64)) continue;
            chunks.table = node.type;
            const std::uint8_t* p = bytes.data() + node.offset;
            const std::uint32_t count = readU32BE(p + 12);
            for (std::uint32_t i = 0; i < count; ++i) {
                if (node.type == atom::stco) {
                    chunks.offsets.push_back(readU32BE(p + 16 + 4 * i));
                } else {
                    chunks.offsets.push_back((std::uint64_t{readU32BE(p + 16 + 8 * i)} << 32) |
                                             readU32BE(p + 20 + 8 * i));
                }
            }
        }
        tracks.push_back(chunks);
    }
    return tracks;
}

std::vector<std::pair<std::string, std::int64_t>> atomSizes(const std::filesystem::path& path)
{
    auto tree = toolbox::readAtomTree(path);
    std::vector<std::pair<std::string, std::int64_t>> sizes;
    std::vector<std::string> stack;
    std::map<std::string, int> seen;
    for (const auto& node : tree.atoms) {
        stack.resize(static_cast<std::size_t>(node.depth));
        std::string parent;
        for (const auto& part : stack) parent += part + "/";
        std::string name = stringFromFourCC(node.type);
        int index = ++seen[parent + name];
        // Not "[" + std::to_string(index): GCC 12 at -O3 warns falsely (-Wrestrict) on that insertion.
        std::string part = index > 1 ? fmt::format("{}[{}]", name, index) : name;
        stack.push_back(part);
        sizes.emplace_back(parent + part, node.size);
    }
    return sizes;
}

// The packet hashes of the first audio stream, without their times.
std::vector<std::string> audioPacketHashes(const std::filesystem::path& path)
{
    std::istringstream lines(
        runCommand("ffmpeg -nostdin -v error -i " + shellQuote(path.string()) + " -map 0:a:0 -c copy -f framemd5 -")
            .output);
    std::vector<std::string> hashes;
    for (std::string line; std::getline(lines, line);) {
        // Packet lines start with the stream index; others are comments and complaints.
        if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0])))
            hashes.push_back(line.substr(line.rfind(',') + 1));
    }
    return hashes;
}

std::string ffmpegDecodeErrors(const std::filesystem::path& path)
{
    // Every audio and picture stream; text tracks have nothing to decode.
    auto result =
        runCommand("ffmpeg -nostdin -v error -i " + shellQuote(path.string()) + " -map 0:a -map 0:v? -f null -");
    if (result.status != 0 && result.output.empty())
        return "ffmpeg exited with status " + std::to_string(result.status);
    return result.output;
}

}  // namespace quillora::test
