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

/// Rows of pairs {across(column), down(row)}.
template <typename Across, typename Down>
inline void FillRows(float* __restrict pRow, int columns, int rows, const Across& across, const Down& down) {
    float x[MaxVerticesX];
    for (int c = 0; c < columns; ++c) {
        x[c] = across(c);
    }
    for (int r = 0; r < rows; ++r, pRow += 2 * columns) {
        const float y = down(r);
        for (int c = 0; c < columns; ++c) {
            pRow[2 * c] = x[c];
            pRow[2 * c + 1] = y;
        }
    }
}

/// Rows of texture coordinates from the grid's inner points.
inline void WarpRows(float* __restrict pRow, const float* __restrict pGrid, int columns, int rows,
                     const MeshAxis& x, const MeshAxis& y) {
    const int gridRow = 2 * (columns + 2);
    const float* pPoint = pGrid + gridRow + 2;
    for (int r = 0; r < rows; ++r, pRow += 2 * columns, pPoint += gridRow) {
        for (int c = 0; c < columns; ++c) {
            pRow[2 * c] = x.FromGrid(pPoint[2 * c]);
            pRow[2 * c + 1] = y.FromGrid(pPoint[2 * c + 1]);
        }
    }
}

/// UpdateMesh for a mesh of `columns` vertices across.
inline void UpdateRows(float* pVertices, float* pTexCoordinates, const float* pGrid,
                       const DewarpMeshSizes& sizes, bool isGridUsed, int columns) {
    const int rows = sizes.numVerticesY;
    const MeshAxis x(sizes.inImageWidth, sizes.outImageWidth, columns);
    const MeshAxis y(sizes.inImageHeight, sizes.outImageHeight, rows);
    FillRows(
        pVertices, columns, rows, [&x](int c) { return x.Position(x.Fraction(c)); },
        [&y](int r) { return y.Position(y.Fraction(r)); });
    if (isGridUsed) {
        WarpRows(pTexCoordinates, pGrid, columns, rows, x, y);
    } else {
        FillRows(
            pTexCoordinates, columns, rows, [&x](int c) { return MeshAxis::FromFraction(x.Fraction(c)); },
            [&y](int r) { return MeshAxis::FromFraction(y.Fraction(r)); });
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
