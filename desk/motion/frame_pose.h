#pragma once

#include <complex>
#include <vector>

namespace desk {

/// A position x + i y in pixels about the middle of a picture.
using Position = std::complex<double>;

/// Where the camera points during a frame, against the first frame. Rows are exposed one after the other, so
/// shift and roll change down the rows: the middle row has those of the pose, y rows below it the shift is
/// larger by y * shiftPerRow + y * y * shiftBend, and the roll by y * rollPerRow.
struct FramePose {
    std::complex<double> turn;         ///< log(scale) + i roll
    std::complex<double> shift;        ///< x + i y, input pixels
    std::complex<double> shiftPerRow;  ///< pixels per row
    std::complex<double> shiftBend;    ///< pixels per row and row
    double rollPerRow = 0;             ///< radians per row
};

/// The position in the first frame, or beyond it, of what a camera with the pose shows at a position of its
/// frame.
Position SceneOf(const FramePose& pose, Position frame);

/// The other way round.
Position FrameOf(const FramePose& pose, Position scene);

/// The pose for which the frame's positions show those of the scene best, by weighted ridge regression. Pairs
/// count by their weight, which is 1 for one as good as others. Few or crowded pairs leave what they cannot
/// tell at zero. `height` is the frame's, in pixels. There are at least 3 pairs.
FramePose FitPose(const std::vector<Position>& frame, const std::vector<Position>& scene,
                  const std::vector<double>& weights, double height);

/// The pose and a multiple of another, number by number.
FramePose Plus(const FramePose& pose, double times, const FramePose& other);

/// The pose a share of the way from one to another.
FramePose Between(const FramePose& from, const FramePose& to, double share);

}  // namespace desk
