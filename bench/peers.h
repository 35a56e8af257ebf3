#pragma once

#include <functional>
#include <string>

#include "bench/picture.h"

/// What else warps an NV12 picture on this machine. Each is made for one size and one warp; a maker throws
/// std::runtime_error when what it stands for refuses.
namespace bench {

using Peer = std::function<void(const Nv12& input, Nv12& output)>;

/// The warp written straight to the machine's GL: two uploads, two draws of the mesh, two reads a frame, with
/// neither node nor desk between. Uses a context of its own, which is current only while it works.
Peer BareLoop(cv::Size size, const Shake& shake);
/// What that GL calls itself.
std::string Renderer();

/// OpenCV's remap with bilinear interpolation. Both planes' maps are made from the warp's grid for every
/// frame, as a stabiliser must, by linear interpolation inside of each cell.
Peer OpenCvRemap(cv::Size size, const Shake& shake);

/// vidstab's transform with bilinear interpolation. It takes no grid: one shift, angle and zoom per frame. It
/// has no NV12 either, so the chroma plane is parted before and joined after.
Peer VidStab(cv::Size size, const Shake& shake);

}  // namespace bench
