#pragma once

#include <cstddef>

namespace desk {

// The node's mesh, and the warp grid that it is made from: one more point on every side.
constexpr int CellColumns = 32;
constexpr int CellRows = 24;
constexpr int MeshColumns = CellColumns + 1;
constexpr int MeshRows = CellRows + 1;
constexpr int MeshVertices = MeshColumns * MeshRows;
constexpr int GridColumns = MeshColumns + 2;
constexpr int GridRows = MeshRows + 2;
constexpr int GridPoints = GridColumns * GridRows;
/// Of one of the mesh's arrays: two for each vertex.
constexpr size_t MeshFloats = size_t{2} * MeshVertices;

}  // namespace desk
