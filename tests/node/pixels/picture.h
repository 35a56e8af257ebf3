#pragma once

#include <array>
#include <functional>
#include <string>

#include "desk/host/gralloc_buffer.h"

/// Luma, Cb and Cr of a scene at a point, in pixel indexes of the luma plane: pixel i has its centre at i.
using Scene = std::function<std::array<double, 3>(double x, double y)>;

/// Writes the scene into both planes; a chroma sample has its centre between its luma pixels.
void Paint(desk::GrallocBuffer& buffer, const Scene& scene);

/// Compares both planes with the scene. An empty text when no byte differs by more than `tolerance` levels;
/// otherwise the first ten mismatches with their coordinates.
std::string Compare(desk::GrallocBuffer& buffer, const Scene& scene, double tolerance);
