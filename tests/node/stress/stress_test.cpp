#include <fmt/format.h>

#include <random>
#include <thread>

#include "desk/abi/gralloc_layout.h"
#include "tests/node/stress/level.h"
#include "tests/node/stress/overlap.h"

namespace {

/// FNV-1a.
uint64_t Digest(uint64_t start, const std::string& bytes) {
    for (const char byte : bytes) {
        start = (start ^ static_cast<unsigned char>(byte)) * 0x100000001b3ULL;
    }
    return start;
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
                auto node = host_.CreateNode(Variants[id % 2]);
                node->Negotiate({64, 48}, {0.25F, 0.25F});
                const Ring ring(*node, 1);
                for (uint64_t request = 1; request <= requests; ++request) {
                    EXPECT_EQ(ring.Process(*node, request, grid_), 0U);
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

// Over a ring of buffers; now and then one is replaced, so that its descriptor comes back as another
// buffer's. What the first node's frames have warmed up has to do for the second's.
TEST_F(Stress, NothingGrowsOverManyFrames) {
    for (const bool isDumped : {false, true}) {
        host_.SetDumps(isDumped);
        const unsigned frames = Times(isDumped ? 500 : 9500);
        std::unique_ptr<Level> warm;
        for (const bool isFirst : {true, false}) {
            auto node = host_.CreateNode(desk::Variant::LookAhead);
            const desk::Negotiated sizes = node->Negotiate({64, 48}, {0.25F, 0.25F});
            Ring ring(sizes, 8);
            for (unsigned frame = 1; frame <= frames; ++frame) {
                ASSERT_EQ(ring.Process(*node, frame, grid_), 0U);
                if (frame % 50 == 0) {
                    ring.Replace(sizes, frame / 50 % 16);
                }
                gl_->Take();
                if (frame == frames / 5 && isFirst) {
                    warm = std::make_unique<Level>(host_);
                } else if (frame == frames / 5) {
                    warm->ExpectHeld(host_);
                }
            }
            node->Destroy();
            EXPECT_EQ(gl_->liveImages + gl_->liveNames + gl_->liveObjects, 0U);
        }
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
    const IPEICAGridTransform grid = Grid([](int, int) { return GridPoint{0.0F, 0.0F}; });
    auto node = host_.CreateNode(desk::Variant::RealTime);
    node->Negotiate({64, 48}, {0.25F, 0.25F});
    const Ring ring(*node, 8);
    std::unique_ptr<Level> warm;
    const unsigned frames = Times(500);
    for (unsigned frame = 1; frame <= frames; ++frame) {
        if (frame % 25 == 0) {
            ring.inputs[frame % 8]->Remap();
        }
        ASSERT_EQ(ring.Process(*node, frame, grid), 0U);
        if (frame == frames / 2) {
            warm = std::make_unique<Level>(host_);
        }
        if (frame > 8) {
            ASSERT_EQ(host_.Counters().gl->liveImages, 16U);
        }
    }
    warm->ExpectHeld(host_);
}
