#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "desk/warp/grid_size.h"
#include "tests/node/pure/mesh_definition.h"

using desk::CellColumns;
using desk::CellRows;

TEST(MeshArithmetic, IsBitForBitTheDefinition) {
    std::mt19937 random(1);
    std::vector<float> grid(2 * desk::GridPoints);
    std::generate(grid.begin(), grid.end(), [&] { return static_cast<float>(random()) / 1.0e6F - 2000.0F; });
    const int rows[][4] = {
        {2304, 1296, 1920, 1080}, {1920, 1080, 1920, 1080}, {640, 480, 1280, 960}, {1161, 1243, 7, 4001}};
    for (const auto& [inWidth, inHeight, outWidth, outHeight] : rows) {
        const DewarpMeshSizes sizes = {desk::MeshColumns, desk::MeshRows, inWidth,
                                       inHeight,          outWidth,       outHeight};
        EXPECT_EQ(mesh_definition::Difference(grid, sizes, true), "") << inWidth;
        EXPECT_EQ(mesh_definition::Difference(grid, sizes, false), "") << inWidth;
    }
}

TEST(MeshArithmetic, TheDefinitionLiesWhereTheGeometrySays) {
    using namespace mesh_definition;
    EXPECT_FLOAT_EQ(Position(0, 33, 1920, 1920), -1.0F - 1.0F / 1920.0F);
    EXPECT_FLOAT_EQ(Position(24, 25, 1080, 1080), 1.0F - 1.0F / 1080.0F);
    EXPECT_NEAR(Position(0, 33, 960, 1920), -0.5F, 1e-3) << "twice as wide an output shows it in its middle";
    EXPECT_FLOAT_EQ(Sampled(0.0F, 1920), 1919.0F / 2.0F / 1920.0F);
    EXPECT_EQ(Fraction(8, 33), 0.25F);
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
