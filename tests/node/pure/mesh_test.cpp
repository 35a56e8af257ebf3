#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "desk/warp/grid_size.h"
#include "node/dewarp/gpu/gpumesh.h"
#include "tests/node/pure/mesh_definition.h"

namespace {

using desk::CellColumns;
using desk::CellRows;
using desk::GridPoints;
using desk::MeshColumns;
using desk::MeshFloats;
using desk::MeshRows;
using desk::MeshVertices;

struct Mesh {
    std::vector<float> vertices = std::vector<float>(MeshFloats);
    std::vector<float> tex = std::vector<float>(MeshFloats);
};

Mesh MakeMesh(const std::vector<float>& grid, int inW, int inH, int outW, int outH, bool isGridUsed) {
    Mesh mesh;
    UpdateMesh(mesh.vertices.data(), mesh.tex.data(), grid.data(),
               {MeshColumns, MeshRows, inW, inH, outW, outH}, isGridUsed);
    return mesh;
}

std::vector<float> RandomGrid(unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(-1500.0F, 1500.0F);
    std::vector<float> grid(2 * GridPoints);
    for (float& g : grid) {
        g = value(random);
    }
    return grid;
}

}  // namespace

TEST(MeshArithmetic, IsBitForBitTheDefinition) {
    const int sizes[][4] = {
        {2304, 1296, 1920, 1080}, {1920, 1080, 1920, 1080}, {640, 480, 1280, 960}, {1161, 1243, 7, 4001}};
    for (const auto& s : sizes) {
        const std::vector<float> grid = RandomGrid(static_cast<unsigned>(s[0]));
        const Mesh mesh = MakeMesh(grid, s[0], s[1], s[2], s[3], true);
        for (size_t i = 0; i < MeshFloats; ++i) {
            const size_t axis = i % 2;
            const size_t at[] = {i / 2 % MeshColumns, i / 2 / MeshColumns};
            const float value = grid[2 * ((at[1] + 1) * desk::GridColumns + at[0] + 1) + axis];
            const float position = mesh_definition::Position(
                static_cast<int>(at[axis]), axis == 0 ? MeshColumns : MeshRows, s[axis], s[2 + axis]);
            ASSERT_TRUE(mesh_definition::IsSame(mesh.vertices[i], position)) << s[0] << " vertex's " << i;
            ASSERT_TRUE(mesh_definition::IsSame(mesh.tex[i], mesh_definition::Sampled(value, s[axis])))
                << s[0] << " texture coordinate's " << i;
        }
    }
}

TEST(MeshArithmetic, LiesWhereTheGeometrySays) {
    const std::vector<float> zero(2 * GridPoints, 0.0F);
    const Mesh mesh = MakeMesh(zero, 1920, 1080, 1920, 1080, true);
    EXPECT_FLOAT_EQ(mesh.vertices[0], -1.0F - 1.0F / 1920.0F);
    EXPECT_FLOAT_EQ(mesh.vertices[1], -1.0F - 1.0F / 1080.0F);
    EXPECT_FLOAT_EQ(mesh.vertices[2 * (MeshVertices - 1)], 1.0F - 1.0F / 1920.0F);
    EXPECT_FLOAT_EQ(mesh.vertices[2 * (MeshVertices - 1) + 1], 1.0F - 1.0F / 1080.0F);
    for (size_t k = 0; k < MeshVertices; ++k) {
        ASSERT_FLOAT_EQ(mesh.tex[2 * k], 1919.0F / 2.0F / 1920.0F);
        ASSERT_FLOAT_EQ(mesh.tex[2 * k + 1], 1079.0F / 2.0F / 1080.0F);
    }
    const Mesh wide = MakeMesh(zero, 960, 540, 1920, 1080, true);
    EXPECT_NEAR(wide.vertices[0], -0.5F, 1e-3) << "an output twice as wide is covered in its middle half";
}

TEST(MeshArithmetic, IdentityIgnoresTheGrid) {
    const Mesh one = MakeMesh(RandomGrid(1), 2304, 1296, 1920, 1080, false);
    const Mesh other = MakeMesh(RandomGrid(2), 2304, 1296, 1920, 1080, false);
    EXPECT_EQ(one.tex, other.tex);
    for (size_t r = 0; r < MeshRows; ++r) {
        for (size_t c = 0; c < MeshColumns; ++c) {
            const size_t k = r * MeshColumns + c;
            ASSERT_EQ(one.tex[2 * k], static_cast<float>(c) / CellColumns);
            ASSERT_EQ(one.tex[2 * k + 1], static_cast<float>(r) / CellRows);
        }
    }
}

TEST(MeshIndices, CoverEveryCellWithTwoTriangles) {
    std::vector<unsigned short> indices(size_t{6} * CellColumns * CellRows);
    GenerateMeshIndices(indices.data(), CellColumns, CellRows);
    const std::vector<unsigned short> first(indices.begin(), indices.begin() + 6);
    const std::vector<unsigned short> last(indices.end() - 6, indices.end());
    EXPECT_EQ(first, (std::vector<unsigned short>{0, 33, 1, 33, 1, 34}));
    EXPECT_EQ(last, (std::vector<unsigned short>{790, 823, 791, 823, 791, 824}));
    std::set<std::vector<unsigned short>> triangles;
    for (size_t i = 0; i < indices.size(); i += 3) {
        std::vector<unsigned short> triangle(&indices[i], &indices[i] + 3);
        std::sort(triangle.begin(), triangle.end());
        EXPECT_TRUE(triangles.insert(triangle).second) << "triangle " << i / 3 << " stands twice";
    }
}
