#pragma once

#include <cstdint>
#include <vector>

#include "desk/warp/grid_size.h"
#include "host/lumnoderequest.h"

/// The frames and the warp that everyone who renders a real picture is measured with.
namespace bench {

using desk::GridColumns;
using desk::MeshColumns;
using desk::MeshRows;

/// One NV12 frame without padding; even sizes.
struct Picture {
    Picture(int w, int h)
        : width(w),
          height(h),
          luma(static_cast<size_t>(w) * static_cast<size_t>(h)),
          chroma(luma.size() / 2) {}
    int width;
    int height;
    std::vector<uint8_t> luma;
    std::vector<uint8_t> chroma;  ///< CbCr pairs, half the size each way
};

/// A camera's small roll, shift and zoom: a warp that even those can render who take no grid. About the
/// image's centre, an output pixel shows what lies at zoom * rotation * pixel + shift of the input.
struct Shake {
    double angle = 0.01;  ///< radians
    double zoom = 0.9;
    double shiftX = 7.25;  ///< pixels
    double shiftY = -4.5;
};

/// A picture of waves, detailed enough to tell a good interpolation from a bad one.
Picture MakeScene(int width, int height);

/// The shake as a warp grid for pictures of the size.
IPEICAGridTransform MakeGrid(const Shake& shake, int width, int height);

/// Peak signal-to-noise ratio of luma and chroma together, dB, without a border of an eighth on every side;
/// 99 for equal pictures.
double Psnr(const Picture& a, const Picture& b);

}  // namespace bench
