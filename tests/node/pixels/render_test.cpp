#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <thread>

#include "tests/node/pixels/picture.h"
#include "tests/support/stage.h"

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using Point = std::pair<double, double>;
using Warp = std::function<Point(double, double)>;

Point Identity(double x, double y) {
    return {x, y};
}

}  // namespace

// Real pixels over the desk's GL. An output pixel index is compared with the scene at the input pixel index
// that the grid names for it.
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

    /// The output has to show the scene, painted into the input, at the input index that `seen` names. The
    /// grid is of `warp`.
    static void ExpectSeen(Stage& stage, const Warp& warp, const Warp& seen, uint32_t gridEnable = 1) {
        const Scene scene = SmoothScene();
        Paint(*stage.inputs[0], scene);
        IPEICAGridTransform grid = WarpGrid(*stage.inputs[0], warp);
        grid.gridTransformEnable = gridEnable;
        ASSERT_EQ(stage.node->Process(1, &grid, *stage.inputs[0], *stage.outputs[0]), 0U);
        const auto centre = [](uint32_t size) { return (size - 1) / 2.0; };
        const Point out(centre(stage.outputs[0]->Width()), centre(stage.outputs[0]->Height()));
        const Point in(centre(stage.inputs[0]->Width()), centre(stage.inputs[0]->Height()));
        const auto expected = [&](double x, double y) {
            const auto [px, py] = seen(x - out.first, y - out.second);
            return scene(px + in.first, py + in.second);
        };
        EXPECT_EQ(Compare(*stage.outputs[0], expected, 2.0), "");
    }
    /// Noise, another for each request, through the identity grid has to come out as its middle.
    static void ExpectCopied(const Stage& stage, desk::GrallocBuffer& output, unsigned request,
                             Region without = {}) {
        desk::GrallocBuffer& input = *stage.inputs[0];
        std::mt19937 random(request);
        std::generate_n(input.Luma(), input.ByteSize(), [&] { return static_cast<uint8_t>(random()); });
        const IPEICAGridTransform grid = WarpGrid(input, Identity);
        EXPECT_EQ(stage.node->Process(request, &grid, input, output), 0U);
        const Scene middle =
            Copy(input, (input.Width() - output.Width()) / 2, (input.Height() - output.Height()) / 2);
        EXPECT_EQ(Compare(output, middle, 1.0, without), "") << "request " << request;
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

TEST_F(Render, WithoutAMarginTheMeshEndsHalfAPixelShort) {
    const Stage stage(host_, desk::Variant::RealTime, 1, {320, 240}, 0.0F);
    ExpectCopied(stage, *stage.outputs[0], 3, {0, 0, 1, 1});
}

TEST_F(Render, ShiftZoomAndRotationShowTheSceneWhereTheGridSays) {
    const auto turn = [c = std::cos(0.05), s = std::sin(0.05)](double x, double y) {
        return Point{x * c - y * s, x * s + y * c};
    };
    const std::map<const char*, Warp> rows = {{"shift",
                                               [](double x, double y) {
                                                   return Point{x + 7.25, y - 5.5};
                                               }},
                                              {"zoom",
                                               [](double x, double y) {
                                                   return Point{x * 0.8, y * 0.8};
                                               }},
                                              {"rotation", turn}};
    for (const auto variant : Variants) {
        Stage stage(host_, variant, 1, {640, 480}, 0.2F);
        for (const auto& [name, warp] : rows) {
            SCOPED_TRACE(name);
            ExpectSeen(stage, warp, warp);
        }
    }
}

TEST_F(Render, ADisabledGridShowsTheMiddleOfTheInput) {
    Stage stage(host_, desk::Variant::RealTime, 1, {320, 240}, 0.25F);
    // Unity samples by fraction, half a pixel beyond the mesh's own half.
    const auto unity = [](double x, double y) { return Point{x + 0.5, y + 0.5}; };
    ExpectSeen(
        stage,
        [](double, double) {
            return Point{3.0, 4.0};
        },
        unity, 0);
}

TEST_F(Render, WhatTheMeshDoesNotReachKeepsTheClearColour) {
    Stage stage(host_, desk::Variant::RealTime, 1, {320, 240}, 0.0F);
    auto wide = desk::GrallocBuffer::Create({640, 480}, {128, 32});
    std::memset(wide->Luma(), 0xAA, wide->ByteSize());
    const Scene scene = SmoothScene();
    Paint(*stage.inputs[0], scene);
    const IPEICAGridTransform grid = WarpGrid(*stage.inputs[0], Identity);
    ASSERT_EQ(stage.node->Process(1, &grid, *stage.inputs[0], *wide), 0U);
    // The mesh begins half a pixel before the middle and ends half a pixel before its end; the input's edge
    // goes on for that half.
    const auto inside = [](double x, double y) { return x >= 159 && y >= 119 && x < 479 && y < 359; };
    const Scene expected = [&](double x, double y) {
        return inside(x, y) ? scene(std::max(x - 160, 0.0), std::max(y - 120, 0.0))
                            : std::array<double, 3>{0, 0, 0};
    };
    EXPECT_EQ(Compare(*wide, expected, 2.0, {0, 0, 640 - 480, 480 - 360}), "");
    EXPECT_EQ(Compare(*wide, expected, 0.0, {480, 0, 0, 0}), "") << "right of the mesh";
    EXPECT_EQ(Compare(*wide, expected, 0.0, {0, 360, 0, 0}), "") << "above the mesh";
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

namespace {

/// The desk's GL with an application that makes a wrong call before it flushes.
class WrongBeforeFlush : public desk::SystemLibraries {
public:
    WrongBeforeFlush() : desk::SystemLibraries(OptionsFor({}).systemLibraryDir) {}
    void* Symbol(void* library, const char* symbol) override {
        void* found = desk::SystemLibraries::Symbol(library, symbol);
        if (std::string_view(symbol) != "glFlush") {
            return found;
        }
        flush_ = reinterpret_cast<void (*)()>(found);
        enable_ = reinterpret_cast<void (*)(unsigned)>(desk::SystemLibraries::Symbol(library, "glEnable"));
        return reinterpret_cast<void*>(+[] {
            enable_(0xBAD);
            flush_();
        });
    }

private:
    static inline void (*flush_)();
    static inline void (*enable_)(unsigned);
};

}  // namespace

TEST_F(Render, WhatTheDriverCallsAnErrorIsAFindingInItsWords) {
    static WrongBeforeFlush libraries;
    host_.State().libraries.SetProvider(&libraries);
    Stage stage(host_, desk::Variant::RealTime, 1, {160, 120}, 0.2F);
    EXPECT_THAT(host_.State().contract.List(), IsEmpty());
    ExpectCopied(stage, 7);
    ExpectCopied(stage, 8);
    const auto says = [](unsigned request) {
        return ContainsRegex(
            fmt::format("^the real-time node in the second pass of request {} makes the GL driver "
                        "report an error: .*glEnable",
                        request));
    };
    EXPECT_THAT(host_.State().contract.List(), ElementsAre(says(7), says(8)));
    expectFindings_ = true;
}
