#pragma once

#include <complex>
#include <vector>

#include "desk/tool/results.h"

namespace desk {

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
