#include "ProgramFolder.h"

namespace quillora::app {

std::optional<std::filesystem::path> programPath()
{
    std::error_code error;
    auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return std::nullopt;
    return program;
}

std::optional<std::filesystem::path> programFolder()
{
    const auto program = programPath();
    if (!program) return std::nullopt;
    return program->parent_path();
}

}  // namespace quillora::app
