// Appending a small child to the movie atom of a large recording whose movie
// atom lies before the media data: the whole media data moves. Prints the
// time as a ratio to `cp` of the same file in the same run, and the peak
// resident memory of this process.
//   tail_move_bench [MiB=1024] [FOLDER=/tmp]
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "QTDataEditor.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"

using namespace quillora;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint32_t kChunkSize = 64 * 1024;

// ftyp, then moov holding one track whose chunk table points at every 64 KiB
// of the media data, then mdat.
void writeRecording(const std::filesystem::path& path, std::uint64_t mediaBytes)
{
    const auto chunks = static_cast<std::uint32_t>(mediaBytes / kChunkSize);
    ByteWriter stco;
    stco.putU32BE(16 + 4 * chunks).putFourCC(atom::stco).putU32BE(0).putU32BE(chunks);
    ByteWriter ftyp;
    ftyp.putU32BE(20).putFourCC(atom::ftyp).putFourCC(fourCC("M4A ")).putU32BE(0).putFourCC(fourCC("mp42"));
    const std::uint32_t stbl = 8 + static_cast<std::uint32_t>(stco.size()), minf = stbl + 8, mdia = minf + 8,
                        trak = mdia + 8, moov = trak + 8;
    const std::uint32_t mdatOffset = static_cast<std::uint32_t>(ftyp.size()) + moov;
    for (std::uint32_t i = 0; i < chunks; ++i) stco.putU32BE(mdatOffset + 8 + i * kChunkSize);

    ByteWriter head;
    head.putBytes(ftyp.bytes());
    head.putU32BE(moov).putFourCC(atom::moov).putU32BE(trak).putFourCC(atom::trak);
    head.putU32BE(mdia).putFourCC(atom::mdia).putU32BE(minf).putFourCC(atom::minf);
    head.putU32BE(stbl).putFourCC(atom::stbl).putBytes(stco.bytes());
    head.putU32BE(static_cast<std::uint32_t>(mediaBytes + 8)).putFourCC(atom::mdat);

    FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) throw std::runtime_error("cannot write " + path.string());
    std::fwrite(head.bytes().data(), 1, head.size(), out);
    Bytes block(4 * 1024 * 1024);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 31 + 7);
    for (std::uint64_t written = 0; written < mediaBytes; written += block.size()) {
        std::fwrite(block.data(), 1, std::min<std::uint64_t>(block.size(), mediaBytes - written), out);
    }
    std::fclose(out);
}

double secondsOf(const std::function<void()>& work)
{
    auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

long peakResidentKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::uint64_t mebibytes = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1024;
    const std::filesystem::path folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path();
    const auto recording = folder / "quillora-bench-recording.m4a";
    const auto copy = folder / "quillora-bench-copy.m4a";

    std::printf("writing a %llu MiB recording (movie atom first) in %s\n", static_cast<unsigned long long>(mebibytes),
                folder.c_str());
    writeRecording(recording, mebibytes * 1024 * 1024);
    const long residentBeforeEdit = peakResidentKiB();

    const std::string cp = "cp " + recording.string() + " " + copy.string();
    // The faster of two copies: the first may still be flushing the
    // freshly written recording.
    double cpSeconds = 1e9;
    for (int run = 0; run < 2; ++run) {
        std::filesystem::remove(copy);
        cpSeconds = std::min(cpSeconds, secondsOf([&] {
                                 if (std::system(cp.c_str()) != 0) std::exit(1);
                             }));
    }
    const double cpSyncSeconds = secondsOf([&] {
        std::filesystem::remove(copy);
        if (std::system((cp + " && sync " + copy.string()).c_str()) != 0) std::exit(1);
    });
    std::filesystem::remove(copy);

    QTDataEditor editor;
    const Bytes child = editor.createAtomOfType(fourCC("free"), Bytes(100, 0));
    const double editSeconds = secondsOf([&] {
        FileHandle file(recording, FileHandle::Mode::Updating);
        std::int32_t position = 0;
        editor.appendChildAtom(child, 20, file, position);
        file.closeFile();
    });
    // The move alone, without the engine's synchronisation to disk.
    const double moveSeconds = secondsOf([&] {
        FileHandle file(recording, FileHandle::Mode::Updating);
        file.insertBytes(20, child);
        file.closeFile();
    });
    std::filesystem::remove(recording);

    std::printf("cp:                 %8.3f s\n", cpSeconds);
    std::printf("cp + sync:          %8.3f s\n", cpSyncSeconds);
    std::printf("append child:       %8.3f s  (ratio to cp %.2f, to cp + sync %.2f)\n", editSeconds,
                editSeconds / cpSeconds, editSeconds / cpSyncSeconds);
    std::printf("tail move alone:    %8.3f s  (ratio to cp %.2f)\n", moveSeconds, moveSeconds / cpSeconds);
    std::printf("peak resident:      %8.1f MiB (%.1f MiB before the edit)\n", peakResidentKiB() / 1024.0,
                residentBeforeEdit / 1024.0);
    return 0;
}
