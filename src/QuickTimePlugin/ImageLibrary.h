// libvips, started once per process by whoever needs pictures first.
#pragma once

namespace quillora {

// Starts libvips on the first call; every call answers whether it started.
// Thread-safe.
bool startImageLibrary();

}  // namespace quillora
