// A course published as one feed: only new or changed lectures exported,
// failures listed and left out, the same course made by other machines
// through `course commands`, and the feed as two podcast readers see it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <map>

#include "TestSupport.h"
#include "foundation/PropertyList.h"

namespace quillora {
namespace {

namespace fs = std::filesystem;
using test::runCommand;
using test::runQuillora;
using test::shellQuote;

// The sample course, copied so that a test may change it.
fs::path copySampleCourse(const test::TemporaryFolder& folder)
{
    const auto course = folder.path() / "course";
    fs::copy(fs::path(QUILLORA_SOURCE_DIR) / "sample", course, fs::copy_options::recursive);
    return course / "course.json";
}

test::CommandResult course(const std::string& command, const fs::path& manifest, const fs::path& site,
                           const std::string& extra = "")
{
    return runQuillora("course " + command + " " + shellQuote(manifest.string()) + " --output " +
                       shellQuote(site.string()) + " " + extra);
}

// Every file below the folder with its time and bytes.
std::map<std::string, std::pair<fs::file_time_type, Bytes>> snapshot(const fs::path& folder)
{
    std::map<std::string, std::pair<fs::file_time_type, Bytes>> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            files[fs::relative(entry.path(), folder).string()] = {entry.last_write_time(),
                                                                  test::readFile(entry.path())};
        }
    }
    return files;
}

// The feed as feedparser and podcastparser read it, side by side.
nlohmann::json readFeed(const fs::path& feed)
{
    const char* script = R"(
import feedparser, json, podcastparser, sys, uuid
path = sys.argv[1]
f = feedparser.parse(path)
with open(path, 'rb') as stream:
    p = podcastparser.parse('file://' + path, stream)
print(json.dumps({
    'bozo': bool(f.bozo), 'podcastGuid': f.feed.get('podcast_guid'), 'image': f.feed.image.get('href'),
    'author': f.feed.get('author'),
    'uuid5': str(uuid.uuid5(uuid.UUID('ead4c236-bf58-58c6-a2c6-a6b28d128cb6'),
                            sys.argv[2].split('://', 1)[1].rstrip('/'))),
    'feedparser': [{'title': e.title, 'guid': e.id, 'published': e.published_parsed[:6],
                    'url': e.enclosures[0].href, 'length': int(e.enclosures[0].length),
                    'type': e.enclosures[0].type, 'duration': e.itunes_duration,
                    'chapters': e.get('podcast_chapters', {}), 'image': e.image.href} for e in f.entries],
    'podcastparser': [{'title': e['title'], 'guid': e['guid'], 'seconds': e['total_time'],
                       'url': e['enclosures'][0]['url'], 'length': e['enclosures'][0]['file_size'],
                       'type': e['enclosures'][0]['mime_type'], 'image': e.get('episode_art_url')}
                      for e in p['episodes']],
    'cover': p.get('cover_url')}))
)";
    const std::string feedUrl = "https://lectures.example.org/phys120/feed.xml";
    const auto result = runCommand("/usr/bin/python3 -c " + shellQuote(script) + " " + shellQuote(feed.string()) + " " +
                                   shellQuote(feedUrl));
    auto json = nlohmann::json::parse(result.output, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << result.output;
    return json;
}

double probedSeconds(const fs::path& file)
{
    const auto result =
        runCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 " + shellQuote(file.string()));
    return std::stod(result.output);
}

// Checks every item against the files in the site and the tags of the manifest.
void expectFeedMatchesSite(const fs::path& manifest, const fs::path& site, std::size_t lectures)
{
    const auto feed = readFeed(site / "feed.xml");
    const Value course = readValueFile(manifest);
    const std::string base = *course.stringForKey("baseUrl");
    EXPECT_FALSE(feed["bozo"].get<bool>());
    EXPECT_EQ(feed["podcastGuid"], feed["uuid5"]);
    EXPECT_EQ(feed["image"], base + "artwork.jpg");
    EXPECT_EQ(feed["cover"], base + "artwork.jpg");
    EXPECT_EQ(feed["author"], *course.stringForKey("author"));
    ASSERT_EQ(feed["feedparser"].size(), lectures) << feed.dump(1);
    ASSERT_EQ(feed["podcastparser"].size(), lectures) << feed.dump(1);
    for (std::size_t i = 0; i < lectures; ++i) {
        const Value& lecture = (*course.get("lectures")->asArray())[i];
        const std::string slug = *lecture.stringForKey("slug");
        const Value tags = readValueFile(manifest.parent_path() / *lecture.stringForKey("tags"));
        const auto& seen = feed["feedparser"][i];
        // podcastparser puts the newest first.
        nlohmann::json parsed;
        for (const auto& entry : feed["podcastparser"]) {
            if (entry["url"] == base + slug + ".m4a") parsed = entry;
        }
        ASSERT_FALSE(parsed.is_null()) << slug << "\n" << feed.dump(1);
        const auto file = site / (slug + ".m4a");
        SCOPED_TRACE(slug);
        EXPECT_EQ(seen["title"], *tags.stringForKey("title"));
        EXPECT_EQ(parsed["title"], *tags.stringForKey("title"));
        EXPECT_EQ(seen["url"], base + slug + ".m4a");
        EXPECT_EQ(seen["length"].get<std::uintmax_t>(), fs::file_size(file));
        EXPECT_EQ(parsed["length"].get<std::uintmax_t>(), fs::file_size(file));
        EXPECT_EQ(seen["type"], "audio/x-m4a");
        EXPECT_EQ(parsed["type"], "audio/x-m4a");
        EXPECT_NEAR(parsed["seconds"].get<double>(), probedSeconds(file), 1.0);
        EXPECT_EQ(parsed["guid"], seen["guid"]);
        EXPECT_EQ(seen["chapters"]["url"], base + slug + ".chapters.json");
        EXPECT_EQ(seen["chapters"]["type"], "application/json+chapters");
        EXPECT_TRUE(fs::is_regular_file(site / (slug + ".chapters.json")));
        EXPECT_EQ(parsed["image"], base + "artwork.jpg");
        const std::string date = *lecture.stringForKey("date");  // "2024-09-02T09:00:00Z"
        EXPECT_EQ(seen["published"][0].get<int>(), std::stoi(date.substr(0, 4)));
        EXPECT_EQ(seen["published"][2].get<int>(), std::stoi(date.substr(8, 2)));
    }
    const auto artwork = runCommand("ffprobe -v error -show_entries stream=width,height -of csv=p=0 " +
                                    shellQuote((site / "artwork.jpg").string()));
    EXPECT_EQ(artwork.output, "1400,1400\n");
}

std::map<std::string, std::string> guidsByUrl(const fs::path& feed)
{
    std::map<std::string, std::string> guids;
    const auto read = readFeed(feed);
    for (const auto& entry : read["feedparser"]) guids[entry["url"]] = entry["guid"];
    return guids;
}

TEST(Course, PublishesThenRepublishesOnlyWhatChanged)
{
    test::TemporaryFolder folder;
    const auto manifest = copySampleCourse(folder);
    const auto site = folder.path() / "site";
    auto result = course("publish", manifest, site, "--jobs 2");
    ASSERT_EQ(result.status, 0) << result.output;
    expectFeedMatchesSite(manifest, site, 3);
    EXPECT_TRUE(fs::is_regular_file(site / "lecture-2.chapters.vtt"));
    const auto guids = guidsByUrl(site / "feed.xml");

    // Nothing changed: nothing exported, not a file touched.
    const auto before = snapshot(site);
    result = course("publish", manifest, site);
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(result.output.find("Exporting"), std::string::npos) << result.output;
    EXPECT_TRUE(snapshot(site) == before) << result.output;

    // One lecture's tags changed: that lecture alone exported again, its guid kept.
    const auto tags = manifest.parent_path() / "course" / "tags-2.json";
    Value changed = readValueFile(tags);
    changed.asDictionary()->set("title", "Light and Optics, Lecture 2: Mirrors and Images");
    const std::string text = jsonFromValue(changed);
    test::writeFile(tags, Bytes(text.begin(), text.end()));
    result = course("publish", manifest, site);
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("Exporting lecture-2"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("Exporting lecture-1"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("Exporting lecture-3"), std::string::npos) << result.output;
    const auto after = snapshot(site);
    for (const char* unchanged : {"lecture-1.m4a", "lecture-3.m4a", "lecture-1.chapters.json", "artwork.jpg"}) {
        EXPECT_TRUE(after.at(unchanged) == before.at(unchanged)) << unchanged;
    }
    EXPECT_FALSE(after.at("lecture-2.m4a") == before.at("lecture-2.m4a"));
    const auto title =
        runCommand("/usr/bin/python3 -c " +
                   shellQuote("import mutagen.mp4,sys; print(mutagen.mp4.MP4(sys.argv[1])['\\xa9nam'][0])") + " " +
                   shellQuote((site / "lecture-2.m4a").string()));
    EXPECT_EQ(title.output, "Light and Optics, Lecture 2: Mirrors and Images\n");
    expectFeedMatchesSite(manifest, site, 3);
    EXPECT_EQ(guidsByUrl(site / "feed.xml"), guids);
    EXPECT_FALSE(fs::exists(site / ".staging"));
}

TEST(Course, AFailingLectureIsListedAndLeftOutOfTheFeed)
{
    test::TemporaryFolder folder;
    const auto manifest = copySampleCourse(folder);
    test::writeFile(manifest.parent_path() / "silence.m4a", Bytes(4000, 'x'));
    Value withBroken = readValueFile(manifest);
    auto lectures = withBroken.asDictionary()->find("lectures")->asArray();
    lectures->insert(lectures->begin() + 1, Value::dictionary({{"slug", "broken"}, {"recording", "silence.m4a"}}));
    const std::string text = jsonFromValue(withBroken);
    test::writeFile(manifest, Bytes(text.begin(), text.end()));

    const auto site = folder.path() / "site";
    const auto result = course("publish", manifest, site, "--jobs 2");
    EXPECT_EQ(result.status, 1) << result.output;
    EXPECT_NE(result.output.find("1 lecture was not published:\n  lecture 2 (broken): "), std::string::npos)
        << result.output;
    EXPECT_FALSE(fs::exists(site / "broken.m4a"));
    const auto feed = readFeed(site / "feed.xml");
    ASSERT_EQ(feed["feedparser"].size(), 3u) << feed.dump(1);
    for (const auto& entry : feed["feedparser"])
        EXPECT_EQ(entry["url"].get<std::string>().find("broken"), std::string::npos);
}

TEST(Course, AMalformedManifestIsRefusedNamingTheLectureAndField)
{
    test::TemporaryFolder folder;
    const auto manifest = copySampleCourse(folder);
    const Value sample = readValueFile(manifest);
    struct Case {
        const char* lectureKey;  // changed in the second lecture; empty: the course's
        Value value;
        const char* expected;
    };
    const Case cases[] = {
        {"recording", Value(), "lecture 2 (\"lecture-2\"): \"recording\" is missing"},
        {"date", "next Tuesday", "lecture 2 (\"lecture-2\"): \"date\" must be a date"},
        {"tags", "missing.json", "lecture 2 (\"lecture-2\"): \"tags\" names "},
        {"slug", "lecture-1", "lecture 2: \"slug\" lecture-1 is lecture 1's too"},
        {"slug", "../escape", "\"slug\" may hold only"},
        {"", Value(), "the course: \"baseUrl\" is missing"},
    };
    for (const auto& each : cases) {
        Value changed = valueFromJson(jsonFromValue(sample));
        if (*each.lectureKey) {
            auto lecture = (*changed.asDictionary()->find("lectures")->asArray())[1].asDictionary();
            if (each.value.isNull()) {
                lecture->remove(each.lectureKey);
            } else {
                lecture->set(each.lectureKey, each.value);
            }
        } else {
            changed.asDictionary()->remove("baseUrl");
        }
        const std::string text = jsonFromValue(changed);
        test::writeFile(manifest, Bytes(text.begin(), text.end()));
        const auto result = course("publish", manifest, folder.path() / "site");
        EXPECT_EQ(result.status, 2) << result.output;
        EXPECT_NE(result.output.find(each.expected), std::string::npos) << each.expected << "\n" << result.output;
        EXPECT_FALSE(fs::exists(folder.path() / "site" / "feed.xml"));
    }
}

TEST(Course, CommandsRunByGnuParallelThenTheFeed)
{
    test::TemporaryFolder folder;
    const auto manifest = copySampleCourse(folder);
    const auto site = folder.path() / "site";
    const std::string quillora = shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora");
    const auto ran = runCommand(quillora + " course commands " + shellQuote(manifest.string()) + " --output " +
                                shellQuote(site.string()) + " | parallel --will-cite --halt never -j 2");
    ASSERT_EQ(ran.status, 0) << ran.output;
    EXPECT_FALSE(fs::exists(site / "feed.xml"));
    const auto result = course("feed", manifest, site);
    ASSERT_EQ(result.status, 0) << result.output;
    expectFeedMatchesSite(manifest, site, 3);
    // Published: nothing left to run.
    const auto again = course("commands", manifest, site);
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.output, "");
}

}  // namespace
}  // namespace quillora
