#include <dlfcn.h>

#include <array>
#include <atomic>
#include <thread>

#include "tests/node/fakegl/fake_gl_fixture.h"
#include "tests/node/stress/level.h"

namespace {

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

}  // namespace

TEST(Loading, TheLibraryLeavesTheProcessEachTime) {
    FakeGl gl;
    for (unsigned round = 0; round < 200; ++round) {
        {
            desk::DeskHost host(OptionsFor(std::filesystem::temp_directory_path()));
            host.State().libraries.SetProvider(&gl);
            host.CreateNode(Variants[round % 2]);
            EXPECT_TRUE(host.State().contract.List().empty());
        }
        EXPECT_THAT(Mappings(), ::testing::Each(::testing::Not(::testing::HasSubstr("com.oxa.node.dewarp"))));
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
