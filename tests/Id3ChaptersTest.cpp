// The MP3's ID3 chapters read back by mutagen (frames and version), ffprobe
// (chapters and titles) and ffmpeg (the audio still decodes).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "PublishTestSupport.h"
#include "publish/Id3Chapters.h"
#include "publish/PublishError.h"

namespace quillora::test {
namespace {

constexpr const char* kMutagenReport = R"(
import hashlib, json, sys
from mutagen.id3 import ID3
tag = ID3(sys.argv[1])
def picture(frame):
    return {"mime": frame.mime, "md5": hashlib.md5(frame.data).hexdigest()}
report = {"version": list(tag.version), "text": {}, "chapters": []}
for key in ("TIT2", "TPE1", "TALB", "TPUB", "TCOP", "TRCK"):
    report["text"][key] = str(tag[key]) if key in tag else None
report["comment"] = [str(frame) for frame in tag.getall("COMM")]
report["cover"] = [picture(frame) for frame in tag.getall("APIC")]
tocs = tag.getall("CTOC")
report["toc"] = [{"top": bool(toc.flags & 2), "ordered": bool(toc.flags & 1), "children": toc.child_element_ids}
                 for toc in tocs]
for chapter in sorted(tag.getall("CHAP"), key=lambda chapter: chapter.start_time):
    frames = chapter.sub_frames
    report["chapters"].append({
        "id": chapter.element_id, "start": chapter.start_time, "end": chapter.end_time,
        "title": str(frames["TIT2"]) if "TIT2" in frames else None,
        "pictures": [picture(frame) for frame in frames.getall("APIC")],
        "links": [[frame.desc, frame.url] for frame in frames.getall("WXXX")]})
print(json.dumps(report))
)";

std::string md5(const std::filesystem::path& path)
{
    const auto result = runCommand("md5sum " + shellQuote(path.string()));
    return result.output.substr(0, 32);
}

TEST(Id3Chapters, MutagenFfprobeAndFfmpegReadTheChapters)
{
    TemporaryFolder folder;
    auto lecture = sampleLecture();
    lecture.cover = fixture("slide.jpg");
    const auto mp3 = makeMp3(folder, "talk.mp3", 10);
    publish::writeId3Chapters(lecture, mp3);

    const auto mutagen =
        runCommand("/usr/bin/python3 -c " + shellQuote(kMutagenReport) + " " + shellQuote(mp3.string()));
    ASSERT_EQ(mutagen.status, 0) << mutagen.output;
    const auto report = nlohmann::json::parse(mutagen.output);
    EXPECT_EQ(report["version"], nlohmann::json({2, 3, 0}));
    EXPECT_EQ(report["text"]["TIT2"], "Signals & <Systems>");
    EXPECT_EQ(report["text"]["TPE1"], "Ada Lovelace");
    EXPECT_EQ(report["text"]["TALB"], "Signals");
    EXPECT_EQ(report["text"]["TPUB"], "Example University");
    EXPECT_EQ(report["text"]["TCOP"], "© 2024 Example");
    EXPECT_EQ(report["text"]["TRCK"], "3");
    EXPECT_EQ(report["comment"], nlohmann::json({"Sampling, aliasing & transforms"}));
    EXPECT_EQ(report["cover"], nlohmann::json({{{"mime", "image/jpeg"}, {"md5", md5(fixture("slide.jpg"))}}}));
    EXPECT_EQ(report["toc"],
              nlohmann::json({{{"top", true}, {"ordered", true}, {"children", {"chp0", "chp1", "chp2"}}}}));

    const auto& chapters = report["chapters"];
    ASSERT_EQ(chapters.size(), 3u);
    for (std::size_t i = 0; i < chapters.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(chapters[i]["id"], "chp" + std::to_string(i));
        EXPECT_EQ(chapters[i]["start"], static_cast<int>(lecture.chapters[i].start * 1000));
        EXPECT_EQ(chapters[i]["end"], static_cast<int>(lecture.chapters[i].end * 1000));
        EXPECT_EQ(chapters[i]["title"], lecture.chapters[i].title);
    }
    EXPECT_EQ(chapters[0]["pictures"], nlohmann::json({{{"mime", "image/jpeg"}, {"md5", md5(fixture("slide.jpg"))}}}));
    EXPECT_EQ(chapters[1]["pictures"], nlohmann::json({{{"mime", "image/png"}, {"md5", md5(fixture("slide.png"))}}}));
    EXPECT_TRUE(chapters[2]["pictures"].empty());
    EXPECT_EQ(chapters[0]["links"],
              nlohmann::json::array({nlohmann::json::array({"Course page", *lecture.chapters[0].url})}));
    EXPECT_TRUE(chapters[1]["links"].empty());

    const auto probe = runCommand("ffprobe -v error -show_chapters -of json " + shellQuote(mp3.string()));
    ASSERT_EQ(probe.status, 0) << probe.output;
    const auto probed = nlohmann::json::parse(probe.output)["chapters"];
    ASSERT_EQ(probed.size(), 3u) << probe.output;
    for (std::size_t i = 0; i < probed.size(); ++i) {
        EXPECT_NEAR(std::stod(probed[i]["start_time"].get<std::string>()), lecture.chapters[i].start, 0.001);
        EXPECT_EQ(probed[i]["tags"]["title"], lecture.chapters[i].title);
    }
    EXPECT_EQ(ffmpegDecodeErrors(mp3), "");

    // A picture that cannot be read leaves the file as it was.
    const Bytes tagged = readFile(mp3);
    lecture.chapters[2].picture = folder.path() / "gone.jpg";
    EXPECT_THROW(publish::writeId3Chapters(lecture, mp3), publish::PublishError);
    EXPECT_EQ(readFile(mp3), tagged);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

}  // namespace
}  // namespace quillora::test
