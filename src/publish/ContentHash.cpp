#include "publish/ContentHash.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "publish/PublishError.h"

extern "C" {
#include <libavutil/hash.h>
}

namespace quillora::publish {

namespace {

class Sha256 {
public:
    Sha256()
    {
        if (av_hash_alloc(&context_, "SHA256") < 0 || !context_) throw PublishError("SHA-256 is not available");
        av_hash_init(context_);
    }
    ~Sha256() { av_hash_freep(&context_); }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void add(const char* data, std::size_t size)
    {
        av_hash_update(context_, reinterpret_cast<const std::uint8_t*>(data), size);
    }
    std::string hex()
    {
        std::array<std::uint8_t, 2 * 32 + 1> text{};
        av_hash_final_hex(context_, text.data(), static_cast<int>(text.size()));
        return reinterpret_cast<const char*>(text.data());
    }

private:
    AVHashContext* context_ = nullptr;
};

}  // namespace

std::string sha256OfText(std::string_view text)
{
    Sha256 hash;
    hash.add(text.data(), text.size());
    return hash.hex();
}

std::string sha256OfFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) throw PublishError(fmt::format("{} cannot be read: {}", path.string(), std::strerror(errno)));
    Sha256 hash;
    auto buffer = std::make_unique<char[]>(1 << 20);
    while (in) {
        in.read(buffer.get(), 1 << 20);
        hash.add(buffer.get(), static_cast<std::size_t>(in.gcount()));
    }
    if (in.bad()) throw PublishError(fmt::format("{} cannot be read to the end", path.string()));
    return hash.hex();
}

}  // namespace quillora::publish
