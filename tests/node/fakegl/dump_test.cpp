#include <fmt/printf.h>

#include "tests/node/fakegl/fake_gl_fixture.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

class Dumps : public FakeGlFixture {
protected:
    Dumps() {
        host_.State().clock = LUMDateTime{9, 5, 14, 3, 2, 124, {}};  // 2024-03-03 14:05:09
        host_.SetDumps(true);
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dumpDir_)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
};

TEST_F(Dumps, AreNamedByVariantAndTime) {
    MakeNode();
    node_.reset();
    EXPECT_THAT(Names(),
                UnorderedElementsAre("Warp2_Grid_20240303_140509.txt", "Warp2_Tex_20240303_140509.txt",
                                     "Warp2_Vert_20240303_140509.txt"));
    node_ = host_.CreateNode(desk::Variant::LookAhead);
    EXPECT_THAT(TakeLog('I'), Contains("I Initialize() [DEWARP_3] Dewarp nodeCaps 128 Grid dump enable"));
    EXPECT_THAT(Names(), Contains("Warp3_Vert_20240303_140509.txt"));
}

TEST_F(Dumps, SwitchOnTheIntegerOne) {
    const struct {
        size_t files;  // the grid's and the engine's two, or none of them
        std::vector<const char*> values;
    } rows[] = {
        {3, {"1", "01", " 1", "+1", "1x", "1abc"}},
        {0, {"", "0", "2", "11", "-1", "+", "x1", "0x1", "true"}},
        // 1 in their lower 32 bits; then beyond 64 bits.
        {0, {"4294967297", "-4294967295", "9223372036854775808", "18446744073709551617"}},
    };
    for (const auto& row : rows) {
        for (const char* value : row.values) {
            host_.State().properties.With(
                [&](auto& all) { all["persist.vendor.camera.enabledewarpdump"] = value; });
            host_.CreateNode(desk::Variant::RealTime);
            EXPECT_EQ(Names().size(), row.files) << '"' << value << '"';
            for (const std::string& name : Names()) {
                std::filesystem::remove(dumpDir_ / name);
            }
        }
    }
}

TEST_F(Dumps, HoldOneLinePerFrame) {
    MakeNode();
    grid_ = Grid([](int column, int row) {
        return GridPoint{static_cast<float>(column) - 0.5F, -static_cast<float>(row) / 3.0F};
    });
    grid_.dumpValue0 = 4000000000U;
    grid_.dumpValue1 = 7;
    const uint64_t request = (1ULL << 32) + 42;
    ASSERT_EQ(Frame(request), 0U);
    grid_.gridTransformEnable = 0;
    ASSERT_EQ(Frame(43), 0U);
    EXPECT_THAT(TakeLog('V'), Contains(::testing::HasSubstr("V WriteGridToFile() ")));
    node_.reset();

    std::string grid = fmt::sprintf("Frame %lu, %u, %u", request, 4000000000U, 7U);
    for (int i = 0; i < desk::GridPoints; ++i) {
        const int row = i / desk::GridColumns;
        grid += fmt::sprintf(", %4.4f, %4.4f", static_cast<float>(i % desk::GridColumns) - 0.5F,
                             -static_cast<float>(row) / 3.0F);
    }
    EXPECT_THAT(DumpLines("Grid"), ElementsAre(grid + " ")) << "a disabled grid is not written";

    // The mesh of a disabled grid: texture coordinates c / 32 and r / 24, overlapping by one float.
    std::string tex = "Frame 43";
    for (int i = 0; i < desk::MeshVertices; ++i) {
        const auto at = [](int f) {
            return static_cast<float>(f % 2 == 0 ? f / 2 % desk::MeshColumns : f / (2 * desk::MeshColumns)) /
                   (f % 2 == 0 ? static_cast<float>(desk::CellColumns) : static_cast<float>(desk::CellRows));
        };
        tex += fmt::sprintf(", %4.4f, %4.4f", at(i), at(i + 1));
    }
    EXPECT_EQ(DumpLines("Tex").at(1), tex + " ");
    EXPECT_EQ(DumpLines("Vert").at(0).rfind(fmt::sprintf("Frame %lu, ", request), 0), 0U);
    EXPECT_EQ(DumpLines("Tex").size() + DumpLines("Vert").size(), 4U);
}

TEST_F(Dumps, HoldLinesOfAnyGrid) {
    MakeNode();
    grid_ = Grid([](int, int) { return GridPoint{-3.4028235e38F, 3.4028235e38F}; });
    ASSERT_EQ(Frame(1), 0U);
    node_.reset();
    ASSERT_EQ(DumpLines("Grid").size(), 1U);
    EXPECT_GT(DumpLines("Grid")[0].size(), 65536U) << "longer than one formatting call may be";
}
