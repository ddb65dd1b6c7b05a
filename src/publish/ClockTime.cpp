#include "publish/ClockTime.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>

namespace quillora::publish {

std::string clockTime(double seconds)
{
    const auto milliseconds = seconds > 0 ? static_cast<std::int64_t>(std::llround(seconds * 1000)) : 0;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", milliseconds / 3600000, milliseconds / 60000 % 60,
                       milliseconds / 1000 % 60, milliseconds % 1000);
}

}  // namespace quillora::publish
