#pragma once

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "desk/host/desk_host.h"

/// DEWARP_SOAK multiplies what the long tests do; the nightly run sets it.
inline unsigned Times(unsigned count) {
    const char* factor = std::getenv("DEWARP_SOAK");
    return static_cast<unsigned>(count * (factor != nullptr ? std::atof(factor) : TEST_SOAK));
}

/// A sanitizer keeps freed memory and books of its own: there the live allocations have to do.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IsSanitized = true;
#else
constexpr bool IsSanitized = false;
#endif

inline size_t OpenDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(folder), end(folder)));
}

/// What must not grow, read at two moments of a long run. Memory may, by what allocators round up.
class Level {
public:
    explicit Level(const desk::DeskHost& host) : allocations_(host.Counters().liveAllocations) {
        std::ifstream("/proc/self/statm") >> pages_ >> pages_;  // of the whole, then those that are resident
    }
    void ExpectHeld(const desk::DeskHost& host) const {
        constexpr size_t slack = 4U << 20U;
        const Level now(host);
        EXPECT_EQ(now.allocations_, allocations_);
        EXPECT_EQ(now.descriptors_, descriptors_);
        if (!IsSanitized) {
            EXPECT_LT(now.pages_, pages_ + slack / static_cast<size_t>(::sysconf(_SC_PAGESIZE)));
        }
    }

private:
    size_t allocations_;
    size_t descriptors_ = OpenDescriptors();
    size_t pages_ = 0;
};
