#pragma once

#include <complex>
#include <vector>

namespace desk {

/// Where the camera looks in a frame, against the first frame. Rows are exposed one after the other, so shift
/// and roll change down the rows: the middle row has those of the place, y rows below it the shift is larger
/// by y * shiftPerRow + y * y * shiftBend, and the roll by y * rollPerRow.
struct CameraPlace {
    std::complex<double> turn;         ///< log(scale) + i roll
    std::complex<double> shift;        ///< x + i y, input pixels
    std::complex<double> shiftPerRow;  ///< pixels per row
    std::complex<double> shiftBend;    ///< pixels per row and row
    double rollPerRow = 0;             ///< radians per row
};

/// A position x + i y in pixels about the middle of a picture.
using Position = std::complex<double>;

/// The position in the first frame, or beyond it, of what a camera at the place shows at a position of its
/// frame.
Position SceneOf(const CameraPlace& place, Position frame);

/// The other way round.
Position FrameOf(const CameraPlace& place, Position scene);

/// The place that fits best, by least squares, when the frame's positions show those of the scene. Pairs
/// count by their weight, which is 1 for one as good as others. Few or crowded pairs leave what they cannot
/// tell at zero. `height` is the frame's, in pixels. There are at least 3 pairs.
CameraPlace FitPlace(const std::vector<Position>& frame, const std::vector<Position>& scene,
                     const std::vector<double>& weights, double height);

/// Places can be weighted and added: a mean of places is a place.
CameraPlace operator+(const CameraPlace& a, const CameraPlace& b);
CameraPlace operator*(double weight, const CameraPlace& place);

}  // namespace desk
