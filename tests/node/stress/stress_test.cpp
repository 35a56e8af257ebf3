// Long runs and many loads.

#include <dlfcn.h>
#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "desk/abi/gralloc_layout.h"
#include "tests/node/fakegl/fake_gl_fixture.h"

namespace {

/// DEWARP_SOAK multiplies what the long tests do; the nightly run sets it.
unsigned Times(unsigned count) {
    const char* factor = std::getenv("DEWARP_SOAK");
    return static_cast<unsigned>(count * (factor != nullptr ? std::atof(factor) : TEST_SOAK));
}

/// What must not grow, now. Memory may, by what allocators round up; under a sanitizer, which keeps freed
/// memory and books of its own, it is not read.
struct Level {
    static Level Now() {
        Level now;
        const std::filesystem::directory_iterator folder("/proc/self/fd");
        now.descriptors = static_cast<size_t>(std::distance(begin(folder), end(folder)));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        std::ifstream("/proc/self/statm") >> now.pages >> now.pages;  // of all those that are resident
        std::ifstream maps("/proc/self/maps");
        now.mappings = std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
#if defined(__ANDROID__)
        now.heap = static_cast<size_t>(::mallinfo().uordblks);
#else
        now.heap = ::mallinfo2().uordblks;
#endif
#endif
        return now;
    }
    size_t descriptors = 0;
    size_t pages = 0;
    long mappings = 0;
    size_t heap = 0;  ///< bytes in use
};

/// Two nodes' frames over buffers of which now and then one is replaced, so that its descriptor comes back as
/// another buffer's, or moved. What a node's first frames have warmed up has to do for its others, and
/// nothing but memory, which a driver keeps of every context, is more for the second node. `images` tells how
/// many EGL images there are.
template <typename Images>
void ExpectNothingGrows(desk::DeskHost& host, unsigned frames, Images images) {
    IPEICAGridTransform grid = {};
    grid.gridTransformEnable = 1;
    std::vector<Level> levels;
    std::vector<size_t> allocations;
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
            if (frame == std::max(frames / 5, 10U) || frame == frames) {  // every buffer has been there
                levels.push_back(Level::Now());
                allocations.push_back(host.Counters().liveAllocations);
            }
        }
    }
    const size_t slack = (4U << 20U) / static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    for (size_t i = 1; i < levels.size(); ++i) {
        EXPECT_EQ(allocations[i], allocations[0]);
        EXPECT_EQ(levels[i].descriptors, levels[0].descriptors);
        if (i % 2 == 1) {
            EXPECT_LE(levels[i].pages, levels[i - 1].pages + slack);
        }
    }
}

}  // namespace

TEST(Loading, TheLibraryLeavesTheProcessEachTime) {
    FakeGl gl;
    const desk::HostOptions options = OptionsFor(std::filesystem::temp_directory_path());
    for (unsigned round = 0; round < 200; ++round) {
        {
            desk::DeskHost host(options);
            host.libraries.SetProvider(&gl);
            host.CreateNode(Variants[round % 2]);
            EXPECT_TRUE(host.contract.List().empty());
        }
        ASSERT_EQ(::dlopen(options.nodeLibrary.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << round;
    }
}

// Loads, enters and unloads on two threads that meet at each step; the library leaves with the last of them.
TEST(Loading, TwoThreadsLeaveNothingBehind) {
    const std::string library = OptionsFor({}).nodeLibrary;
    Level warm;
    Level last;
    const unsigned rounds = Times(300);  // as many again before them, until the allocator has what it keeps
    for (unsigned round = 1; round <= 2 * rounds; ++round) {
        std::atomic<int> steps = 0;
        const auto load = [&] {
            const auto meet = [&steps](int all) {
                for (++steps; steps < all; std::this_thread::yield()) {
                }
            };
            void* const handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
            EXPECT_NE(handle, nullptr) << ::dlerror();
            meet(2);
            if (handle != nullptr) {
                LumNodeCallbacks table = {};
                table.size = sizeof(table);
                reinterpret_cast<decltype(&LumNodeEntry)>(::dlsym(handle, "LumNodeEntry"))(&table);
                EXPECT_NE(table.ProcRequest, nullptr);
            }
            meet(4);
            EXPECT_EQ(handle != nullptr ? ::dlclose(handle) : 0, 0);
        };
        std::thread other(load);
        load();
        other.join();
        ASSERT_EQ(::dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << round;
        last =
            Level::Now();  // in each round alike: the allocator keeps some of what the looking itself takes
        if (round == rounds) {
            warm = last;
        }
    }
    EXPECT_LE(last.descriptors, warm.descriptors);
    EXPECT_LE(last.mappings, warm.mappings);
    EXPECT_LE(last.heap, warm.heap + 16384);
}

class Stress : public FakeGlFixture {
protected:
    Stress() {
        host_.SetLogLevels(0, false);
    }
};

TEST_F(Stress, EveryRequestIsDoneOnceWhateverTheirNumberAndThread) {
    ::alarm(60);  // a lock that somebody kept would never come free
    std::vector<std::thread> threads;
    for (unsigned id = 0; id < 4; ++id) {
        threads.emplace_back([this, id] {
            for (const uint64_t requests : {1U, 2U, 3U, 5U, 8U, 13U, 21U, 34U, 55U, 89U}) {
                const Stage stage(host_, Variants[id % 2]);
                for (uint64_t request = 1; request <= requests; ++request) {
                    std::thread([&] { EXPECT_EQ(stage.Process(request, grid_), 0U); }).join();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ::alarm(0);
    const std::vector<std::string> calls = gl_->Take();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "glDrawElements(4, 0x1200, 0x1403, 0x0)"), 4 * 231);
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
        EXPECT_EQ(metadata.geometry.stride, static_cast<int32_t>(buffer->Stride()));
        EXPECT_EQ(metadata.geometry.scanline, static_cast<int32_t>(buffer->Scanline()));
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
    uint64_t digest = 0xcbf29ce484222325ULL;  // FNV-1a
    for (const char* kind : {"Grid", "Tex", "Vert"}) {
        ASSERT_EQ(DumpLines(kind).size(), 50U);
        for (const std::string& line : DumpLines(kind)) {
            for (const char byte : line) {
                digest = (digest ^ static_cast<unsigned char>(byte)) * 0x100000001b3ULL;
            }
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
