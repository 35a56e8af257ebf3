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

}  // namespace

void UpdateMesh(float* pVertices, float* pTexCoordinates, const float* pGrid, const DewarpMeshSizes& sizes,
                bool isGridUsed) {
    const MeshAxis x(sizes.inImageWidth, sizes.outImageWidth, sizes.numVerticesX);
    const MeshAxis y(sizes.inImageHeight, sizes.outImageHeight, sizes.numVerticesY);
    const int gridRowLength = Orba::CheckedAdd(sizes.numVerticesX, 2);
    for (int r = 0; r < sizes.numVerticesY; ++r) {
        const float v = y.Fraction(r);
        const float positionY = y.Position(v);
        const int firstVertex = Orba::CheckedMul(2, Orba::CheckedMul(r, sizes.numVerticesX));
        const int firstGrid =
            Orba::CheckedMul(2, Orba::CheckedAdd(Orba::CheckedMul(Orba::CheckedAdd(r, 1), gridRowLength), 1));
        float* pPosition = pVertices + firstVertex;
        float* pTexCoordinate = pTexCoordinates + firstVertex;
        const float* pPoint = pGrid + firstGrid;
        for (int c = 0; c < sizes.numVerticesX; ++c) {
            const float u = x.Fraction(c);
            const float gridX = pPoint[2 * c];
            const float gridY = pPoint[2 * c + 1];
            pPosition[2 * c] = x.Position(u);
            pPosition[2 * c + 1] = positionY;
            pTexCoordinate[2 * c] = isGridUsed ? x.FromGrid(gridX) : 0.0F + 1.0F * u;
            pTexCoordinate[2 * c + 1] = isGridUsed ? y.FromGrid(gridY) : 0.0F + 1.0F * v;
        }
    }
}
