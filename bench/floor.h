#pragma once

#include "host/lumnoderequest.h"

/// What a frame costs at the least: the node's GL calls, grid copy and mesh arithmetic, and nothing else.
namespace bench {

/// One frame over the null GL, sizes in pixels. Returns its mesh, which the next one changes: positions, then
/// texture coordinates, two floats for each vertex.
const float* FloorFrame(const IPEICAGridTransform& grid, int width, int height);

/// The formatting and writing calls of a frame's three dump lines, for the same numbers as the node's.
void DumpCallsFrame(const IPEICAGridTransform& grid, const float* mesh);

}  // namespace bench
