#include "QuickTimePlugin/ImageLibrary.h"

#include <vips/vips.h>

#include "foundation/Log.h"

namespace quillora {

bool startImageLibrary()
{
    static const bool started = [] {
        if (VIPS_INIT("quillora") != 0) {
            logf("*** Unable to start the image library: {}", vips_error_buffer());
            vips_error_clear();
            return false;
        }
        // Pictures are rewritten in place and read again in the same process;
        // a cached load would hand back the old file's pixels. Caching also
        // keeps decoded pictures alive, and ours are each used once.
        vips_cache_set_max(0);
        return true;
    }();
    return started;
}

}  // namespace quillora
