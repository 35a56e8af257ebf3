#pragma once

#include <cstdint>
#include <limits>

namespace desk {

/// Frames first to end - 1 of a clip, counted from 0.
struct FrameRange {
    int64_t first = 0;
    int64_t end = std::numeric_limits<int64_t>::max();
};

}  // namespace desk
