#include "node/dewarp/gpu/gpumesh.h"

#include "utils/checked.h"

void GenerateMeshIndices(unsigned short* pIndices, int cellsX, int cellsY) {
    const int rowLength = Orba::CheckedAdd(cellsX, 1);
    for (int r = 0; r < cellsY; ++r) {
        for (int c = 0; c < cellsX; ++c) {
            const int base = Orba::CheckedMul(6, Orba::CheckedAdd(Orba::CheckedMul(r, cellsX), c));
            const int bottomLeft = Orba::CheckedAdd(Orba::CheckedMul(r, rowLength), c);
            const int topLeft = Orba::CheckedAdd(bottomLeft, rowLength);
            const int bottomRight = Orba::CheckedAdd(bottomLeft, 1);
            const int topRight = Orba::CheckedAdd(topLeft, 1);
            const int corners[] = {bottomLeft, topLeft, bottomRight, topLeft, bottomRight, topRight};
            for (int i = 0; i < 6; ++i) {
                pIndices[Orba::CheckedAdd(base, i)] = static_cast<unsigned short>(corners[i]);
            }
        }
    }
}

namespace {

/// The constants of one axis of the mesh.
struct MeshAxis {
    MeshAxis(int inSize, int outSize, int numVertices)
        : halfTexel(static_cast<float>(-0.5 / inSize)),
          scale(static_cast<float>(inSize) / static_cast<float>(outSize)),
          size(static_cast<float>(inSize)),
          centre((static_cast<float>(inSize) - 1.0F) / 2.0F),
          cells(static_cast<float>(Orba::CheckedSub(numVertices, 1))) {}

    /// Where vertex `index` of the axis lies between its ends, 0 to 1.
    float Fraction(int index) const {
        return static_cast<float>(index) / cells;
    }
    /// Clip-space position of a fraction.
    float Position(float fraction) const {
        return scale * (-1.0F + 2.0F * (halfTexel + fraction));
    }
    /// Texture coordinate of a fraction: the identity.
    static float FromFraction(float fraction) {
        return 0.0F + 1.0F * fraction;
    }
    /// Texture coordinate of a grid value.
    float FromGrid(float grid) const {
        return 0.0F + 1.0F * ((grid + centre) / size);
    }

    float halfTexel;  ///< divided in double precision, then rounded
    float scale;
    float size;
    float centre;
    float cells;
};

/// Vertices across that there is room for; the engine's mesh has 33.
constexpr uint32_t MaxVerticesX = 64;

// The rows below are what a frame costs. They are plain loops over arrays that do not overlap, so that the
// compiler makes vector code of them; every lane does the operations of one float in the order written.

/// A row of pairs {x[column], y}.
inline void FillRow(float* __restrict pRow, const float* __restrict x, float y, int columns) {
    for (int c = 0; c < columns; ++c) {
        pRow[2 * c] = x[c];
        pRow[2 * c + 1] = y;
    }
}

/// A row of texture coordinates from the grid's points.
inline void WarpRow(float* __restrict pRow, const float* __restrict pPoint, const MeshAxis& x,
                    const MeshAxis& y, int columns) {
    for (int c = 0; c < columns; ++c) {
        pRow[2 * c] = x.FromGrid(pPoint[2 * c]);
        pRow[2 * c + 1] = y.FromGrid(pPoint[2 * c + 1]);
    }
}

/// UpdateMesh for a mesh of `columns` vertices across. Row by row through both arrays: the stores of the one
/// then pass while the divisions of the other are under way, a fifth of the time.
inline void UpdateRows(float* __restrict pVertices, float* __restrict pTexCoordinates,
                       const float* __restrict pGrid, const DewarpMeshSizes& sizes, bool isGridUsed,
                       int columns) {
    const int rows = sizes.numVerticesY;
    const MeshAxis x(sizes.inImageWidth, sizes.outImageWidth, columns);
    const MeshAxis y(sizes.inImageHeight, sizes.outImageHeight, rows);
    float positions[MaxVerticesX];
    float fractions[MaxVerticesX];
    for (int c = 0; c < columns; ++c) {
        positions[c] = x.Position(x.Fraction(c));
        fractions[c] = MeshAxis::FromFraction(x.Fraction(c));
    }
    const int row = 2 * columns;
    const int gridRow = row + 4;
    const float* pPoint = pGrid + gridRow + 2;
    for (int r = 0; r < rows; ++r, pVertices += row, pTexCoordinates += row, pPoint += gridRow) {
        FillRow(pVertices, positions, y.Position(y.Fraction(r)), columns);
        if (isGridUsed) {
            WarpRow(pTexCoordinates, pPoint, x, y, columns);
        } else {
            FillRow(pTexCoordinates, fractions, MeshAxis::FromFraction(y.Fraction(r)), columns);
        }
    }
}

}  // namespace

void UpdateMesh(float* pVertices, float* pTexCoordinates, const float* pGrid, const DewarpMeshSizes& sizes,
                bool isGridUsed) {
    // The grid is the largest of the three arrays: where its last float has a place, all have.
    Orba::CheckedMul(2, Orba::CheckedMul(Orba::CheckedAdd(sizes.numVerticesX, 2),
                                         Orba::CheckedAdd(sizes.numVerticesY, 2)));
    Orba::CheckedIndex(static_cast<uint32_t>(sizes.numVerticesX), MaxVerticesX + 1);
    constexpr int engineColumns = 33;
    if (sizes.numVerticesX == engineColumns) {
        // The same with a known count: the compiler then needs no remainder loops, half the instructions.
        UpdateRows(pVertices, pTexCoordinates, pGrid, sizes, isGridUsed, engineColumns);
    } else {
        UpdateRows(pVertices, pTexCoordinates, pGrid, sizes, isGridUsed, sizes.numVerticesX);
    }
}
