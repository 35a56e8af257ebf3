#pragma once

#include <cstdint>

/// The geometry of the warp, free of any GL.
///
/// A regular mesh of vertices covers the output; its texture coordinates carry the warp. Spaces:
///   grid point          input pixels about the input image's centre
///   texture coordinate  0 to 1 across the input image
///   clip space          -1 to 1 across the output image, row 0 of the mesh at -1
/// Vertex (row r, column c) is number r * numVerticesX + c and takes grid point (r + 1, c + 1): the grid has
/// a border of one point on every side that the mesh never reads.

struct DewarpMeshSizes {
    int numVerticesX;  ///< at least 2
    int numVerticesY;  ///< at least 2
    int inImageWidth;  ///< pixels
    int inImageHeight;
    int outImageWidth;
    int outImageHeight;
};

/// Fills 6 * cellsX * cellsY vertex numbers, two triangles of opposite winding per cell.
void GenerateMeshIndices(unsigned short* pIndices, int cellsX, int cellsY);

/// Fills positions and texture coordinates, two floats per vertex each. Nothing is clamped. Every float
/// operation is a single-precision one in the order written, so that all targets give the same bits.
/// @param pGrid        (numVerticesX + 2) * (numVerticesY + 2) points {x, y}
/// @param isGridUsed   true: texture coordinates from the grid; false: identity
void UpdateMesh(float* pVertices, float* pTexCoordinates, const float* pGrid, const DewarpMeshSizes& sizes,
                bool isGridUsed);
