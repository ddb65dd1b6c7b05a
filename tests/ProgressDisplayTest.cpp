// What a person sees of an export: on a terminal (a pseudo-terminal here) one
// live line with the stage, the slide count and a bar; through a pipe plain
// stage lines; the plug-in's log in a file, not on the screen.
#include <gtest/gtest.h>

#include "TestSupport.h"

namespace quillora {
namespace {

using test::shellQuote;

TEST(ProgressDisplay, LiveLineOnATerminalPlainLinesElsewhereAndTheLogInTheScratchFolder)
{
    test::TemporaryFolder folder;
    const auto recording = test::copyFixture("recording-moov-first.m4a", folder);
    test::copyFixture("slide.png", folder);
    test::copyFixture("slide.jpg", folder);
    const auto transitions = folder.path() / "transitions.json";
    const std::string json = R"([{"timeValue": 0, "slideTitle": "One", "imagePath": "slide.png"},
        {"timeValue": 900, "slideTitle": "Two", "imagePath": "slide.jpg",
         "linkURL": {"title": "More", "url": "https://example.org/more"}}])";
    test::writeFile(transitions, Bytes(json.begin(), json.end()));
    const auto defaults = folder.path() / "defaults.json";
    const std::string links = R"({"supportForURL": true, "textTrackFontSize": 12})";
    test::writeFile(defaults, Bytes(links.begin(), links.end()));
    const auto exportTo = [&](const std::string& name) {
        return shellQuote(std::string(QUILLORA_BINARY_DIR) + "/quillora") + " export --recording " +
               shellQuote(recording) + " --transitions " + shellQuote(transitions) + " --defaults " +
               shellQuote(defaults) + " --scratch " + shellQuote(folder.path() / name) + " --output " +
               shellQuote(folder.path() / (name + ".m4b"));
    };

    const auto live = test::runInTerminal(exportTo("terminal"));
    ASSERT_EQ(live.status, 0) << live.output;
    for (const char* shown : {"\r\x1b[K  Copying the recording", "Drawing the slides", "slide 2 of 2", "100%",
                              "Adding the chapters", "Adding the tags", "Copying to the destination"}) {
        EXPECT_NE(live.output.find(shown), std::string::npos) << shown << "\n" << live.output;
    }
    const auto plain = test::runCommand(exportTo("pipe"));
    ASSERT_EQ(plain.status, 0) << plain.output;
    for (const char* shown : {"\n  Copying the recording\n", "\n  Drawing the slides: slide 2 of 2\n",
                              "\n  Adding the slide pictures\n", "the log is quillora.log there"}) {
        EXPECT_NE(plain.output.find(shown), std::string::npos) << shown << "\n" << plain.output;
    }
    EXPECT_EQ(plain.output.find('\r'), std::string::npos) << plain.output;

    // The system log's lines are kept, but not shown.
    for (const auto& [name, output] : {std::pair{"terminal", live.output}, {"pipe", plain.output}}) {
        EXPECT_EQ(output.find("Atom debugging"), std::string::npos) << output;
        // Each export works in a folder of its own below --scratch.
        const auto exportFolder = *std::filesystem::directory_iterator(folder.path() / name);
        const Bytes log = test::readFile(exportFolder.path() / "quillora.log");
        EXPECT_NE(std::string(log.begin(), log.end()).find("Atom debugging is disabled"), std::string::npos);
    }
    // A slide without a link says so.
    EXPECT_NE(test::runQuillora("inspect " + shellQuote(folder.path() / "pipe.m4b")).output.find("  ->  (no link)"),
              std::string::npos);
}

}  // namespace
}  // namespace quillora
