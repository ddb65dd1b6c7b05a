// Reading a published file's contents from its atoms: a file made by ffmpeg,
// a hand-built file with every kind of track, and damaged copies of both.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "foundation/Bytes.h"
#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"
#include "toolbox/MovieContents.h"

using namespace quillora;
using toolbox::readMovieContents;

namespace {

Bytes atomOf(const char* type, const Bytes& payload)
{
    ByteWriter atom;
    atom.putU32BE(static_cast<std::uint32_t>(payload.size() + 8)).putString(type).putBytes(payload);
    return atom.take();
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

// One track of the hand-built movie: its samples are stored in the order
// given, chunked as chunkRuns says (first chunk, samples per chunk).
struct TrackPlan {
    std::uint32_t trackID;
    const char* handler;
    Bytes sampleDescription;
    std::vector<Bytes> samples;
    std::vector<std::uint32_t> durations;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> chunkRuns;
    Bytes trackReference;
};

Bytes trackAtom(const TrackPlan& plan, std::uint32_t firstSampleOffset)
{
    ByteWriter tkhd;
    tkhd.putU32BE(0).putU32BE(0).putU32BE(0).putU32BE(plan.trackID).putU32BE(0).putU32BE(1800).putZeros(60);
    ByteWriter mdhd;
    mdhd.putU32BE(0).putU32BE(0).putU32BE(0).putU32BE(600).putU32BE(1800).putU32BE(0);
    ByteWriter hdlr;
    hdlr.putU32BE(0).putString("mhlr").putString(plan.handler).putZeros(13);

    ByteWriter stsd;
    stsd.putU32BE(0).putU32BE(1).putBytes(plan.sampleDescription);
    ByteWriter stsc;
    stsc.putU32BE(0).putU32BE(static_cast<std::uint32_t>(plan.chunkRuns.size()));
    for (auto [first, perChunk] : plan.chunkRuns) stsc.putU32BE(first).putU32BE(perChunk).putU32BE(1);
    ByteWriter stsz;
    stsz.putU32BE(0).putU32BE(0).putU32BE(static_cast<std::uint32_t>(plan.samples.size()));
    for (const auto& sample : plan.samples) stsz.putU32BE(static_cast<std::uint32_t>(sample.size()));
    ByteWriter stts;
    stts.putU32BE(0).putU32BE(static_cast<std::uint32_t>(plan.durations.size()));
    for (auto duration : plan.durations) stts.putU32BE(1).putU32BE(duration);

    // Chunk offsets follow from the runs and the sample sizes.
    std::vector<std::uint32_t> chunkOffsets;
    std::uint32_t offset = firstSampleOffset;
    std::size_t sample = 0;
    for (std::size_t run = 0; run < plan.chunkRuns.size(); ++run) {
        const std::uint32_t lastChunk =
            run + 1 < plan.chunkRuns.size() ? plan.chunkRuns[run + 1].first - 1 : 0xFFFFFFFF;
        for (std::uint32_t chunk = plan.chunkRuns[run].first; chunk <= lastChunk && sample < plan.samples.size();
             ++chunk) {
            chunkOffsets.push_back(offset);
            for (std::uint32_t i = 0; i < plan.chunkRuns[run].second && sample < plan.samples.size(); ++i) {
                offset += static_cast<std::uint32_t>(plan.samples[sample++].size());
            }
        }
    }
    ByteWriter stco;
    stco.putU32BE(0).putU32BE(static_cast<std::uint32_t>(chunkOffsets.size()));
    for (auto chunkOffset : chunkOffsets) stco.putU32BE(chunkOffset);

    const Bytes stbl =
        atomOf("stbl", concat({atomOf("stsd", stsd.bytes()), atomOf("stsc", stsc.bytes()), atomOf("stsz", stsz.bytes()),
                               atomOf("stts", stts.bytes()), atomOf("stco", stco.bytes())}));
    const Bytes mdia =
        atomOf("mdia", concat({atomOf("mdhd", mdhd.bytes()), atomOf("hdlr", hdlr.bytes()), atomOf("minf", stbl)}));
    return atomOf("trak", concat({atomOf("tkhd", tkhd.bytes()), plan.trackReference, mdia}));
}

Bytes textSample(const std::string& text, const std::string& url = "", bool link = false)
{
    ByteWriter sample;
    sample.putU16BE(static_cast<std::uint16_t>(text.size())).putString(text);
    if (link) {
        sample.putU32BE(static_cast<std::uint32_t>(14 + url.size())).putString("href").putU16BE(0);
        sample.putU16BE(static_cast<std::uint16_t>(url.size())).putU8(static_cast<std::uint8_t>(url.size()));
        sample.putString(url).putU8(0);
    } else {
        sample.putU32BE(12).putString("encd").putU32BE(0x100);
    }
    return sample.take();
}

Bytes pictureDescription(const char* format, std::uint16_t width, std::uint16_t height)
{
    ByteWriter entry;
    entry.putU32BE(86).putString(format).putZeros(6).putU16BE(1).putU16BE(0).putU16BE(0).putString("appl");
    entry.putU32BE(0).putU32BE(1024).putU16BE(width).putU16BE(height).putZeros(50);
    return entry.take();
}

// A lecture with a sound track naming chapters 2 and pictures 3, links on 4 and notes on 5.
Bytes handBuiltLecture()
{
    ByteWriter chap;
    chap.putU32BE(16).putString("chap").putU32BE(2).putU32BE(3);
    std::vector<TrackPlan> plans{
        {1,
         "soun",
         atomOf("mp4a", Bytes(28, 0)),
         {Bytes(40, 1), Bytes(40, 2)},
         {900, 900},
         {{1, 2}},
         atomOf("tref", chap.bytes())},
        {2,
         "text",
         atomOf("text", Bytes(51, 0)),
         {textSample("Welcome"), textSample("  Optics"), textSample("Chapter 3")},
         {900, 600, 300},
         {{1, 2}, {2, 1}},
         {}},
        {3,
         "vide",
         pictureDescription("jpeg", 640, 480),
         {Bytes(100, 0xFF), Bytes(120, 0xFF), Bytes(90, 0xFF)},
         {900, 600, 300},
         {{1, 1}},
         {}},
        {4,
         "text",
         atomOf("tx3g", Bytes(40, 0)),
         {textSample("Syllabus", "https://example.org/syllabus", true), textSample("", "", true),
          textSample("Lab \xC3\xA9t\xC3\xA9", "https://example.org/lab", true)},
         {900, 600, 300},
         {{1, 1}},
         {}},
        {5,
         "text",
         atomOf("tx3g", Bytes(40, 0)),
         {textSample("Speak slowly"), textSample("")},
         {1500, 300},
         {{1, 1}},
         {}},
    };

    const Bytes ftyp = atomOf("ftyp", concat({Bytes{'M', '4', 'A', ' ', 0, 0, 0, 0}}));
    Bytes media;
    Bytes traks;
    for (const auto& plan : plans) {
        const auto firstOffset = static_cast<std::uint32_t>(ftyp.size() + 8 + media.size());
        for (const auto& sample : plan.samples) media.insert(media.end(), sample.begin(), sample.end());
        traks = concat({traks, trackAtom(plan, firstOffset)});
    }
    ByteWriter mvhd;
    mvhd.putU32BE(0).putU32BE(0).putU32BE(0).putU32BE(600).putU32BE(1800).putZeros(80);
    ByteWriter item;
    item.putU32BE(1).putU32BE(0).putString("Week 3");
    ByteWriter metaHeader;
    metaHeader.putU32BE(0);
    const Bytes ilst = atomOf("ilst", atomOf("\xA9nam", atomOf("data", item.bytes())));
    const Bytes udta = atomOf("udta", atomOf("meta", concat({metaHeader.bytes(), ilst})));
    return concat({ftyp, atomOf("mdat", media), atomOf("moov", concat({atomOf("mvhd", mvhd.bytes()), traks, udta}))});
}

}  // namespace

TEST(MovieContents, ReadsEveryKindOfTrackOfAHandBuiltLecture)
{
    test::TemporaryFolder folder;
    const auto path = folder.path() / "lecture.m4b";
    test::writeFile(path, handBuiltLecture());
    const auto contents = readMovieContents(path);
    EXPECT_TRUE(contents.problems.empty()) << contents.problems.front();
    EXPECT_EQ(contents.timeScale, 600u);
    EXPECT_DOUBLE_EQ(contents.seconds, 3.0);

    ASSERT_EQ(contents.tracks.size(), 5u);
    EXPECT_EQ(contents.tracks[2].trackID, 3u);
    EXPECT_EQ(contents.tracks[2].handlerType, fourCC("vide"));
    EXPECT_EQ(contents.tracks[2].sampleCount, 3u);
    EXPECT_DOUBLE_EQ(contents.tracks[2].seconds, 3.0);

    EXPECT_EQ(contents.chapters.trackID, 2u);
    ASSERT_EQ(contents.chapters.samples.size(), 3u);
    EXPECT_EQ(contents.chapters.samples[1].text, "  Optics");  // second sample of the first chunk
    EXPECT_DOUBLE_EQ(contents.chapters.samples[1].start, 1.5);
    EXPECT_EQ(contents.chapters.samples[2].text, "Chapter 3");  // the second chunk
    EXPECT_DOUBLE_EQ(contents.chapters.samples[2].start, 2.5);
    EXPECT_DOUBLE_EQ(contents.chapters.samples[2].duration, 0.5);

    ASSERT_EQ(contents.pictures.size(), 1u);
    EXPECT_EQ(contents.pictures[0].format, fourCC("jpeg"));
    EXPECT_EQ(contents.pictures[0].count, 3u);
    EXPECT_EQ(contents.pictures[0].width, 640);
    EXPECT_EQ(contents.pictures[0].height, 480);

    EXPECT_EQ(contents.links.trackID, 4u);
    ASSERT_EQ(contents.links.samples.size(), 3u);
    EXPECT_EQ(contents.links.samples[0].url, "https://example.org/syllabus");
    EXPECT_EQ(contents.links.samples[1].text, "");
    EXPECT_EQ(contents.links.samples[2].text, "Lab \xC3\xA9t\xC3\xA9");
    EXPECT_EQ(contents.links.samples[2].url, "https://example.org/lab");

    EXPECT_EQ(contents.notes.trackID, 5u);
    ASSERT_EQ(contents.notes.samples.size(), 2u);
    EXPECT_EQ(contents.notes.samples[0].text, "Speak slowly");

    ASSERT_EQ(contents.tags.size(), 1u);
    EXPECT_EQ(stringFromFourCC(contents.tags[0].type), "\xC2\xA9nam");
    EXPECT_EQ(contents.tags[0].value, "Week 3");
}

TEST(MovieContents, ReadsChaptersAndTagsThatFfmpegWrote)
{
    test::TemporaryFolder folder;
    const auto chapters = folder.path() / "chapters.txt";
    const std::string metadata = ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1250\ntitle=Introduction\n"
                                 "[CHAPTER]\nTIMEBASE=1/1000\nSTART=1250\nEND=3000\ntitle=Les \xC3\xA9l\xC3\xA8ves\n";
    test::writeFile(chapters, Bytes(metadata.begin(), metadata.end()));
    const auto path = folder.path() / "lecture.m4a";
    auto made = test::runCommand("ffmpeg -v error -f lavfi -i sine=d=3 -i " + test::shellQuote(chapters.string()) +
                                 " -map_metadata 1 -map 0 -c:a aac -b:a 32k -movie_timescale 600"
                                 " -metadata title='Week 3' -metadata artist='Dr. Roy' " +
                                 test::shellQuote(path.string()));
    ASSERT_EQ(made.status, 0) << made.output;

    const auto contents = readMovieContents(path);
    ASSERT_EQ(contents.tracks.size(), 2u);
    EXPECT_EQ(contents.tracks[0].handlerType, fourCC("soun"));
    EXPECT_GT(contents.tracks[0].sampleCount, 100u);  // about 3 s of 1024-sample AAC frames at 44.1 kHz
    EXPECT_EQ(contents.chapters.trackID, contents.tracks[1].trackID);
    ASSERT_EQ(contents.chapters.samples.size(), 2u);
    EXPECT_EQ(contents.chapters.samples[0].text, "Introduction");
    EXPECT_NEAR(contents.chapters.samples[1].start, 1.25, 0.01);
    EXPECT_EQ(contents.chapters.samples[1].text, "Les \xC3\xA9l\xC3\xA8ves");
    EXPECT_EQ(contents.links.trackID, 0u);
    EXPECT_EQ(contents.notes.trackID, 0u);

    std::map<std::string, std::string> tags;
    for (const auto& tag : contents.tags) tags[stringFromFourCC(tag.type)] = tag.value;
    EXPECT_EQ(tags["\xC2\xA9nam"], "Week 3");
    EXPECT_EQ(tags["\xC2\xA9"
                   "ART"],
              "Dr. Roy");
}

TEST(MovieContents, DamagedFilesAreReportedNeverOverrun)
{
    test::TemporaryFolder folder;
    const Bytes lecture = handBuiltLecture();
    const auto path = folder.path() / "damaged.m4b";

    // A chapter sample moved past the end of the file is reported; the rest still reads.
    test::writeFile(path, lecture);
    std::vector<std::int64_t> chunkTables;
    for (const auto& node : toolbox::readAtomTree(path).atoms) {
        if (node.type == atom::stco) chunkTables.push_back(node.offset);
    }
    ASSERT_EQ(chunkTables.size(), 5u);
    const auto moovOffset = static_cast<std::size_t>(toolbox::readAtomTree(path).find({atom::moov})->offset);
    Bytes moved = lecture;
    std::fill_n(moved.begin() + chunkTables[1] + 16, 4, 0x7F);  // the chapter track's first chunk
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
    for (std::size_t length = 0; length < lecture.size(); length += 5) {
        ASSERT_NO_THROW(readsCleanly(Bytes(lecture.begin(), lecture.begin() + static_cast<std::ptrdiff_t>(length))))
            << length;
    }
    for (std::size_t at = moovOffset; at < lecture.size(); ++at) {
        Bytes damaged = lecture;
        damaged[at] = 0xFF;
        ASSERT_NO_THROW(readsCleanly(damaged)) << at;
    }
}
