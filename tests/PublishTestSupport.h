// Helpers for the companion-file tests: a small lecture to publish, an MP3
// made by ffmpeg, and a headless browser reading pages over a local server.
#pragma once

#include <filesystem>
#include <string>

#include "TestSupport.h"
#include "publish/PublishedLecture.h"

namespace quillora::test {

// Three chapters over 10 s: a JPEG slide with a link, a PNG slide, and one
// without picture or link; titles and tags that need escaping.
publish::PublishedLecture sampleLecture();

// A sine tone of that length, encoded by ffmpeg.
std::filesystem::path makeMp3(const TemporaryFolder& folder, const std::string& name, int seconds);

bool chromiumInstalled();

// Python's http.server over a folder on a free loopback port, for as long as
// this lives (and two minutes at most).
class LocalWebServer {
public:
    explicit LocalWebServer(const std::filesystem::path& folder);
    ~LocalWebServer();
    LocalWebServer(const LocalWebServer&) = delete;
    LocalWebServer& operator=(const LocalWebServer&) = delete;
    std::string url(const std::string& path) const;

private:
    int port_ = 0;
    int pid_ = -1;
};

// The page's DOM after its scripts ran (headless chromium, virtual time, one
// minute at most), with a fresh profile inside folder.
std::string renderedDom(const std::string& url, const TemporaryFolder& folder);

// The text of the element with that id in a serialized DOM, its & < > " read back.
std::string elementText(const std::string& dom, const std::string& id);

}  // namespace quillora::test
