#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

namespace desk {

/// How many frames of this size, in pixels, a run may hold ahead of the one that is shown, beside what it
/// needs of memory anyhow: by what the machine has left, and by what this process may take. Negative when not
/// even that is there.
int64_t HeldFramesThatFit(cv::Size input);

}  // namespace desk
