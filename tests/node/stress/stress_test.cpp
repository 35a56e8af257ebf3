#include <fmt/format.h>

#include <random>
#include <thread>

#include "desk/abi/gralloc_layout.h"
#include "tests/node/fakegl/fake_gl_fixture.h"
#include "tests/node/stress/level.h"

namespace {

/// FNV-1a.
uint64_t Digest(uint64_t start, const std::string& bytes) {
    for (const char byte : bytes) {
        start = (start ^ static_cast<unsigned char>(byte)) * 0x100000001b3ULL;
    }
    return start;
}

/// Two nodes' frames over buffers of which now and then one is replaced, so that its descriptor comes back as
/// another buffer's, or moved. What the first node's frames have warmed up has to do for the second's.
/// `images` tells how many EGL images there are.
template <typename Images>
void ExpectNothingGrows(desk::DeskHost& host, unsigned frames, Images images) {
    IPEICAGridTransform grid = {};
    grid.gridTransformEnable = 1;
    std::unique_ptr<Level> warm;
    for (const auto variant : Variants) {
        Stage stage(host, variant, 8);
        for (unsigned frame = 1; frame <= frames; ++frame) {
            ASSERT_EQ(stage.Process(frame, grid), 0U);
            ASSERT_EQ(images(), 2 * std::min(frame, 8U));
            if (frame % 50 == 0) {
                stage.Replace(frame / 50 % 16);
            } else if (frame % 25 == 0) {
                stage.inputs[frame % 8]->Remap();
            }
            if (frame == frames / 5 && warm) {
                warm->ExpectHeld(host);
            } else if (frame == frames / 5) {
                warm = std::make_unique<Level>(host);
            }
        }
    }
}

}  // namespace

class Stress : public FakeGlFixture {
protected:
    Stress() {
        host_.SetLogLevels(0, false);
    }
};

TEST_F(Stress, EveryRequestIsDoneOnceWhateverTheirNumber) {
    std::vector<std::thread> threads;
    for (unsigned id = 0; id < 4; ++id) {
        threads.emplace_back([this, id] {
            for (const uint64_t requests : {1U, 2U, 3U, 5U, 8U, 13U, 21U, 34U, 55U, 89U}) {
                const Stage stage(host_, Variants[id % 2]);
                for (uint64_t request = 1; request <= requests; ++request) {
                    EXPECT_EQ(stage.Process(request, grid_), 0U);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> calls = gl_->Take();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "glDrawElements(4, 0x1200, 0x1403, 0x0)"), 4 * 231);
}

TEST_F(Stress, ANodeMovesFromThreadToThread) {
    MakeNode();
    ::alarm(60);  // a lock that somebody kept would never come free
    for (uint64_t request = 1; request <= 8; ++request) {
        std::thread([&] { EXPECT_EQ(Frame(request), 0U); }).join();
    }
    ::alarm(0);
}

TEST_F(Stress, NothingGrowsOverManyFrames) {
    for (const bool isDumped : {false, true}) {
        host_.SetDumps(isDumped);
        ExpectNothingGrows(host_, Times(isDumped ? 500 : 9500), [this] {
            gl_->Take();
            return gl_->liveImages;
        });
        EXPECT_EQ(gl_->liveImages + gl_->liveNames + gl_->liveObjects, 0U);
    }
}

TEST_F(Stress, ImportsDescribeTheirBuffers) {
    MakeNode();
    ASSERT_EQ(Frame(), 0U);
    for (const auto& buffer : {input_, output_}) {
        desk::GrallocMetadata metadata = {};
        const int fd = buffer->Handle()->data[desk::GrallocMetadataFd];
        ASSERT_EQ(::pread(fd, &metadata, sizeof(metadata), 0), static_cast<ssize_t>(sizeof(metadata)));
        EXPECT_EQ(metadata.hasGeometry, 1U);
        EXPECT_EQ(metadata.geometry.stride, static_cast<int32_t>(buffer->Stride()));
        EXPECT_EQ(metadata.geometry.scanline, static_cast<int32_t>(buffer->Scanline()));
        EXPECT_EQ(metadata.hasColor, 1U);
        EXPECT_EQ(metadata.color.primaries, 6U);
        EXPECT_EQ(metadata.color.range, 1U);
        EXPECT_THAT(metadata.color.reserved8, ::testing::Each(0));
    }
}

TEST_F(Stress, DumpsAreTheSameBitsOnEveryTarget) {
    host_.SetDumps(true);
    MakeNode();
    std::mt19937 random(1);
    for (uint64_t request = 1; request <= 50; ++request) {
        grid_ = Grid([&](int, int) {
            const auto next = [&] { return (static_cast<float>(random()) / 4294967296.0F - 0.5F) * 4000.0F; };
            const float x = next();
            return GridPoint{x, next()};
        });
        ASSERT_EQ(Frame(request), 0U);
    }
    node_.reset();
    uint64_t digest = 0xcbf29ce484222325ULL;
    for (const char* kind : {"Grid", "Tex", "Vert"}) {
        ASSERT_EQ(DumpLines(kind).size(), 50U);
        for (const std::string& line : DumpLines(kind)) {
            digest = Digest(digest, line);
        }
    }
    EXPECT_EQ(fmt::format("{:016x}", digest), "e64c78a2965daa5c");
}

/// The same over real pixels.
class PixelStress : public NodeFixture {
protected:
    PixelStress() : NodeFixture(nullptr) {
        host_.SetLogLevels(1 | 2, false);
    }
};

TEST_F(PixelStress, NothingGrowsOverManyFrames) {
    ExpectNothingGrows(host_, Times(250), [this] { return host_.Counters().gl->liveImages; });
}
