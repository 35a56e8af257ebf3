#include "desk/tool/camera_path.h"

#include <algorithm>
#include <cmath>

namespace desk {

void CameraPath::Add(const CameraPlace& place) {
    places_.push_back(place);
    if (static_cast<int64_t>(places_.size()) > kept_) {
        places_.pop_front();
        first_++;
    }
}

CameraPlace CameraPath::Smooth(int64_t frame, int64_t window) const {
    const int64_t start = std::max(frame - window, first_);
    const int64_t end = std::min(frame + window + 1, Frames());
    // Where the clip begins or ends, fewer frames have to even out the same shake: the far ones weigh more.
    const double missing = static_cast<double>(2 * window + 1) / static_cast<double>(end - start);
    const double deviation = std::max(static_cast<double>(window) / 2, 0.5) * missing;
    CameraPlace sum;
    double weights = 0;
    for (int64_t i = start; i < end; i++) {
        const double distance = static_cast<double>(i - frame) / deviation;
        const double weight = std::exp(-distance * distance / 2);
        sum = sum + weight * At(i);
        weights += weight;
    }
    return (1 / weights) * sum;
}

}  // namespace desk
