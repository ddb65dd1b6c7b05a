#include "ProgramFolder.h"

namespace quillora::app {

std::optional<std::filesystem::path> programFolder()
{
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return std::nullopt;
    return program.parent_path();
}

}  // namespace quillora::app
