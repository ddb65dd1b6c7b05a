// The JSON chapters file read back by nlohmann-json: the fields of the
// format, pictures that exist where "img" says, absolute URLs under a base,
// and nothing left behind when a picture is missing.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "PublishTestSupport.h"
#include "publish/ChaptersJson.h"
#include "publish/PublishError.h"

namespace quillora::test {
namespace {

nlohmann::json readJson(const std::filesystem::path& path)
{
    const Bytes bytes = readFile(path);
    return nlohmann::json::parse(bytes.begin(), bytes.end());
}

std::string withoutPercentEscapes(std::string url)
{
    for (auto at = url.find('%'); at != std::string::npos; at = url.find('%', at + 1)) {
        url.replace(at, 3, 1, static_cast<char>(std::stoi(url.substr(at + 1, 2), nullptr, 16)));
    }
    return url;
}

TEST(ChaptersJson, FollowsTheFormatAndItsPicturesExist)
{
    TemporaryFolder folder;
    const auto lecture = sampleLecture();
    const auto json = folder.path() / "Lecture 3.chapters.json";
    publish::writeChaptersJson(lecture, json, folder.path() / "Lecture 3-slides");

    const auto document = readJson(json);
    EXPECT_EQ(document["version"], "1.2.0");
    EXPECT_EQ(document["title"], "Signals & <Systems>");
    EXPECT_EQ(document["author"], "Ada Lovelace");
    ASSERT_EQ(document["chapters"].size(), lecture.chapters.size());
    for (std::size_t i = 0; i < lecture.chapters.size(); ++i) {
        const auto& chapter = document["chapters"][i];
        SCOPED_TRACE(i);
        EXPECT_TRUE(chapter["startTime"].is_number());
        EXPECT_DOUBLE_EQ(chapter["startTime"].get<double>(), lecture.chapters[i].start);
        EXPECT_DOUBLE_EQ(chapter["endTime"].get<double>(), lecture.chapters[i].end);
        EXPECT_EQ(chapter["title"], lecture.chapters[i].title);
        EXPECT_EQ(chapter.contains("url"), lecture.chapters[i].url.has_value());
        ASSERT_EQ(chapter.contains("img"), lecture.chapters[i].picture.has_value());
        if (!chapter.contains("img")) continue;
        const auto img = chapter["img"].get<std::string>();
        EXPECT_EQ(img.find(' '), std::string::npos) << img;
        const auto copy = folder.path() / withoutPercentEscapes(img);
        ASSERT_TRUE(std::filesystem::exists(copy)) << img;
        EXPECT_EQ(readFile(copy), readFile(*lecture.chapters[i].picture));
    }
    EXPECT_EQ(document["chapters"][0]["url"], *lecture.chapters[0].url);
    EXPECT_EQ(document["chapters"][1]["img"], "Lecture%203-slides/02.png");

    // Written again under a base URL, over the earlier folder.
    publish::writeChaptersJson(lecture, json, folder.path() / "Lecture 3-slides", "https://cdn.example.org/talks/");
    const auto published = readJson(json);
    EXPECT_EQ(published["chapters"][0]["img"], "https://cdn.example.org/talks/Lecture%203-slides/01.jpg");
    EXPECT_EQ(published["chapters"][1]["img"], "https://cdn.example.org/talks/Lecture%203-slides/02.png");
}

TEST(ChaptersJson, LeavesNothingBehindWhenAPictureIsMissing)
{
    TemporaryFolder folder;
    auto lecture = sampleLecture();
    lecture.chapters[1].picture = folder.path() / "gone.png";
    const auto json = folder.path() / "talk.chapters.json";
    EXPECT_THROW(publish::writeChaptersJson(lecture, json, folder.path() / "talk-slides"), publish::PublishError);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));

    EXPECT_THROW(publish::writeChaptersJson(sampleLecture(), json, folder.path().parent_path() / "elsewhere"),
                 publish::PublishError);
}

}  // namespace
}  // namespace quillora::test
