#pragma once

#include <opencv2/core.hpp>

#include "desk/tool/truth/hand_shake.h"

namespace desk {

/// A hand-held camera with a rolling shutter in front of a flat scene. Row y of frame n is exposed at
/// (n + readout * y / height) / framesPerSecond seconds, with the pose that the hand has then.
///
/// Positions are pixel-index positions relative to the centre of what they lie in: index i of a picture W
/// wide lies at i - (W - 1) / 2. A frame's position p shows the scene's position R(roll) p + (x, y); one
/// frame pixel is one scene pixel.
class ShakyCamera {
public:
    static constexpr double UsualReadout = 0.6;  ///< share of the frame interval

    ShakyCamera(const HandShake& shake, cv::Size frameSize, double framesPerSecond,
                double readout = UsualReadout);

    cv::Size FrameSize() const {
        return frameSize_;
    }

    /// The pose with which a row of a frame is exposed. The row is a pixel index, fractions and rows beyond
    /// the frame's edges included.
    CameraPose RowPose(int frame, double row) const;

    /// The frame's position that shows the scene's position q.
    cv::Point2d FromScene(int frame, cv::Point2d q) const;

    /// How large a picture has to be so that a view of the given size, moved by any pose up to the bound,
    /// stays inside it: the scene around a shaky frame, or the frame around a steady output.
    static cv::Size Reach(cv::Size view, const CameraPose& bound);

    /// Throws UsageError, naming the margin that would do, when steadying the output may need more
    /// than the input.
    static void RequireRoom(cv::Size input, cv::Size output, const CameraPose& bound);

private:
    HandShake shake_;
    cv::Size frameSize_;
    double framesPerSecond_;
    double readout_;
};

}  // namespace desk
