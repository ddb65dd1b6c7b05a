// Memory handles as the movie toolbox passes data around: a resizable block
// of bytes with a lock state. MemError answers for the last call here.
#pragma once

#include <cstdint>
#include <memory>

#include "foundation/Bytes.h"
#include "toolbox/Movie.h"

namespace quillora::toolbox {

struct HandleBlock {
    Bytes bytes;
    bool locked = false;
};
using Handle = std::shared_ptr<HandleBlock>;

inline constexpr OSErr noErr = 0;
inline constexpr OSErr paramErr = -50;
inline constexpr OSErr memFullErr = -108;
inline constexpr OSErr nilHandleErr = -109;

// Handles larger than this are refused, as a full memory would refuse them.
inline constexpr std::size_t kMaximumHandleSize = std::size_t{1} << 30;

Handle NewHandle(std::size_t size);
Handle NewHandleClear(std::size_t size);
void DisposeHandle(Handle& handle);
std::size_t GetHandleSize(const Handle& handle);
void SetHandleSize(const Handle& handle, std::size_t size);
// Appends size bytes at data to the handle.
OSErr PtrAndHand(const void* data, const Handle& handle, std::size_t size);
OSErr MemError();

using HandleState = bool;
HandleState HGetState(const Handle& handle);
void HSetState(const Handle& handle, HandleState state);
void HLock(const Handle& handle);

}  // namespace quillora::toolbox
