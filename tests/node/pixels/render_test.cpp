// Real pixels over the desk's GL. An output pixel index is compared with the scene at the input pixel index
// that the grid names for it.

#include <fmt/format.h>

#include <cmath>
#include <random>
#include <thread>

#include "tests/node/pixels/picture.h"
#include "tests/support/stage.h"

using ::testing::ContainsRegex;
using ::testing::ElementsAre;

namespace {

using Point = std::pair<double, double>;
using Warp = std::function<Point(double, double)>;

/// Bilinear sampling meets it to well under a level.
std::array<double, 3> SmoothScene(double x, double y) {
    return {128.0 + 60.0 * std::sin(x / 23.0) + 50.0 * std::cos(y / 29.0),
            128.0 + 80.0 * std::sin((x + 2.0 * y) / 71.0), 128.0 + 80.0 * std::cos((2.0 * x - y) / 83.0)};
}

}  // namespace

class Render : public NodeFixture {
protected:
    Render() : NodeFixture(nullptr) {
        host_.SetLogLevels(1 | 2, false);
    }

    /// The grid under which output pixel q, about the output's centre, shows input pixel warp(q), about the
    /// input's.
    static IPEICAGridTransform WarpGrid(const desk::GrallocBuffer& input, const Warp& warp) {
        return Grid([&](int column, int row) {
            // A mesh vertex lies half a pixel off the fraction of the input that it stands for, and so does
            // what it samples.
            const double qx = input.Width() * ((column - 1.0) / desk::CellColumns - 0.5) - 0.5;
            const double qy = input.Height() * ((row - 1.0) / desk::CellRows - 0.5) - 0.5;
            const auto [px, py] = warp(qx, qy);
            return GridPoint{static_cast<float>(px + 0.5), static_cast<float>(py + 0.5)};
        });
    }
    static IPEICAGridTransform IdentityGrid(const desk::GrallocBuffer& input) {
        return WarpGrid(input, [](double x, double y) { return Point{x, y}; });
    }

    /// Noise, another for each request, through the identity grid has to come out as its middle.
    static void ExpectCopied(const Stage& stage, desk::GrallocBuffer& output, unsigned request) {
        desk::GrallocBuffer& input = *stage.inputs[0];
        std::mt19937 random(request);
        std::generate_n(input.Luma(), input.ByteSize(), [&] { return static_cast<uint8_t>(random()); });
        const IPEICAGridTransform grid = IdentityGrid(input);
        EXPECT_EQ(stage.node->Process(request, &grid, input, output), 0U);
        const uint32_t left = (input.Width() - output.Width()) / 2;
        const uint32_t top = (input.Height() - output.Height()) / 2;
        const auto middle = [&](double x, double y) {
            const uint32_t column = static_cast<uint32_t>(x) + left;
            const uint32_t row = static_cast<uint32_t>(y) + top;
            const uint8_t* chroma = input.Chroma() + row / 2 * input.Stride() + column / 2 * 2;
            return std::array<double, 3>{static_cast<double>(input.Luma()[row * input.Stride() + column]),
                                         static_cast<double>(chroma[0]), static_cast<double>(chroma[1])};
        };
        EXPECT_EQ(Compare(output, middle, 1.0), "") << "request " << request;
    }
    static void ExpectCopied(const Stage& stage, unsigned request) {
        ExpectCopied(stage, *stage.outputs[0], request);
    }
};

TEST_F(Render, AnIdentityGridCopiesThePicture) {
    for (const desk::Size size : {desk::Size{320, 240}, desk::Size{1920, 1080}}) {
        ExpectCopied(Stage(host_, desk::Variant::RealTime, 1, size, 0.2F), size.width);
    }
}

TEST_F(Render, TheSceneIsSeenWhereTheGridSays) {
    const struct {
        const char* name;
        Warp warp;
        uint32_t isEnabled = 1;
    } rows[] = {{"shift",
                 [](double x, double y) {
                     return Point{x + 7.25, y - 5.5};
                 }},
                {"zoom",
                 [](double x, double y) {
                     return Point{x * 0.8, y * 0.8};
                 }},
                {"rotation",
                 [c = std::cos(0.05), s = std::sin(0.05)](double x, double y) {
                     return Point{x * c - y * s, x * s + y * c};
                 }},
                // Without a grid unity samples by fraction, half a pixel beyond the mesh's own half.
                {"disabled",
                 [](double x, double y) {
                     return Point{x + 0.5, y + 0.5};
                 },
                 0}};
    for (const auto variant : Variants) {
        const Stage stage(host_, variant, 1, {640, 480}, 0.2F);
        desk::GrallocBuffer& input = *stage.inputs[0];
        desk::GrallocBuffer& output = *stage.outputs[0];
        Paint(input, SmoothScene);
        const auto centre = [](uint32_t size) { return (size - 1) / 2.0; };
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            IPEICAGridTransform grid = row.isEnabled != 0 ? WarpGrid(input, row.warp) : Grid([](int, int) {
                return GridPoint{3.0F, 4.0F};
            });
            grid.gridTransformEnable = row.isEnabled;
            ASSERT_EQ(stage.Process(1, grid), 0U);
            const auto expected = [&](double x, double y) {
                const auto [px, py] = row.warp(x - centre(output.Width()), y - centre(output.Height()));
                return SmoothScene(px + centre(input.Width()), py + centre(input.Height()));
            };
            EXPECT_EQ(Compare(output, expected, 2.0), "");
        }
    }
}

TEST_F(Render, WhatTheMeshDoesNotReachKeepsTheClearColour) {
    Stage stage(host_, desk::Variant::RealTime, 1, {320, 240}, 0.0F);
    auto wide = desk::GrallocBuffer::Create({640, 480}, {128, 32});
    std::memset(wide->Luma(), 0xAA, wide->ByteSize());
    Paint(*stage.inputs[0], SmoothScene);
    const IPEICAGridTransform grid = IdentityGrid(*stage.inputs[0]);
    ASSERT_EQ(stage.node->Process(1, &grid, *stage.inputs[0], *wide), 0U);
    // The mesh begins half a pixel before the middle and ends half a pixel before its end; the input's edge
    // goes on for that half.
    const auto expected = [](double x, double y) {
        const bool isInside = x >= 159 && y >= 119 && x < 479 && y < 359;
        return isInside ? SmoothScene(std::max(x - 160, 0.0), std::max(y - 120, 0.0))
                        : std::array<double, 3>{0, 0, 0};
    };
    EXPECT_EQ(Compare(*wide, expected, 2.0), "");
    stage.node.reset();
}

TEST_F(Render, EveryFrameShowsTheBuffersCurrentContents) {
    const Stage stage(host_, desk::Variant::RealTime, 1, {320, 240}, 0.2F);
    const auto second = stage.node->AllocateOutput();
    for (unsigned request = 1; request <= 6; ++request) {
        if (request == 5) {
            stage.inputs[0]->Remap();
        }
        ExpectCopied(stage, (request % 2 == 0) ? *second : *stage.outputs[0], request);
    }
    EXPECT_EQ(host_.Counters().gl->liveImages, 3U);
}

TEST_F(Render, FourNodesRunOnFourThreads) {
    std::vector<std::thread> threads;
    for (unsigned id = 0; id < 4; ++id) {
        threads.emplace_back([this, id] {
            auto other = std::make_unique<Stage>(host_, Variants[id % 2], 1, desk::Size{160, 120}, 0.2F);
            const Stage stage(host_, Variants[(id + 1) / 2 % 2], 1, {160, 120}, 0.2F);
            for (unsigned request = 1; request <= 8; ++request) {
                ExpectCopied(*other, id * 100 + request);
                ExpectCopied(stage, id * 100 + 10 + request);
            }
            other.reset();
            ExpectCopied(stage, id * 100 + 20);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Render, WhatTheDriverCallsAnErrorIsAFindingInItsWords) {
    desk::LibraryProvider libraries(OptionsFor({}).systemLibraryDir);
    void* const gles = libraries.Map("/system/lib64/libGLESv2.so");
    const auto enable = reinterpret_cast<void (*)(unsigned)>(libraries.Symbol(gles, "glEnable"));
    const auto takeError = reinterpret_cast<unsigned (*)()>(libraries.Symbol(gles, "glGetError"));
    host_.fault = [&](const desk::HostCall& call, uint32_t&) {
        if (call.service == "SetGrallocMetaData") {  // while the engine's context is current
            enable(0xBAD);
            takeError();  // or the import fails
        }
        return false;
    };
    const Stage stage(host_, desk::Variant::RealTime, 1, {160, 120}, 0.2F);
    EXPECT_THAT(host_.contract.List(), ElementsAre());
    ExpectCopied(stage, 7);
    ExpectCopied(stage, *stage.node->AllocateOutput(), 8);
    const auto says = [](unsigned request) {
        return ContainsRegex(
            fmt::format("^the real-time node in the second pass of request {} makes the GL driver "
                        "report an error: .*glEnable",
                        request));
    };
    EXPECT_THAT(host_.contract.List(), ElementsAre(says(7), says(8)));
    expectFindings_ = true;
    host_.fault = nullptr;
    libraries.Unmap(gles);
}
