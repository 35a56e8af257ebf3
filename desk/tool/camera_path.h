#pragma once

#include <cstdint>
#include <deque>

#include "desk/tool/camera_place.h"

namespace desk {

/// Where the camera looked in the latest frames, one place a frame.
class CameraPath {
public:
    /// Only the last `kept` places are remembered.
    explicit CameraPath(int64_t kept) : kept_(kept) {}

    /// The next frame's.
    void Add(const CameraPlace& place);

    /// Number of frames added.
    int64_t Frames() const {
        return first_ + static_cast<int64_t>(places_.size());
    }

    /// A frame that is remembered.
    const CameraPlace& At(int64_t frame) const {
        return places_[static_cast<size_t>(frame - first_)];
    }

    /// The mean of the places up to `window` frames away, the near ones weighing most.
    CameraPlace Smooth(int64_t frame, int64_t window) const;

private:
    int64_t kept_;
    int64_t first_ = 0;  ///< frame of the oldest place
    std::deque<CameraPlace> places_;
};

}  // namespace desk
