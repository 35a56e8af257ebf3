#pragma once

#include <array>
#include <functional>
#include <string>

#include "desk/host/gralloc_buffer.h"

/// Luma, Cb and Cr of a scene at a point, in pixel indexes of the luma plane: pixel i has its centre at i.
using Scene = std::function<std::array<double, 3>(double x, double y)>;

/// A smooth scene that bilinear sampling meets to well under a level.
Scene SmoothScene();

/// The scene that a buffer itself shows, sample by sample; `left` and `top` are its first pixel.
Scene Copy(desk::GrallocBuffer& buffer, uint32_t left, uint32_t top);

/// Writes the scene into both planes; a chroma sample has its centre between its luma pixels.
void Paint(desk::GrallocBuffer& buffer, const Scene& scene);

struct Region {
    uint32_t left = 0;
    uint32_t top = 0;
    uint32_t right = 0;   ///< pixels left out at the right
    uint32_t bottom = 0;  ///< lines left out at the bottom
};

/// Compares both planes inside the region with the scene. An empty text when no byte differs by more than
/// `tolerance` levels; otherwise the first ten mismatches with their coordinates.
std::string Compare(desk::GrallocBuffer& buffer, const Scene& scene, double tolerance, Region without = {});
