#include "toolbox/Handles.h"

#include <cstring>

namespace quillora::toolbox {

namespace {

thread_local OSErr lastMemoryError = noErr;

Handle allocate(std::size_t size)
{
    if (size > kMaximumHandleSize) {
        lastMemoryError = memFullErr;
        return nullptr;
    }
    lastMemoryError = noErr;
    auto handle = std::make_shared<HandleBlock>();
    handle->bytes.resize(size);
    return handle;
}

}  // namespace

Handle NewHandle(std::size_t size)
{
    return allocate(size);
}

Handle NewHandleClear(std::size_t size)
{
    return allocate(size);  // the bytes of a new vector are zero
}

void DisposeHandle(Handle& handle)
{
    handle.reset();
}

std::size_t GetHandleSize(const Handle& handle)
{
    return handle ? handle->bytes.size() : 0;
}

void SetHandleSize(const Handle& handle, std::size_t size)
{
    if (!handle) {
        lastMemoryError = nilHandleErr;
        return;
    }
    if (size > kMaximumHandleSize) {
        lastMemoryError = memFullErr;
        return;
    }
    handle->bytes.resize(size);
    lastMemoryError = noErr;
}

OSErr PtrAndHand(const void* data, const Handle& handle, std::size_t size)
{
    const std::size_t old = GetHandleSize(handle);
    SetHandleSize(handle, old + size);
    if (lastMemoryError == noErr && size > 0) std::memcpy(handle->bytes.data() + old, data, size);
    return lastMemoryError;
}

OSErr MemError()
{
    return lastMemoryError;
}

HandleState HGetState(const Handle& handle)
{
    return handle && handle->locked;
}

void HSetState(const Handle& handle, HandleState state)
{
    if (handle) handle->locked = state;
}

void HLock(const Handle& handle)
{
    HSetState(handle, true);
}

}  // namespace quillora::toolbox
