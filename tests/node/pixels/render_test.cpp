#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <random>
#include <thread>

#include "tests/node/pixels/picture.h"
#include "tests/support/node_fixture.h"

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Real pixels over the desk's GL. An output pixel index is compared with the scene at the input pixel index
// that the grid names for it.
class Render : public NodeFixture {
protected:
    Render() : NodeFixture(nullptr) {
        host_.SetLogLevels(1 | 2, false);
    }

    struct Stage {
        std::unique_ptr<desk::DeskNode> node;
        std::shared_ptr<desk::GrallocBuffer> input;
        std::shared_ptr<desk::GrallocBuffer> output;
    };

    Stage MakeStage(desk::Size output, float margin, desk::Variant variant = desk::Variant::RealTime) {
        Stage stage;
        stage.node = host_.CreateNode(variant);
        stage.node->Negotiate(output, {margin, margin});
        stage.input = stage.node->AllocateInput();
        stage.output = stage.node->AllocateOutput();
        std::memset(stage.output->Luma(), 0xAA, stage.output->ByteSize());
        return stage;
    }

    /// The grid under which output pixel q, about the output's centre, shows input pixel warp(q), about the
    /// input's.
    template <typename Warp>
    static IPEICAGridTransform WarpGrid(const desk::GrallocBuffer& input, Warp warp) {
        return Grid([&](int column, int row) {
            // A mesh vertex lies half a pixel off the fraction of the input that it stands for, and so does
            // what it samples.
            const double qx = input.Width() * ((column - 1.0) / desk::CellColumns - 0.5) - 0.5;
            const double qy = input.Height() * ((row - 1.0) / desk::CellRows - 0.5) - 0.5;
            const auto [px, py] = warp(qx, qy);
            return GridPoint{static_cast<float>(px + 0.5), static_cast<float>(py + 0.5)};
        });
    }

    /// What the output should show: the scene at the input index that the warp names.
    template <typename Warp>
    static Scene Seen(const Stage& stage, const Scene& scene, Warp warp) {
        const double out[] = {(stage.output->Width() - 1) / 2.0, (stage.output->Height() - 1) / 2.0};
        const double in[] = {(stage.input->Width() - 1) / 2.0, (stage.input->Height() - 1) / 2.0};
        return [=](double x, double y) {
            const auto [px, py] = warp(x - out[0], y - out[1]);
            return scene(px + in[0], py + in[1]);
        };
    }
};

namespace {

using Point = std::pair<double, double>;

Point Identity(double x, double y) {
    return {x, y};
}

void FillWithNoise(desk::GrallocBuffer& buffer, unsigned seed) {
    std::mt19937 random(seed);
    for (size_t i = 0; i < buffer.ByteSize(); ++i) {
        buffer.Luma()[i] = static_cast<uint8_t>(random());
    }
}

/// The scene that a buffer itself shows, sample by sample.
Scene Copy(desk::GrallocBuffer& buffer, uint32_t left, uint32_t top) {
    return [&buffer, left, top](double x, double y) {
        const auto at = [](double v) { return static_cast<uint32_t>(std::lround(std::floor(v))); };
        const uint32_t luma = (at(y) + top) * buffer.Stride() + at(x) + left;
        const uint32_t chroma = (at(y) + top) / 2 * buffer.Stride() + (at(x) + left) / 2 * 2;
        return std::array<double, 3>{static_cast<double>(buffer.Luma()[luma]),
                                     static_cast<double>(buffer.Chroma()[chroma]),
                                     static_cast<double>(buffer.Chroma()[chroma + 1])};
    };
}

}  // namespace

TEST_F(Render, AnIdentityGridCopiesThePicture) {
    for (const desk::Size size : {desk::Size{320, 240}, desk::Size{1920, 1080}}) {
        Stage stage = MakeStage(size, 0.2F);
        FillWithNoise(*stage.input, size.width);
        const IPEICAGridTransform grid = WarpGrid(*stage.input, Identity);
        ASSERT_EQ(stage.node->Process(1, &grid, *stage.input, *stage.output), 0U);
        const uint32_t left = (stage.input->Width() - size.width) / 2;
        const uint32_t top = (stage.input->Height() - size.height) / 2;
        EXPECT_EQ(Compare(*stage.output, Copy(*stage.input, left, top), 1.0), "");
    }
}

TEST_F(Render, WithoutAMarginTheMeshEndsHalfAPixelShort) {
    Stage stage = MakeStage({320, 240}, 0.0F);
    FillWithNoise(*stage.input, 3);
    const IPEICAGridTransform grid = WarpGrid(*stage.input, Identity);
    ASSERT_EQ(stage.node->Process(1, &grid, *stage.input, *stage.output), 0U);
    EXPECT_EQ(Compare(*stage.output, Copy(*stage.input, 0, 0), 1.0, {0, 0, 1, 1}), "");
}

TEST_F(Render, ShiftZoomAndRotationShowTheSceneWhereTheGridSays) {
    const struct {
        const char* name;
        std::function<Point(double, double)> warp;
    } rows[] = {
        {"shift",
         [](double x, double y) {
             return Point{x + 7.25, y - 5.5};
         }},
        {"zoom",
         [](double x, double y) {
             return Point{x * 0.8, y * 0.8};
         }},
        {"rotation",
         [](double x, double y) {
             const double angle = 0.05;
             return Point{x * std::cos(angle) - y * std::sin(angle),
                          x * std::sin(angle) + y * std::cos(angle)};
         }},
    };
    const Scene scene = SmoothScene();
    for (const auto variant : {desk::Variant::RealTime, desk::Variant::LookAhead}) {
        Stage stage = MakeStage({640, 480}, 0.2F, variant);
        Paint(*stage.input, scene);
        for (const auto& row : rows) {
            const IPEICAGridTransform grid = WarpGrid(*stage.input, row.warp);
            ASSERT_EQ(stage.node->Process(1, &grid, *stage.input, *stage.output), 0U);
            EXPECT_EQ(Compare(*stage.output, Seen(stage, scene, row.warp), 2.0), "") << row.name;
        }
    }
}

TEST_F(Render, ADisabledGridShowsTheMiddleOfTheInput) {
    Stage stage = MakeStage({320, 240}, 0.25F);
    const Scene scene = SmoothScene();
    Paint(*stage.input, scene);
    IPEICAGridTransform grid = WarpGrid(*stage.input, [](double, double) { return Point{3.0, 4.0}; });
    grid.gridTransformEnable = 0;
    ASSERT_EQ(stage.node->Process(1, &grid, *stage.input, *stage.output), 0U);
    // Unity samples by fraction, half a pixel beyond the mesh's own half.
    const auto unity = [](double x, double y) { return Point{x + 0.5, y + 0.5}; };
    EXPECT_EQ(Compare(*stage.output, Seen(stage, scene, unity), 2.0), "");
}

TEST_F(Render, WhatTheMeshDoesNotReachKeepsTheClearColour) {
    Stage stage = MakeStage({320, 240}, 0.0F);
    auto wide = desk::GrallocBuffer::Create({640, 480}, {128, 32});
    std::memset(wide->Luma(), 0xAA, wide->ByteSize());
    const Scene scene = SmoothScene();
    Paint(*stage.input, scene);
    const IPEICAGridTransform grid = WarpGrid(*stage.input, Identity);
    ASSERT_EQ(stage.node->Process(1, &grid, *stage.input, *wide), 0U);
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
    Stage stage = MakeStage({320, 240}, 0.2F);
    const IPEICAGridTransform grid = WarpGrid(*stage.input, Identity);
    auto second = stage.node->AllocateOutput();
    for (unsigned request = 1; request <= 6; ++request) {
        desk::GrallocBuffer& output = (request % 2 == 0) ? *second : *stage.output;
        FillWithNoise(*stage.input, request);
        if (request == 5) {
            stage.input->Remap();
        }
        ASSERT_EQ(stage.node->Process(request, &grid, *stage.input, output), 0U);
        EXPECT_EQ(Compare(output, Copy(*stage.input, 32, 24), 1.0), "") << "request " << request;
    }
    EXPECT_EQ(host_.Counters().gl->liveImages, 3U);
}

TEST_F(Render, NodesLiveIndependently) {
    Stage first = MakeStage({320, 240}, 0.2F);
    Stage second = MakeStage({320, 240}, 0.2F, desk::Variant::LookAhead);
    const IPEICAGridTransform grid = WarpGrid(*first.input, Identity);
    const auto expectFrame = [&grid](Stage& stage, unsigned request) {
        FillWithNoise(*stage.input, request);
        ASSERT_EQ(stage.node->Process(request, &grid, *stage.input, *stage.output), 0U);
        EXPECT_EQ(Compare(*stage.output, Copy(*stage.input, 32, 24), 1.0), "");
    };
    for (unsigned request = 1; request <= 3; ++request) {
        expectFrame(first, request);
        expectFrame(second, 10 + request);
    }
    first.node.reset();
    expectFrame(second, 20);
}

TEST_F(Render, FourNodesRunOnFourThreads) {
    std::vector<std::thread> threads;
    for (unsigned id = 0; id < 4; ++id) {
        threads.emplace_back([this, id] {
            const auto variant = (id % 2 == 0) ? desk::Variant::RealTime : desk::Variant::LookAhead;
            for (int round = 0; round < 2; ++round) {
                Stage stage = MakeStage({160, 120}, 0.2F, variant);
                const IPEICAGridTransform grid = WarpGrid(*stage.input, Identity);
                for (unsigned request = 1; request <= 8; ++request) {
                    FillWithNoise(*stage.input, id * 100 + request);
                    EXPECT_EQ(stage.node->Process(request, &grid, *stage.input, *stage.output), 0U);
                    EXPECT_EQ(Compare(*stage.output, Copy(*stage.input, 16, 12), 1.0), "");
                }
            }
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
    host_.SetLibraries(&libraries);
    Stage stage = MakeStage({160, 120}, 0.2F);
    const IPEICAGridTransform grid = WarpGrid(*stage.input, Identity);
    EXPECT_THAT(host_.Findings().List(), IsEmpty());
    for (unsigned request = 7; request <= 8; ++request) {
        stage.node->Process(request, &grid, *stage.input, *stage.output);
    }
    const auto says = [](unsigned request) {
        return ContainsRegex(
            fmt::format("^the real-time node in the second pass of request {} makes the GL driver "
                        "report an error: .*glEnable",
                        request));
    };
    EXPECT_THAT(host_.Findings().List(), ElementsAre(says(7), says(8)));
    expectFindings_ = true;
}
