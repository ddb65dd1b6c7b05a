#include "PublishTestSupport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace quillora::test {

publish::PublishedLecture sampleLecture()
{
    publish::PublishedLecture lecture;
    lecture.duration = 10;
    lecture.chapters = {
        {0, 3.5, "Welcome & <overview>", "https://example.org/course?week=3&part=1", "Course page",
         fixture("slide.jpg")},
        {3.5, 7.25, "Fourier séries \"done\"", std::nullopt, std::nullopt, fixture("slide.png")},
        {7.25, 10, "Questions", std::nullopt, std::nullopt, std::nullopt},
    };
    lecture.tags = Value::dictionary({{"title", "Signals & <Systems>"},
                                      {"author", "Ada Lovelace"},
                                      {"class name", "Signals"},
                                      {"class number", "3"},
                                      {"university", "Example University"},
                                      {"copyright", "© 2024 Example"},
                                      {"description", "Sampling, aliasing & transforms"}});
    return lecture;
}

std::filesystem::path makeMp3(const TemporaryFolder& folder, const std::string& name, int seconds)
{
    const auto path = folder.path() / name;
    const auto made =
        runCommand("ffmpeg -nostdin -v error -f lavfi -i sine=frequency=440:duration=" + std::to_string(seconds) +
                   " -c:a libmp3lame -b:a 64k " + shellQuote(path.string()));
    if (made.status != 0) throw std::runtime_error("ffmpeg could not make an MP3: " + made.output);
    return path;
}

bool chromiumInstalled()
{
    return std::filesystem::exists("/usr/bin/chromium");
}

namespace {

int freeLoopbackPort()
{
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(socket);
        throw std::runtime_error("no free loopback port");
    }
    ::close(socket);
    return ntohs(address.sin_port);
}

bool accepting(int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected = ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return connected;
}

}  // namespace

LocalWebServer::LocalWebServer(const std::filesystem::path& folder) : port_(freeLoopbackPort())
{
    const std::string port = std::to_string(port_);
    pid_ = ::fork();
    if (pid_ == 0) {
        std::freopen("/dev/null", "w", stdout);
        std::freopen("/dev/null", "w", stderr);
        ::execl("/usr/bin/timeout", "timeout", "120", "/usr/bin/python3", "-m", "http.server", port.c_str(), "--bind",
                "127.0.0.1", "--directory", folder.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    if (pid_ < 0) throw std::runtime_error("cannot start the web server");
    for (int attempt = 0; attempt < 100 && !accepting(port_); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

LocalWebServer::~LocalWebServer()
{
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
}

std::string LocalWebServer::url(const std::string& path) const
{
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + path;
}

std::string renderedDom(const std::string& url, const TemporaryFolder& folder)
{
    const auto profile = folder.path() / "chromium-profile";
    const auto result = runCommand(
        "( timeout 60 /usr/bin/chromium --headless --no-sandbox --disable-gpu --disable-background-networking "
        "--disable-component-update --disable-sync --no-first-run --user-data-dir=" +
        shellQuote(profile.string()) + " --virtual-time-budget=10000 --dump-dom " + shellQuote(url) + " 2>/dev/null )");
    return result.output;
}

std::string elementText(const std::string& dom, const std::string& id)
{
    const auto tag = dom.find("id=\"" + id + "\"");
    if (tag == std::string::npos) return {};
    const auto start = dom.find('>', tag) + 1;
    std::string text = dom.substr(start, dom.find("</", start) - start);
    for (const auto& [entity, character] : {std::pair{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&amp;", "&"}}) {
        for (auto at = text.find(entity); at != std::string::npos; at = text.find(entity, at + 1)) {
            text.replace(at, std::string_view(entity).size(), character);
        }
    }
    return text;
}

}  // namespace quillora::test
