// How an export ends when it cannot finish as asked, tried as a user would:
// two exports sharing a scratch folder, a signal or a closed pipe half way,
// a disk that fills, no terminal to ask on, an existing file named at the
// prompt, colours by name. Each row checks the exit status, what was said,
// that the destination is as it was, and that nothing is left behind that
// was not named.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <regex>

#include "TestSupport.h"

namespace quillora {
namespace {

using test::runCommand;
using test::shellQuote;
using test::TemporaryFolder;
using test::writeText;

const std::string kQuillora = shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora");
const std::string kLastWeek = "the lecture published last week";

std::string readText(const std::filesystem::path& path)
{
    const Bytes bytes = test::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

// A deck of count slides with the same names in every deck, each a copy of
// one picture that ffmpeg makes from a lavfi source, a tenth of a second
// apart; with preferences (links off) for JPEG pictures and for PNG.
struct Deck {
    std::filesystem::path folder;
    std::uintmax_t inputBytes = 0;

    Deck(const std::filesystem::path& at, const std::string& source, int count) : folder(at)
    {
        std::filesystem::create_directories(folder);
        const auto picture = folder / "picture.jpg";
        const auto made = runCommand("ffmpeg -v error -y -f lavfi -i " + shellQuote(source) + " -frames:v 1 -q:v 31 " +
                                     shellQuote(picture));
        EXPECT_EQ(made.status, 0) << made.output;
        std::filesystem::copy_file(test::fixture("recording-moov-first.m4a"), folder / "lecture.m4a");
        inputBytes = std::filesystem::file_size(folder / "lecture.m4a");
        std::string transitions = "[";
        for (int i = 0; i < count; ++i) {
            const std::string name = fmt::format("slide{}.jpg", i + 1);
            std::filesystem::copy_file(picture, folder / name);
            inputBytes += std::filesystem::file_size(picture);
            transitions += fmt::format(R"({}{{"timeValue": {}, "slideTitle": "Slide {}", "imagePath": "{}"}})",
                                       i ? ", " : "", 60 * i, i + 1, name);
        }
        writeText(folder / "transitions.json", transitions + "]");
        writeText(folder / "jpeg.json", R"({"videoImageQuality": 0})");
        writeText(folder / "png.json", R"({"videoImageQuality": 1024})");
    }

    // With the preferences of folder/preferences.json.
    std::string arguments(const std::string& preferences = "jpeg") const
    {
        return " --recording " + shellQuote(folder / "lecture.m4a") + " --transitions " +
               shellQuote(folder / "transitions.json") + " --defaults " + shellQuote(folder / (preferences + ".json"));
    }
};

// A small file system of its own (tmpfs), for a disk that fills up; not
// mounted where mounting is not allowed.
struct SmallDisk {
    std::filesystem::path path;
    bool mounted = false;

    SmallDisk(std::filesystem::path at, std::uintmax_t bytes) : path(std::move(at))
    {
        std::filesystem::create_directories(path);
        mounted =
            runCommand(fmt::format("mount -t tmpfs -o size={}k tmpfs {}", bytes / 1024 + 1, shellQuote(path))).status ==
            0;
    }
    ~SmallDisk()
    {
        if (mounted) runCommand("umount " + shellQuote(path));
    }
};

// Runs a bash script with $Q the program and $TMPDIR a folder of its own, for
// two minutes at most.
test::CommandResult bash(const std::filesystem::path& temporary, const std::string& script)
{
    return runCommand("Q=" + kQuillora + " TMPDIR=" + shellQuote(temporary) + " timeout 120 bash -c " +
                      shellQuote(script));
}

// The folder named in a message line such as "The scratch folder X was kept".
std::filesystem::path named(const std::string& output, const std::string& before, const std::string& after)
{
    const std::smatch match = [&] {
        std::smatch found;
        std::regex_search(output, found, std::regex(before + "(\\S+)" + after));
        return found;
    }();
    return match.empty() ? std::filesystem::path() : std::filesystem::path(match[1].str());
}

// Each frame of the picture track as one pixel, its average: red, green, blue.
std::string frameColours(const std::filesystem::path& file)
{
    return runCommand("ffmpeg -v error -i " + shellQuote(file) +
                      " -map 0:v -vf scale=1:1:flags=area -f rawvideo -pix_fmt rgb24 - 2>/dev/null")
        .output;
}

// The slides are centred on a square black canvas: a 4:3 picture fills 3/4 of it.
bool allFramesAre(const std::string& colours, int channel)
{
    if (colours.empty() || colours.size() % 3 != 0) return false;
    for (std::size_t i = 0; i < colours.size(); i += 3) {
        for (int c = 0; c < 3; ++c) {
            const int value = static_cast<unsigned char>(colours[i + static_cast<std::size_t>(c)]);
            if (c == channel ? value < 150 : value > 60) return false;
        }
    }
    return true;
}

TEST(ExportFailures, EndCleanlyAndSayWhatIsLeftWhere)
{
    TemporaryFolder folder;
    const auto temporary = folder.path() / "tmp";
    const auto destination = folder.path() / "out.m4b";
    // Large noise: drawn for a while, and much larger as PNG than as the JPEG given.
    const Deck big(folder.path() / "big", "nullsrc=s=1600x1600,geq=random(1)*255:random(1)*255:random(1)*255", 12);
    const Deck red(folder.path() / "red", "color=c=red:s=320x240", 3);
    const Deck blue(folder.path() / "blue", "color=c=blue:s=200x150", 3);
    const std::string output = " --output " + shellQuote(destination);
    // Until the plug-in has its working copy, then the signal.
    const auto stopHalfWay = [&](const std::string& signal) {
        return "set -m\n$Q export" + big.arguments("png") + output + " & pid=$!\n" +
               "until ls \"$TMPDIR\"/*/*source.m4a >/dev/null 2>&1; do kill -0 $pid || break; sleep 0.05; done\n" +
               "kill -" + signal + " $pid; wait $pid";
    };

    struct Case {
        std::string name;
        std::function<test::CommandResult()> run;
        int status;
        std::vector<std::string> said;
        bool nothingLeft = true;  // in the temporary folder
        std::function<void(const std::string& output)> more = {};
        std::filesystem::path kept = {};  // the destination whose bytes must stay, when not the usual one
    };
    // Room enough for the checks made before the export (the copies, then
    // four times the inputs and 16 MiB; the inputs and 16 MiB beside the
    // destination), but not for the slides drawn as PNG.
    const SmallDisk scratchDisk(folder.path() / "scratch-disk", 5 * big.inputBytes + (20 << 20));
    const SmallDisk destinationDisk(folder.path() / "out-disk", big.inputBytes + (18 << 20));
    const std::vector<Case> cases = {
        {"two exports share a --scratch folder, slides named alike",
         [&] {
             const std::string scratch = " --scratch " + shellQuote(folder.path() / "shared");
             return bash(temporary, "$Q export" + red.arguments() + scratch + " --output " +
                                        shellQuote(folder.path() / "red.m4b") + " & a=$!\n$Q export" +
                                        blue.arguments() + scratch + " --output " +
                                        shellQuote(folder.path() / "blue.m4b") +
                                        " & b=$!\nwait $a; s=$?; wait $b; exit $((s | $?))");
         },
         0,
         {"Exported " + (folder.path() / "red.m4b").string(), "Exported " + (folder.path() / "blue.m4b").string()},
         true,
         [&](const std::string&) {
             EXPECT_TRUE(allFramesAre(frameColours(folder.path() / "red.m4b"), 0));
             EXPECT_TRUE(allFramesAre(frameColours(folder.path() / "blue.m4b"), 2));
         }},
        {"Ctrl-C half way",
         [&] { return bash(temporary, stopHalfWay("INT")); },
         130,
         {"interrupted (SIGINT); the export was stopped", "was left as it was", "was removed"}},
        {"SIGTERM half way",
         [&] { return bash(temporary, stopHalfWay("TERM")); },
         143,
         {"asked to stop (SIGTERM)", "was left as it was", "was removed"}},
        {"the output's reader goes",
         [&] {
             return bash(temporary, "$Q export" + big.arguments("png") + output + " | true; exit ${PIPESTATUS[0]}");
         },
         141,
         {"the reader of the output has gone (SIGPIPE)", "was left as it was", "was removed"}},
        {"the scratch disk fills while the slides are drawn",
         [&] {
             if (!scratchDisk.mounted) return test::CommandResult{};
             return bash(temporary,
                         "$Q export" + big.arguments("png") + " --scratch " + shellQuote(scratchDisk.path) + output);
         },
         1,
         {"failed: No space left on device; the export was stopped", "was left as it was"},
         true,
         [&](const std::string& said) {
             // Kept, and there: the export's own folder, with its log.
             const auto kept = named(said, "The scratch folder ", " was kept; the log is quillora.log there");
             EXPECT_TRUE(std::filesystem::exists(kept / "quillora.log")) << said;
             EXPECT_EQ(kept.parent_path(), scratchDisk.path) << said;
         }},
        {"the destination's disk is full",
         [&] {
             if (!destinationDisk.mounted) return test::CommandResult{};
             writeText(destinationDisk.path / "out.m4b", kLastWeek);
             return bash(temporary, "$Q export" + big.arguments("png") + " --output " +
                                        shellQuote(destinationDisk.path / "out.m4b"));
         },
         1,
         {"No space left on device", "was left as it was", "The finished export was kept in "},
         false,
         [&](const std::string& said) {
             EXPECT_TRUE(std::filesystem::is_regular_file(named(said, "The finished export was kept in ", "\n")))
                 << said;
             // Nothing half-copied is left beside the destination.
             const auto left = std::distance(std::filesystem::directory_iterator(destinationDisk.path), {});
             EXPECT_EQ(left, 1);
         },
         destinationDisk.path / "out.m4b"},
        {"no --output and no terminal",
         [&] { return bash(temporary, "$Q export" + red.arguments() + " </dev/null"); },
         2,
         {"--output: needed when standard input is not a terminal", "Usage: quillora export"}},
        {"the prompt names an existing file",
         [&] {
             return test::runInTerminal("TMPDIR=" + shellQuote(temporary) + " " + kQuillora + " export" +
                                            red.arguments(),
                                        destination.string() + "\nn\n\x04");
         },
         0,
         {"already exists. Replace it? [y/N]", "Nothing was exported."},
         true,
         [&](const std::string&) {
             const auto replaced =
                 test::runInTerminal("TMPDIR=" + shellQuote(temporary) + " " + kQuillora + " export" + red.arguments(),
                                     destination.string() + "\ny\n");
             EXPECT_EQ(replaced.status, 0) << replaced.output;
             EXPECT_TRUE(allFramesAre(frameColours(destination), 0)) << replaced.output;
             writeText(destination, kLastWeek);
         }},
        {"a colour that is none",
         [&] {
             writeText(red.folder / "bogus.json", R"({"textTrackFontColor": "bogus"})");
             return bash(temporary, "$Q export" + red.arguments("bogus") + output);
         },
         2,
         {"bogus.json: \"textTrackFontColor\" is \"bogus\"; give a CSS colour name"},
         true,
         [&](const std::string&) {
             writeText(red.folder / "colours.json", R"({"supportForURL": true, "textTrackFontColor": "Tomato",
                                                       "textTrackBackgroundColor": "#0F08"})");
             const auto named = bash(temporary, "$Q export" + red.arguments("colours") + " --output " +
                                                    shellQuote(folder.path() / "colours.m4b"));
             EXPECT_EQ(named.status, 0) << named.output;
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(temporary);
        std::filesystem::create_directories(temporary);
        writeText(destination, kLastWeek);
        const auto result = c.run();
        if (result.status == -1 && result.output.empty()) {
            std::cout << "[  SKIPPED ] " << c.name << ": no small disk can be mounted here\n";
            continue;
        }
        EXPECT_EQ(result.status, c.status) << result.output;
        for (const auto& text : c.said) EXPECT_NE(result.output.find(text), std::string::npos) << result.output;
        EXPECT_EQ(readText(c.kept.empty() ? destination : c.kept), kLastWeek);
        if (c.nothingLeft) {
            std::string left;
            for (const auto& entry : std::filesystem::recursive_directory_iterator(temporary))
                left += entry.path().string() + "\n";
            EXPECT_EQ(left, "") << result.output;
        }
        if (c.more) c.more(result.output);
    }
}

}  // namespace
}  // namespace quillora
