// Warp grids of any bits through the mesh arithmetic, against its definition.

#include <vector>

#include "node/dewarp/gpu/gpumesh.h"
#include "tests/node/pure/mesh_definition.h"
#include "tests/support/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const bool isGridUsed = input.Below(2) == 1;
    const auto dimension = [&input] { return 1 + static_cast<int>(input.Take<uint16_t>()); };
    // Of either axis. The sizes are exact, so that any step outside of them is seen.
    const int cells[] = {1 + static_cast<int>(input.Below(33)), 1 + static_cast<int>(input.Below(25))};
    const int vertices[] = {cells[0] + 1, cells[1] + 1};
    int in[2] = {};
    int out[2] = {};
    for (const int axis : {0, 1}) {
        in[axis] = dimension();
        out[axis] = dimension();
    }
    std::vector<float> grid(2 * static_cast<size_t>(vertices[0] + 2) * static_cast<size_t>(vertices[1] + 2));
    for (float& value : grid) {
        value = input.Take<float>();
    }
    const auto count = static_cast<size_t>(vertices[0]) * static_cast<size_t>(vertices[1]);
    std::vector<float> positions(count * 2);
    std::vector<float> texCoordinates(count * 2);
    UpdateMesh(positions.data(), texCoordinates.data(), grid.data(),
               {vertices[0], vertices[1], in[0], in[1], out[0], out[1]}, isGridUsed);
    for (int i = 0; i < static_cast<int>(2 * count); ++i) {
        const int axis = i % 2;
        const int at[] = {i / 2 % vertices[0], i / 2 / vertices[0]};
        const int point = (at[1] + 1) * (vertices[0] + 2) + at[0] + 1;
        const int index = 2 * point + axis;
        const float value = grid[static_cast<size_t>(index)];
        using namespace mesh_definition;
        const float sampled = isGridUsed ? Sampled(value, in[axis]) : Fraction(at[axis], vertices[axis]);
        const float position = Position(at[axis], vertices[axis], in[axis], out[axis]);
        Require(IsSame(positions[static_cast<size_t>(i)], position), "a vertex lies elsewhere");
        Require(IsSame(texCoordinates[static_cast<size_t>(i)], sampled), "a texture coordinate differs");
    }
    std::vector<unsigned short> indices(static_cast<size_t>(cells[0] * cells[1] * 6));
    GenerateMeshIndices(indices.data(), cells[0], cells[1]);
    for (const unsigned short index : indices) {
        Require(index < count, "an index names no vertex");
    }
    return 0;
}
