#include <dlfcn.h>
#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
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

size_t OpenDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(folder), end(folder)));
}

/// A sanitizer keeps freed memory and books of its own: there the live allocations have to do.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IsSanitized = true;
#else
constexpr bool IsSanitized = false;
#endif

/// 0 under a sanitizer.
size_t ResidentBytes() {
    if (IsSanitized) {
        return 0;
    }
    std::ifstream statm("/proc/self/statm");
    size_t total = 0;
    size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

/// Of the heap, in use.
size_t HeapBytes() {
#if defined(__ANDROID__)
    return static_cast<size_t>(::mallinfo().uordblks);
#else
    return ::mallinfo2().uordblks;
#endif
}

/// The ranges of memory that the process has mapped.
std::vector<std::string> Mappings() {
    std::ifstream maps("/proc/self/maps");
    std::vector<std::string> lines;
    for (std::string line; std::getline(maps, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// What a host does first with a library that it has loaded.
void Enter(void* library) {
    LumNodeCallbacks table = {};
    table.size = sizeof(table);
    reinterpret_cast<decltype(&LumNodeEntry)>(::dlsym(library, "LumNodeEntry"))(&table);
    EXPECT_NE(table.ProcRequest, nullptr);
}

/// What must not grow, read at two moments of a long run. Memory may, by what allocators round up.
class Level {
public:
    explicit Level(const desk::DeskHost& host)
        : allocations_(host.Counters().liveAllocations),
          descriptors_(OpenDescriptors()),
          bytes_(ResidentBytes()) {}
    void ExpectHeld(const desk::DeskHost& host) const {
        constexpr size_t slack = 4U << 20U;
        EXPECT_EQ(host.Counters().liveAllocations, allocations_);
        EXPECT_EQ(OpenDescriptors(), descriptors_);
        EXPECT_LT(ResidentBytes(), bytes_ + slack);
    }

private:
    size_t allocations_;
    size_t descriptors_;
    size_t bytes_;
};

/// FNV-1a.
template <typename Bytes>
uint64_t Digest(uint64_t start, const Bytes& bytes) {
    for (const auto byte : bytes) {
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

    /// Frames over a ring of buffers; now and then one is replaced, so that its descriptor comes back as
    /// another buffer's. `every` is called after each frame.
    void Soak(desk::DeskNode& node, unsigned frames, const std::function<void(unsigned)>& every) {
        const desk::Negotiated sizes = node.Negotiate({64, 48}, {0.25F, 0.25F});
        std::vector<std::shared_ptr<desk::GrallocBuffer>> ring(16);
        const auto make = [&](size_t i) {
            ring[i].reset();
            ring[i] = (i % 2 == 0) ? desk::GrallocBuffer::Create(sizes.input, sizes.inputAlignment[0])
                                   : desk::GrallocBuffer::Create(sizes.output, sizes.outputAlignment[0]);
        };
        for (size_t i = 0; i < ring.size(); ++i) {
            make(i);
        }
        for (unsigned frame = 1; frame <= frames; ++frame) {
            const size_t i = frame % 8 * 2;
            ASSERT_EQ(node.Process(frame, &grid_, *ring[i], *ring[i + 1]), 0U);
            if (frame % 50 == 0) {
                make(frame / 50 % 16);
            }
            every(frame);
        }
        node.Destroy();
    }
};

TEST_F(Stress, EveryRequestIsDoneOnceWhateverTheirNumber) {
    std::vector<std::thread> threads;
    for (unsigned id = 0; id < 4; ++id) {
        threads.emplace_back([this, id] {
            const auto variant = (id % 2 == 0) ? desk::Variant::RealTime : desk::Variant::LookAhead;
            for (const uint64_t requests : {1U, 2U, 3U, 5U, 8U, 13U, 21U, 34U, 55U, 89U}) {
                auto node = host_.CreateNode(variant);
                node->Negotiate({64, 48}, {0.25F, 0.25F});
                const auto input = node->AllocateInput();
                const auto output = node->AllocateOutput();
                for (uint64_t request = 1; request <= requests; ++request) {
                    EXPECT_EQ(node->Process(request, &grid_, *input, *output), 0U);
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
        auto node = host_.CreateNode(desk::Variant::LookAhead);
        const unsigned frames = Times(isDumped ? 500 : 9500);
        std::unique_ptr<Level> warm;
        Soak(*node, frames, [&](unsigned frame) {
            gl_->Take();
            if (frame == frames / 5) {
                warm = std::make_unique<Level>(host_);
            }
        });
        EXPECT_EQ(gl_->liveImages + gl_->liveNames + gl_->liveObjects, 0U);
        node = host_.CreateNode(desk::Variant::LookAhead);
        Soak(*node, frames, [&](unsigned frame) {
            gl_->Take();
            if (frame == frames / 5) {
                warm->ExpectHeld(host_);
            }
        });
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
    std::vector<std::shared_ptr<desk::GrallocBuffer>> ring;
    for (unsigned i = 0; i < 8; ++i) {
        ring.push_back(node->AllocateInput());
        ring.push_back(node->AllocateOutput());
    }
    std::unique_ptr<Level> warm;
    const unsigned frames = Times(500);
    for (unsigned frame = 1; frame <= frames; ++frame) {
        const size_t i = frame % 8 * 2;
        if (frame % 25 == 0) {
            ring[i]->Remap();
        }
        ASSERT_EQ(node->Process(frame, &grid, *ring[i], *ring[i + 1]), 0U);
        if (frame == frames / 2) {
            warm = std::make_unique<Level>(host_);
        }
        if (frame > 8) {
            ASSERT_EQ(host_.Counters().gl->liveImages, 16U);
        }
    }
    warm->ExpectHeld(host_);
}

TEST(Loading, TheLibraryLeavesTheProcessEachTime) {
    FakeGl gl;
    for (int round = 0; round < 200; ++round) {
        {
            desk::DeskHost host(OptionsFor(std::filesystem::temp_directory_path()));
            host.State().libraries.SetProvider(&gl);
            auto node =
                host.CreateNode((round % 2 == 0) ? desk::Variant::RealTime : desk::Variant::LookAhead);
            node.reset();
            EXPECT_TRUE(host.State().contract.List().empty());
        }
        for (const std::string& line : Mappings()) {
            ASSERT_EQ(line.find("com.oxa.node.dewarp"), std::string::npos) << "round " << round;
        }
    }
}

// Loads, enters and unloads on two threads that meet at each step; the library leaves with the last of them.
TEST(Loading, TwoThreadsLeaveNothingBehind) {
    const std::string library = OptionsFor({}).nodeLibrary;
    std::array<size_t, 3> warm = {};
    std::array<size_t, 3> last = {};
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
                Enter(handle);
            }
            meet(4);
            EXPECT_EQ(handle != nullptr ? ::dlclose(handle) : 0, 0);
        };
        std::thread other(load);
        load();
        other.join();
        ASSERT_EQ(::dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "round " << round;
        // In each round alike: the allocator keeps some of what the looking itself takes.
        last = {Mappings().size(), OpenDescriptors(), HeapBytes()};
        if (round == rounds) {
            warm = last;
        }
    }
    EXPECT_LE(last[1], warm[1]) << "descriptors";
    if (!IsSanitized) {
        EXPECT_LE(last[0], warm[0]) << "mappings";
        EXPECT_LE(last[2], warm[2] + 16384) << "bytes of the heap";
    }
}
