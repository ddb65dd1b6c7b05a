// Reading a published file's contents: single text samples, a hand-built file
// with every kind of track, one made by ffmpeg (also through quillora
// inspect), and damaged copies.
#include <gtest/gtest.h>

#include <sstream>

#include "TestSupport.h"
#include "TrackTestSupport.h"
#include "foundation/Bytes.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"
#include "toolbox/MovieContents.h"
#include "toolbox/SampleTable.h"
#include "toolbox/TextSample.h"

using namespace quillora;
using toolbox::readMovieContents;

namespace {

Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes box(std::string_view type, std::initializer_list<Bytes> parts)
{
    const Bytes payload = cat(parts);
    ByteWriter atom;
    atom.putU32BE(static_cast<std::uint32_t>(payload.size() + 8)).putString(type).putBytes(payload);
    return atom.take();
}

Bytes words(std::initializer_list<std::uint32_t> values)
{
    ByteWriter out;
    for (auto value : values) out.putU32BE(value);
    return out.take();
}

// Text, then an 'href' atom when there is a URL, else an 'encd' one.
Bytes textSample(const std::string& text, const char* link = nullptr)
{
    ByteWriter sample;
    sample.putU16BE(static_cast<std::uint16_t>(text.size())).putString(text);
    if (!link) return sample.putU32BE(12).putString("encd").putU32BE(0x100).take();
    const std::string url(link);
    sample.putU32BE(static_cast<std::uint32_t>(14 + url.size())).putString("href").putU16BE(0);
    sample.putU16BE(static_cast<std::uint16_t>(url.size())).putU8(static_cast<std::uint8_t>(url.size() % 256));
    return sample.putString(url).putU8(0).take();
}

// One track; chunks lists the samples in each chunk, and runs of equal
// counts share one sample-to-chunk entry.
struct TrackPlan {
    const char* handler;
    Bytes description;
    std::vector<Bytes> samples;
    std::vector<std::uint32_t> durations;
    std::vector<std::uint32_t> chunks;
    Bytes trackReference = {};
};

Bytes trackAtom(std::uint32_t trackID, const TrackPlan& plan, std::uint32_t offset)
{
    ByteWriter stsc, stco, stsz, stts;
    std::uint32_t runs = 0;
    std::size_t sample = 0;
    for (std::size_t chunk = 0; chunk < plan.chunks.size(); ++chunk) {
        if (chunk == 0 || plan.chunks[chunk] != plan.chunks[chunk - 1]) {
            stsc.putU32BE(static_cast<std::uint32_t>(chunk + 1)).putU32BE(plan.chunks[chunk]).putU32BE(1);
            ++runs;
        }
        stco.putU32BE(offset);
        for (std::uint32_t i = 0; i < plan.chunks[chunk]; ++i) {
            offset += static_cast<std::uint32_t>(plan.samples[sample++].size());
        }
    }
    for (std::size_t i = 0; i < plan.samples.size(); ++i) {
        stsz.putU32BE(static_cast<std::uint32_t>(plan.samples[i].size()));
        stts.putU32BE(1).putU32BE(plan.durations[i]);
    }
    const auto count = [](std::size_t n) { return words({0, static_cast<std::uint32_t>(n)}); };
    const Bytes stbl =
        box("stbl", {box("stsd", {words({0, 1}), plan.description}), box("stsc", {count(runs), stsc.bytes()}),
                     box("stsz", {words({0}), count(plan.samples.size()), stsz.bytes()}),
                     box("stts", {count(plan.samples.size()), stts.bytes()}),
                     box("stco", {count(plan.chunks.size()), stco.bytes()})});
    const Bytes hdlr = box("hdlr", {words({0, fourCC("mhlr"), fourCCFromString(plan.handler)}), Bytes(13, 0)});
    return box("trak", {box("tkhd", {words({0, 0, 0, trackID, 0, 1800}), Bytes(60, 0)}), plan.trackReference,
                        box("mdia", {box("mdhd", {words({0, 0, 0, 600, 1800, 0})}), hdlr, box("minf", {stbl})})});
}

// Sound naming chapters on track 2 and pictures on 3; links on 4, notes on 5.
// A 300-byte URL keeps only 44 in its length byte; the atom's size tells the rest.
const std::string longURL = "https://example.org/" + std::string(280, 'a');

Bytes handBuiltLecture()
{
    ByteWriter picture;
    picture.putU32BE(86).putString("jpeg").putZeros(6).putU16BE(1).putZeros(4).putString("appl");
    picture.putU32BE(0).putU32BE(1024).putU16BE(640).putU16BE(480).putZeros(50);
    const std::vector<TrackPlan> plans{
        {"soun",
         box("mp4a", {Bytes(28, 0)}),
         {Bytes(40, 1), Bytes(40, 2)},
         {900, 900},
         {2},
         box("tref", {box("chap", {words({2, 3})})})},
        {"text",
         box("text", {Bytes(51, 0)}),
         {textSample("Welcome"), textSample("  Optics"), textSample("Chapter 3")},
         {900, 600, 300},
         {2, 1}},
        {"vide", picture.take(), {Bytes(100, 0xFF), Bytes(120, 0xFF), Bytes(90, 0xFF)}, {900, 600, 300}, {1, 1, 1}},
        {"text",
         box("tx3g", {Bytes(40, 0)}),
         {textSample("Syllabus", "https://example.org/syllabus"), textSample("", ""),
          textSample("Lab \xC3\xA9t\xC3\xA9", longURL.c_str())},
         {900, 600, 300},
         {1, 1, 1}},
        {"text", box("tx3g", {Bytes(40, 0)}), {textSample("Speak slowly"), textSample("")}, {1500, 300}, {1, 1}},
    };
    const Bytes ftyp = box("ftyp", {Bytes{'M', '4', 'A', ' ', 0, 0, 0, 0}});
    Bytes media, traks;
    for (std::uint32_t id = 1; const auto& plan : plans) {
        const Bytes trak = trackAtom(id++, plan, static_cast<std::uint32_t>(ftyp.size() + 8 + media.size()));
        traks.insert(traks.end(), trak.begin(), trak.end());
        for (const auto& sample : plan.samples) media.insert(media.end(), sample.begin(), sample.end());
    }
    ByteWriter item;
    item.putU32BE(1).putU32BE(0).putString("Week 3");
    const Bytes udta =
        box("udta", {box("meta", {words({0}), box("ilst", {box("\xA9nam", {box("data", {item.take()})})})})});
    return cat({ftyp, box("mdat", {media}),
                box("moov", {box("mvhd", {words({0, 0, 0, 600, 1800}), Bytes(80, 0)}), traks, udta})});
}

template <typename... Fields> std::string describe(const Fields&... fields)
{
    std::ostringstream line;
    ((line << fields << ' '), ...);
    return line.str();
}

std::vector<std::string> timed(const toolbox::TextTrackContents& track)
{
    std::vector<std::string> lines;
    for (const auto& s : track.samples) lines.push_back(describe(s.start, s.duration, s.text, s.url));
    return lines;
}

}  // namespace

TEST(MovieContents, CutTextSamplesAreMarkedNotOverrun)
{
    const Bytes link = textSample("Course page", "https://example.org/");
    for (std::size_t length = 1; length < link.size(); ++length) {
        auto parsed = toolbox::parseTextSample(std::span(link).first(length));
        EXPECT_TRUE(parsed.truncated || !parsed.url) << length;
        EXPECT_LE(parsed.text.size(), 11u);
    }
    EXPECT_FALSE(toolbox::parseTextSample(link).truncated);
    EXPECT_FALSE(toolbox::parseTextSample(textSample("Intro")).url);
    auto overlong = toolbox::parseTextSample(Bytes{0x00, 0x10, 'a', 'b'});
    EXPECT_TRUE(overlong.truncated);
    EXPECT_EQ(overlong.text, "ab");
}

TEST(MovieContents, ReadsEveryKindOfTrackOfAHandBuiltLecture)
{
    test::TemporaryFolder folder;
    const auto path = folder.path() / "lecture.m4b";
    test::writeFile(path, handBuiltLecture());
    const auto contents = readMovieContents(path);
    EXPECT_TRUE(contents.problems.empty()) << contents.problems.front();
    EXPECT_EQ(contents.timeScale, 600u);
    EXPECT_DOUBLE_EQ(contents.seconds, 3.0);
    std::vector<std::string> tracks;
    for (const auto& t : contents.tracks) {
        tracks.push_back(describe(t.trackID, stringFromFourCC(t.handlerType), t.sampleCount, t.seconds));
    }
    EXPECT_EQ(tracks,
              (std::vector<std::string>{"1 soun 2 3 ", "2 text 3 3 ", "3 vide 3 3 ", "4 text 3 3 ", "5 text 2 3 "}));

    // Chapter 2 is the second sample of the first chunk, chapter 3 the second chunk.
    EXPECT_EQ(contents.chapters.trackID, 2u);
    EXPECT_EQ(timed(contents.chapters),
              (std::vector<std::string>{"0 1.5 Welcome  ", "1.5 1   Optics  ", "2.5 0.5 Chapter 3  "}));
    EXPECT_EQ(contents.links.trackID, 4u);
    EXPECT_EQ(timed(contents.links),
              (std::vector<std::string>{"0 1.5 Syllabus https://example.org/syllabus ", "1.5 1   ",
                                        "2.5 0.5 Lab \xC3\xA9t\xC3\xA9 " + longURL + " "}));
    EXPECT_EQ(contents.notes.trackID, 5u);
    EXPECT_EQ(timed(contents.notes), (std::vector<std::string>{"0 2.5 Speak slowly  ", "2.5 0.5   "}));
    ASSERT_EQ(contents.pictures.size(), 1u);  // three chunks under one sample-to-chunk entry
    const auto& picture = contents.pictures[0];
    EXPECT_EQ(describe(picture.trackID, stringFromFourCC(picture.format), picture.count, picture.width, picture.height),
              "3 jpeg 3 640 480 ");
    ASSERT_EQ(contents.tags.size(), 1u);
    EXPECT_EQ(describe(stringFromFourCC(contents.tags[0].type), contents.tags[0].value), "\xC2\xA9nam Week 3 ");
}

TEST(MovieContents, FfmpegFileReadsAndInspectsAndDamageIsAWarning)
{
    test::TemporaryFolder folder;
    const auto chapters = folder.path() / "chapters.txt";
    const std::string metadata = ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=2000\ntitle=Introduction\n"
                                 "[CHAPTER]\nTIMEBASE=1/1000\nSTART=2000\nEND=4000\ntitle=Les \xC3\xA9l\xC3\xA8ves\n";
    test::writeFile(chapters, Bytes(metadata.begin(), metadata.end()));
    const auto path = folder.path() / "lecture.m4a";
    auto made = test::runCommand("ffmpeg -v error -f lavfi -i sine=d=4 -i " + test::shellQuote(chapters.string()) +
                                 " -map_metadata 1 -map 0 -c:a aac -b:a 32k -movie_timescale 600"
                                 " -metadata title='Optics, week 3' -metadata artist='Dr. Roy' " +
                                 test::shellQuote(path.string()));
    ASSERT_EQ(made.status, 0) << made.output;

    const auto contents = readMovieContents(path);
    ASSERT_EQ(contents.tracks.size(), 2u);
    EXPECT_EQ(contents.tracks[0].handlerType, fourCC("soun"));
    EXPECT_GT(contents.tracks[0].sampleCount, 100u);  // 1024-sample AAC frames at 44.1 kHz
    auto inspect = [](const std::string& file, int status) {
        auto result = test::runQuillora("inspect " + test::shellQuote(file));
        EXPECT_EQ(result.status, status) << result.output;
        return result.output;
    };
    const std::string inspected = inspect(path.string(), 0);
    for (const char* line :
         {"Duration: 4.0", "Tracks (2)", "Chapters: 2 in track 2", "      0.000      2.000  Introduction\n",
          "      2.000      2.000  Les \xC3\xA9l\xC3\xA8ves\n", "  \xC2\xA9nam  Optics, week 3\n",
          "  \xC2\xA9\x41RT  Dr. Roy\n", "Pictures: none", "Links: none", "Notes: none"}) {
        EXPECT_NE(inspected.find(line), std::string::npos) << line << "\n" << inspected;
    }

    // A chapter time table whose entry count runs past its atom.
    std::int64_t chapterTimes = 0;
    for (const auto& node : toolbox::readAtomTree(path).atoms) {
        if (node.type == atom::stts) chapterTimes = node.offset;  // the last one: the chapter track's
    }
    Bytes bytes = test::readFile(path);
    std::fill_n(bytes.begin() + chapterTimes + 12, 4, 0xFF);
    test::writeFile(path, bytes);
    const std::string damaged = inspect(path.string(), 2);
    EXPECT_NE(damaged.find("warning: damaged sample table"), std::string::npos) << damaged;
    EXPECT_NE(damaged.find("Tracks (2)"), std::string::npos) << damaged;
    EXPECT_NE(inspect(test::fixture("slide.jpg").string(), 1).find("is not a movie file"), std::string::npos);
    EXPECT_NE(inspect("/nonexistent/x.m4a", 1).find("cannot read /nonexistent/x.m4a"), std::string::npos);
}

TEST(MovieContents, DamagedFilesAreReportedNeverOverrun)
{
    test::TemporaryFolder folder;
    const Bytes lecture = handBuiltLecture();
    const auto path = folder.path() / "damaged.m4b";
    test::writeFile(path, lecture);
    const auto tree = toolbox::readAtomTree(path);
    std::vector<std::int64_t> chunkTables;
    for (const auto& node : tree.atoms) {
        if (node.type == atom::stco) chunkTables.push_back(node.offset);
    }
    ASSERT_EQ(chunkTables.size(), 5u);
    const auto moovOffset = static_cast<std::size_t>(tree.find({atom::moov})->offset);

    // A chapter chunk moved past the end of the file is reported; the rest still reads.
    Bytes moved = lecture;
    std::fill_n(moved.begin() + chunkTables[1] + 16, 4, 0x7F);
    test::writeFile(path, moved);
    auto contents = readMovieContents(path);
    EXPECT_FALSE(contents.problems.empty());
    EXPECT_EQ(contents.chapters.samples.size(), 1u);  // only the second chunk's sample is in the file
    EXPECT_EQ(contents.links.samples.size(), 3u);

    // Every cut and every overwritten byte gives contents or NotAMovie, nothing else.
    auto readsCleanly = [&](const Bytes& bytes) {
        test::writeFile(path, bytes);
        try {
            readMovieContents(path);
        } catch (const toolbox::NotAMovie&) {
        }
    };
    for (std::size_t at = 0; at < lecture.size(); ++at) {
        Bytes damaged = lecture;
        if (at % 13 == 0) {
            ASSERT_NO_THROW(readsCleanly(Bytes(lecture.begin(), lecture.begin() + std::ptrdiff_t(at)))) << at;
        }
        if (at < moovOffset) continue;
        damaged[at] = 0xFF;
        ASSERT_NO_THROW(readsCleanly(damaged)) << at;
    }
}

// A text track of a million chunks, most of them empty, and 200,000
// sample-to-chunk runs is read in one pass over its tables (once, every chunk
// walked every run: no answer in minutes).
TEST(MovieContents, TablesOfAMillionEntriesReadInOnePass)
{
    TrackPlan text{"text", box("text", {Bytes(51, 0)}), {}, {}, {}};
    for (std::uint32_t chunk = 0; chunk < 1000000; ++chunk) text.chunks.push_back(chunk % 10 == 9 ? 1 : 0);
    text.samples.assign(100000, Bytes(2, 0));
    text.durations.assign(100000, 1);
    const Bytes ftyp = box("ftyp", {Bytes{'M', '4', 'A', ' ', 0, 0, 0, 0}});
    Bytes media;
    for (const auto& sample : text.samples) media.insert(media.end(), sample.begin(), sample.end());
    const Bytes trak = trackAtom(1, text, static_cast<std::uint32_t>(ftyp.size() + 8));
    test::TemporaryFolder folder;
    test::writeFile(folder.path() / "many.m4a",
                    cat({ftyp, box("mdat", {media}),
                         box("moov", {box("mvhd", {words({0, 0, 0, 600, 1800}), Bytes(80, 0)}), trak})}));

    const auto contents = readMovieContents(folder.path() / "many.m4a");
    EXPECT_EQ(contents.notes.samples.size(), toolbox::kMaximumListedSamples);
}
