#pragma once

#include "desk/demo/shaky_camera.h"
#include "host/lumnoderequest.h"

namespace desk {

/// Points of a warp grid: one more than the node's mesh of 33 x 25 vertices on every side.
constexpr int GridColumns = 35;
constexpr int GridRows = 27;

/// The warp grid with which the node undoes the camera's shake in one frame: the output then shows what a
/// camera that stands still sees. Enabled; the two dump values are the frame's width and height.
IPEICAGridTransform MakeWarpGrid(const ShakyCamera& camera, int frame);

}  // namespace desk
