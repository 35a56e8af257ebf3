// Warp grids of any bits through the mesh arithmetic, against its definition.

#include "tests/node/pure/mesh_definition.h"
#include "tests/support/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const bool isGridUsed = input.Below(2) == 1;
    const auto dimension = [&input] { return 1 + static_cast<int>(input.Take<uint16_t>()); };
    // Of either axis.
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
    const std::string difference = mesh_definition::Difference(
        grid, {vertices[0], vertices[1], in[0], in[1], out[0], out[1]}, isGridUsed);
    Require(difference.empty(), difference.c_str());
    std::vector<unsigned short> indices(static_cast<size_t>(cells[0] * cells[1] * 6));
    GenerateMeshIndices(indices.data(), cells[0], cells[1]);
    for (const unsigned short index : indices) {
        Require(index < vertices[0] * vertices[1], "an index names no vertex");
    }
    return 0;
}
