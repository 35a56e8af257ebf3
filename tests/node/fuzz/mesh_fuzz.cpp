// Warp grids of any bits through the mesh arithmetic, against the same geometry in long double.

#include <cmath>
#include <limits>
#include <vector>

#include "node/dewarp/gpu/gpumesh.h"
#include "tests/support/fuzz.h"

namespace {

/// Whether a value of single precision is the exact one within the rounding of a few operations, whose
/// largest intermediate value is `reach`. Beyond the range of single precision anything but a number in it
/// will do.
bool IsClose(float value, long double exact, long double reach) {
    constexpr long double largest = std::numeric_limits<float>::max();
    if (std::isnan(exact)) {
        return std::isnan(value);
    }
    if (!(reach < largest / 4)) {
        return true;
    }
    constexpr long double epsilon = std::numeric_limits<float>::epsilon();
    return std::abs(static_cast<long double>(value) - exact) <=
           4 * epsilon * reach + std::numeric_limits<float>::min();
}

struct Axis {
    int in;
    int out;
    int vertices;

    void Check(float position, float texCoordinate, int index, float grid, bool isGridUsed) const {
        const long double fraction = static_cast<long double>(index) / (vertices - 1);
        const long double scale = static_cast<long double>(in) / out;
        const long double clip = scale * (-1.0L + 2.0L * (-0.5L / in + fraction));
        Require(IsClose(position, clip, scale * 3), "a vertex lies elsewhere");
        const long double g = grid;
        const long double fromGrid = (g + (in - 1.0L) / 2.0L) / in;
        const long double reach = isGridUsed ? (std::abs(g) + in) / in : 1.0L;
        const bool isHuge = isGridUsed && std::abs(g) > 1e38L;
        Require(isHuge || IsClose(texCoordinate, isGridUsed ? fromGrid : fraction, reach),
                "a texture coordinate differs");
    }
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const bool isGridUsed = input.Below(2) == 1;
    const auto dimension = [&input] { return 1 + static_cast<int>(input.Take<uint16_t>()); };
    const int cellsX = 1 + static_cast<int>(input.Below(33));
    const int cellsY = 1 + static_cast<int>(input.Below(25));
    const int inWidth = dimension();
    const int outWidth = dimension();
    const int inHeight = dimension();
    const int outHeight = dimension();
    const Axis x = {inWidth, outWidth, cellsX + 1};
    const Axis y = {inHeight, outHeight, cellsY + 1};
    // Exact sizes, so that any step outside of them is seen.
    std::vector<float> grid(static_cast<size_t>((x.vertices + 2) * (y.vertices + 2) * 2));
    for (float& value : grid) {
        value = input.Take<float>();
    }
    const auto columns = static_cast<size_t>(x.vertices);
    const size_t vertices = columns * static_cast<size_t>(y.vertices);
    std::vector<float> positions(vertices * 2);
    std::vector<float> texCoordinates(vertices * 2);
    UpdateMesh(positions.data(), texCoordinates.data(), grid.data(),
               {x.vertices, y.vertices, x.in, y.in, x.out, y.out}, isGridUsed);
    for (int row = 0; row < y.vertices; ++row) {
        for (int column = 0; column < x.vertices; ++column) {
            const auto r = static_cast<size_t>(row);
            const auto c = static_cast<size_t>(column);
            const size_t at = 2 * (r * columns + c);
            const size_t point = 2 * ((r + 1) * (columns + 2) + c + 1);
            x.Check(positions[at], texCoordinates[at], column, grid[point], isGridUsed);
            y.Check(positions[at + 1], texCoordinates[at + 1], row, grid[point + 1], isGridUsed);
        }
    }
    std::vector<unsigned short> indices(static_cast<size_t>(cellsX * cellsY * 6));
    GenerateMeshIndices(indices.data(), cellsX, cellsY);
    for (const unsigned short index : indices) {
        Require(index < vertices, "an index names no vertex");
    }
    return 0;
}
