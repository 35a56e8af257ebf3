#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <random>

namespace desk {

/// How a camera shakes. One seed gives one path, on every machine.
struct Shake {
    uint32_t seed = 1;
    double strength = 1;   ///< 1 is a hand that tries to hold still
    double readout = 0.6;  ///< share of the frame interval in which the rows are exposed, one after the other
};

/// Where a camera points at one moment, against one that stands still. Positions are pixel-index positions
/// relative to the centre of what they lie in: index i of a picture W wide lies at i - (W - 1) / 2.
struct CameraPose {
    double x = 0;      ///< scene pixels, to the right
    double y = 0;      ///< scene pixels, down
    double roll = 0;   ///< radians, from +x towards +y
    double scale = 1;  ///< scene pixels that a frame's pixel is wide
};

/// The scene's position scale * R(roll) p + (x, y), which a frame's position p shows.
cv::Point2d SceneOf(const CameraPose& pose, cv::Point2d frame);

/// The tremor of a hand in one direction: a sine wave in each band of 1 Hz, from 1 to 8 Hz.
struct Wave {
    double amplitude;
    double frequency;  ///< Hz
    double phase;      ///< radians
};
using Tremor = std::array<Wave, 7>;

/// A hand-held camera with a rolling shutter in front of a flat scene. Row y of frame n is exposed at
/// (n + readout * y / height) / framesPerSecond seconds, with the pose that the hand has then.
class ShakyCamera {
public:
    /// The shake grows with the height of the steady view, in pixels, so that it looks alike at every size:
    /// about 10 pixels RMS between two frames of a 1080-line clip at 30 per second for a strength of 1.
    ShakyCamera(const Shake& shake, cv::Size frameSize, int viewHeight, double framesPerSecond);

    /// The pose with which a row of a frame is exposed. The row is a pixel index, fractions and rows beyond
    /// the frame's edges included.
    CameraPose RowPose(int frame, double row) const;

    /// The frame's position that shows a position of the scene.
    cv::Point2d FrameOf(int frame, cv::Point2d scene) const;

    /// How large a picture has to be so that a view of the given size, moved by any pose, stays inside it:
    /// the scene around a shaky frame, or the frame around a steady view.
    cv::Size Reach(cv::Size view) const;

    /// Throws UsageError, naming the margin that would do, when a steady view may need more than the frame.
    void RequireRoom(cv::Size view) const;

private:
    cv::Size frameSize_;
    double framesPerSecond_;
    double readout_;
    Tremor x_{};
    Tremor y_{};
    Tremor roll_{};
};

}  // namespace desk
