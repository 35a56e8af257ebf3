#pragma once

#include <functional>
#include <opencv2/core.hpp>

#include "desk/clip/nv12.h"
#include "desk/synth/shaky_camera.h"
#include "desk/warp/warp_map.h"

/// What else warps an NV12 picture on this machine. Each is made for one size and one warp; a maker throws
/// std::runtime_error when what it stands for refuses.
namespace bench {

using desk::GridColumns;
using desk::MeshColumns;
using desk::MeshRows;
using desk::Nv12;

/// The warp with which everyone shows what a camera of that pose would: a roll, a shift and a zoom, which
/// even those can render who take no grid. The pose is about the image's centre, the grid for pictures of the
/// size.
inline IPEICAGridTransform MakeGrid(const desk::CameraPose& pose, cv::Size size) {
    const cv::Point2d half(0.5, 0.5);
    return desk::MakeGrid(size, [=](cv::Point2d at) { return SceneOf(pose, at + half) - half; });
}

using Peer = std::function<void(const Nv12& input, Nv12& output)>;

/// The warp written straight to the machine's GL: two uploads, two draws of the mesh, two reads a frame, with
/// neither node nor desk between. Uses a context of its own, which is current only while it works.
Peer BareLoop(cv::Size size, const desk::CameraPose& pose);

/// OpenCV's remap with bilinear interpolation. Both planes' maps are made from the warp's grid for every
/// frame, as a stabiliser must, by linear interpolation inside of each cell.
Peer OpenCvRemap(cv::Size size, const desk::CameraPose& pose);

/// vidstab's transform with bilinear interpolation. It takes no grid: one shift, angle and zoom per frame. It
/// has no NV12 either, so the chroma plane is parted before and joined after.
Peer VidStab(cv::Size size, const desk::CameraPose& pose);

}  // namespace bench
