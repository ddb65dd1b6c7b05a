// The fuzz targets' file: one file in memory for the whole run, named by a
// path the file layer can open, so nothing is left on disk (or in /dev/shm)
// whatever ends the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quillora::fuzz {

// Replaces the file's contents with the given bytes and returns its path.
std::string memoryFileWith(const std::uint8_t* data, std::size_t size);

}  // namespace quillora::fuzz
