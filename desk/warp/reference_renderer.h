#pragma once

#include <opencv2/core.hpp>

#include "desk/clip/nv12.h"
#include "desk/warp/warp_map.h"

namespace desk {

/// Renders on the CPU, in double precision, what the node should: every sample of either plane at its own
/// centre, linear between the four input samples around it, the input's edge repeated beyond it, and 0 where
/// the mesh does not reach. The pictures have the map's sizes.
void RenderReference(const WarpMap& map, const Nv12& input, Nv12& output);

/// Which samples of a plane lie on the mesh, one output pixel inside its edge or more: 255, others 0. 8-bit.
/// `samplePitch` is 1 for luma, 2 for chroma; the plane has `size` samples.
cv::Mat CoverageMask(const WarpMap& map, cv::Size size, int samplePitch);

}  // namespace desk
