#include "MemoryFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace quillora::fuzz {

std::string memoryFileWith(const std::uint8_t* data, std::size_t size)
{
    static const int fd = memfd_create("quillora-fuzz", 0);
    if (fd < 0 || ftruncate(fd, 0) != 0) std::abort();
    for (std::size_t written = 0; written < size;) {
        const ssize_t count = pwrite(fd, data + written, size - written, static_cast<off_t>(written));
        if (count <= 0) std::abort();
        written += static_cast<std::size_t>(count);
    }
    return "/proc/self/fd/" + std::to_string(fd);
}

}  // namespace quillora::fuzz
