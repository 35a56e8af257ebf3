#pragma once

#include <memory>
#include <vector>

#include "bench/picture.h"

/// What else warps an NV12 picture on this machine, through each library's own interface.
namespace bench {

/// OpenCV's remap with bilinear interpolation. Both planes' maps are made from the grid for every frame, as a
/// stabiliser must, by linear interpolation inside of each cell.
class OpenCvRemap {
public:
    OpenCvRemap(int width, int height);
    ~OpenCvRemap();
    void Frame(const Picture& input, const IPEICAGridTransform& grid, Picture& output);

    /// The luma map alone: x positions, then y positions, one of each per pixel, in input pixels.
    std::vector<float> LumaMap(const IPEICAGridTransform& grid);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// vidstab's transform with bilinear interpolation. It takes no grid: one shift, angle and zoom per frame. It
/// has no NV12 either, so the chroma plane is parted before and joined after.
class VidStab {
public:
    /// Throws std::runtime_error when the library refuses.
    VidStab(int width, int height);
    ~VidStab();
    void Frame(const Picture& input, const Shake& shake, Picture& output);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace bench
