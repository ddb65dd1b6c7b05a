// The one reader on recordings as recorders write them (ffmpeg's layouts,
// fragments, 64-bit sizes and offsets, tags in the user data) and on damaged
// ones: every sound sample where ffprobe finds it, or the damage reported.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "TestSupport.h"
#include "foundation/FourCC.h"
#include "toolbox/Movie.h"

namespace quillora {
namespace {

using test::runCommand;
using test::shellQuote;

// MODE IN OUT: lays out an ffmpeg recording as other writers do, or damages
// it. The chunk offsets follow the media data wherever it moves.
constexpr const char* kRewrite = R"(
import struct, sys
mode, src, dst = sys.argv[1:4]
data = open(src, 'rb').read()
CONTAINERS = {b'moov', b'trak', b'mdia', b'minf', b'stbl', b'udta'}
def parse(a, b):
    atoms = []
    while a + 8 <= b:
        size, kind = struct.unpack('>I4s', data[a:a + 8]); head = 8
        if size == 1: size = struct.unpack('>Q', data[a + 8:a + 16])[0]; head = 16
        if size == 0: size = b - a
        if kind == b'mdat': parse.mdat = a + head
        atoms.append([kind, parse(a + head, a + size) if kind in CONTAINERS else data[a + head:a + size]])
        a += size
    return atoms
def build(atoms, at=0):
    out = b''
    for kind, body in atoms:
        head = 16 if mode == 'mdat64' and kind == b'mdat' else 8
        if kind == b'mdat': build.mdat = at + len(out) + head
        payload = build(body, at + len(out) + head) if isinstance(body, list) else body
        size = len(payload) + head
        out += (struct.pack('>I4sQ', 1, kind, size) if head == 16 else struct.pack('>I4s', size, kind)) + payload
    return out
def each(atoms, kind):
    for atom in atoms:
        if atom[0] == kind: yield atom
        if isinstance(atom[1], list): yield from each(atom[1], kind)
top = parse(0, len(data))
for atom in each(top, b'mdhd'):
    if mode.startswith('timescale='):
        at = 20 if atom[1][0] == 1 else 12
        atom[1] = atom[1][:at] + struct.pack('>I', int(mode[10:], 0)) + atom[1][at + 4:]
for atom in each(top, b'meta'):
    if mode == 'qtmeta': atom[1] = atom[1][4:]
for atom in each(top, b'stts'):
    if mode == 'stts': atom[1] = atom[1][:8] + struct.pack('>I', struct.unpack('>I', atom[1][8:12])[0] + 3) + atom[1][12:]
for atom in each(top, b'stco'):
    if mode == 'co64':
        count = struct.unpack('>I', atom[1][4:8])[0]
        atom[:] = [b'co64', atom[1][:8] + struct.pack('>%dQ' % count, *struct.unpack('>%dI' % count, atom[1][8:]))]
build(top); moved = build.mdat - parse.mdat
for kind, width in ((b'stco', 'I'), (b'co64', 'Q')):
    for atom in each(top, kind):
        count = struct.unpack('>I', atom[1][4:8])[0]
        offsets = struct.unpack('>%d%s' % (count, width), atom[1][8:])
        atom[1] = atom[1][:8] + struct.pack('>%d%s' % (count, width), *[o + moved for o in offsets])
out = bytearray(build(top))
if mode == 'mdat0': out[build.mdat - 8:build.mdat - 4] = bytes(4)
if mode == 'truncate': out = out[:len(out) * 2 // 3]
if mode == 'cut-index': out = out[:-8]
open(dst, 'wb').write(out)
)";

struct Packet {
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
    friend bool operator==(const Packet&, const Packet&) = default;
};

std::vector<Packet> ffprobePackets(const std::filesystem::path& path)
{
    std::istringstream lines(runCommand("ffprobe -v quiet -select_streams a:0 -show_entries packet=size,pos -of "
                                        "csv=p=0 " +
                                        shellQuote(path.string()))
                                 .output);
    std::vector<Packet> packets;
    for (std::string line; std::getline(lines, line);) {
        const auto comma = line.find(',');
        if (comma == std::string::npos) continue;
        packets.push_back({std::stoull(line.substr(comma + 1)), static_cast<std::uint32_t>(std::stoul(line))});
    }
    return packets;
}

double ffprobeSeconds(const std::filesystem::path& path)
{
    const auto probe =
        runCommand("ffprobe -v quiet -show_entries format=duration -of default=nw=1:nk=1 " + shellQuote(path.string()));
    return std::stod(probe.output);
}

// The movie's own tags as ffprobe lists them: key=value lines.
std::map<std::string, std::string> modelTags(const toolbox::Movie& movie)
{
    std::map<std::string, std::string> tags;
    for (const auto& item : movie.metaData()) {
        tags[std::string(item.key.begin(), item.key.end())] = std::string(item.value.begin(), item.value.end());
    }
    return tags;
}

struct Recording {
    const char* name;
    const char* making;   // ffmpeg options besides a 5 s sine in AAC
    const char* rewrite;  // how the file is then rewritten, or ""
    const char* damage;   // a word of the problem reported, or "" for a sound recording
    int inspected = 0;    // inspect's exit status on a sound recording: 2 names a harmless flaw
};

TEST(MovieReader, ReadsEverySoundSampleWhereFfprobeFindsItAndReportsDamage)
{
    constexpr const char* kTagged = "-movflags use_metadata_tags -metadata title=Optics -metadata com.example.room=H1";
    constexpr const char* kFragments = "-frag_duration 1500000";
    const Recording recordings[] = {
        {"timescale-1000.m4a", "", "", ""},
        {"timescale-44100.m4a", "-movie_timescale 44100", "", ""},
        // More sizes than the reader takes from the file at once.
        {"long.m4a", "-af apad=whole_dur=400", "", ""},
        {"fragmented.m4a", "-movflags frag_keyframe+empty_moov", "", ""},
        {"fragment-per-packet.m4a", "-movflags frag_every_frame+empty_moov+default_base_moof", "", ""},
        {"table-then-fragments.m4a", kFragments, "", ""},
        {"screen-fragmented.mp4",
         "-f lavfi -i testsrc=size=160x120:rate=10:duration=5 -map 1 -map 0 -c:v mpeg4 -g 10 "
         "-movflags frag_keyframe+empty_moov+omit_tfhd_offset",
         "", ""},
        {"co64.m4a", "", "co64", ""},
        {"mdat64.m4a", "", "mdat64", ""},
        {"mdat-to-end.m4a", "-movflags +faststart", "mdat0", ""},
        {"tags.mov", kTagged, "", ""},
        {"quicktime-meta.mov", kTagged, "qtmeta", ""},
        {"cut-short.m4a", "-movflags +faststart", "truncate", "past the end"},
        {"cut-in-fragments.m4a", kFragments, "truncate", "cut short"},
        {"index-cut-short.m4a", kFragments, "cut-index", "", 2},
        {"tables-disagree.m4a", "", "stts", "time table"},
        {"huge-timescale.m4a", "", "timescale=0x90000000", "time scale"},
        {"zero-timescale.m4a", "", "timescale=0", "time scale"},
    };
    test::TemporaryFolder folder;
    std::map<std::string, std::filesystem::path> made;
    std::map<std::filesystem::path, std::vector<std::string>> madePackets;
    for (const auto& recording : recordings) {
        SCOPED_TRACE(recording.name);
        const auto path = folder.path() / recording.name;
        const auto extension = path.extension().string();
        auto& base = made[std::string(recording.making) + extension];
        if (base.empty()) {
            base = folder.path() / ("made-" + std::to_string(made.size()) + extension);
            const auto done =
                runCommand("ffmpeg -nostdin -v error -f lavfi -i sine=frequency=440:duration=5 " +
                           std::string(recording.making) + " -c:a aac -b:a 64k " + shellQuote(base.string()));
            ASSERT_EQ(done.status, 0) << done.output;
        }
        if (*recording.rewrite) {
            const auto done = runCommand("/usr/bin/python3 -c " + shellQuote(kRewrite) + " " + recording.rewrite + " " +
                                         shellQuote(base.string()) + " " + shellQuote(path.string()));
            ASSERT_EQ(done.status, 0) << done.output;
        } else {
            std::filesystem::copy_file(base, path);
        }

        std::string error;
        const auto movie = toolbox::Movie::movieWithFile(path, &error);
        ASSERT_TRUE(movie) << error;
        const toolbox::Track* sound = movie->trackOfMediaType(fourCC("soun"));
        ASSERT_TRUE(sound);
        const auto problems = sound->media->problems();
        const auto inspected = test::runQuillora("inspect " + shellQuote(path.string()));
        const auto device = folder.path() / (path.stem().string() + ".m4v");
        const auto exported =
            test::runQuillora("export-device " + shellQuote(path.string()) + " " + shellQuote(device.string()));
        if (*recording.damage) {
            std::string reported;
            for (const auto& problem : problems) reported += problem + "\n";
            EXPECT_NE(reported.find(recording.damage), std::string::npos) << reported;
            EXPECT_EQ(inspected.status, 2) << inspected.output;
            EXPECT_NE(inspected.output.find(recording.damage), std::string::npos) << inspected.output;
            EXPECT_EQ(exported.status, 2) << exported.output;
            EXPECT_NE(exported.output.find("is damaged"), std::string::npos) << exported.output;
            continue;
        }
        EXPECT_TRUE(problems.empty()) << problems.front();
        // Gone through from the file, then held.
        std::vector<Packet> streamed, held;
        sound->media->forEachSample([&](const toolbox::Sample& sample) {
            streamed.push_back({sample.offset, sample.size});
        });
        for (const auto& sample : sound->media->samples()) held.push_back({sample.offset, sample.size});
        EXPECT_EQ(streamed, ffprobePackets(path));
        EXPECT_EQ(held, streamed);
        const double seconds = static_cast<double>(sound->duration()) / movie->timeScale();
        EXPECT_NEAR(seconds, ffprobeSeconds(path), 1024.0 / 44100);
        EXPECT_EQ(inspected.status, recording.inspected) << inspected.output;
        ASSERT_EQ(exported.status, 0) << exported.output;
        // The packets of the recording as ffmpeg made it, before any rewriting.
        if (!madePackets.count(base)) madePackets[base] = test::audioPacketHashes(base);
        EXPECT_EQ(test::audioPacketHashes(device), madePackets[base]);
        if (std::string_view(recording.making) == kTagged) {
            const auto tags = modelTags(*movie);
            for (const char* key : {"title", "com.example.room"}) {
                const auto probe = runCommand("ffprobe -v error -show_entries format_tags=" + std::string(key) +
                                              " -of default=nw=1:nk=1 " + shellQuote(path.string()));
                EXPECT_EQ(tags.count(key) ? tags.at(key) + "\n" : "(none)", probe.output) << key;
            }
        }
    }
}

}  // namespace
}  // namespace quillora
