#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>

namespace desk {

/// How many frames of this size, in pixels, a run with so many requests in flight may hold ahead of the one
/// that is shown: by what is left of the machine's memory, and by what this process may take. Negative when
/// it may not even hold that one.
int64_t HeldFramesThatFit(cv::Size input, size_t inFlight);

}  // namespace desk
