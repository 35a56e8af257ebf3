#pragma once

#include <cstdint>
#include <deque>
#include <opencv2/core.hpp>
#include <vector>

#include "desk/abi/node_types.h"
#include "desk/motion/frame_pose.h"
#include "host/lumnoderequest.h"

namespace desk {

/// A steady camera in place of a shaky one, frame by frame. Look-ahead: Gaussian smoothing of the poses
/// around, bent in good time where the margin does not hold it. Real time: it knows no frame that is still to
/// come, and smooths those that were exponentially.
class SteadyCamera {
public:
    /// `window` is the number of frames ahead, 0 in real time. Sizes of the node's input and output in
    /// pixels.
    SteadyCamera(Variant variant, int64_t window, cv::Size input, cv::Size output)
        : variant_(variant), window_(window), input_(input), output_(output) {}

    /// Where the shaky camera points in the next frame.
    void Add(const FramePose& shaky) {
        poses_.push_back(shaky);
    }

    /// What belongs to one frame.
    struct View {
        FramePose shaky;
        FramePose steady;
        IPEICAGridTransform grid{};  ///< with which the node shows what the steady camera sees
    };
    /// The next frame's; it was added, and so were as many frames after it as are seen ahead, unless the clip
    /// ends. All that the steady camera sees lies in the input.
    View Next();

private:
    FramePose SmoothAround() const;
    bool GiveWay(std::vector<FramePose>& path) const;
    FramePose SmoothSoFar(const FramePose& shaky);
    double MarginShare(const FramePose& shaky, const FramePose& steady) const;
    FramePose Inside(const FramePose& shaky, FramePose steady) const;

    Variant variant_;
    int64_t window_;
    cv::Size input_;
    cv::Size output_;
    std::deque<FramePose> poses_;  ///< of the shaky camera, no further back than the window
    int64_t oldest_ = 0;           ///< the frame of the first of them
    int64_t frame_ = 0;            ///< the next one
    FramePose mean_;               ///< in real time: of the poses up to now
    FramePose steady_;             ///< in the last frame
};

}  // namespace desk
