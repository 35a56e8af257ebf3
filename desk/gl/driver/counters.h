#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace desk {

/// What is behind desk_gl_counters(), whose header says what each one is.
struct Counters {
    std::atomic<uint64_t> imports{0};
    std::atomic<uint64_t> liveImages{0};
    std::atomic<uint64_t> initialisedDisplays{0};
    std::atomic<uint64_t> liveContexts{0};
    std::atomic<int32_t> maxTextureSize{0};
    std::array<char, 128> renderer{};  ///< written once, before maxTextureSize is
};

inline Counters& GlobalCounters() {
    static Counters counters;
    return counters;
}

/// A member that counts its owner as alive from construction to destruction.
class LiveCount {
public:
    explicit LiveCount(std::atomic<uint64_t>& count) : count_(count) {
        ++count_;
    }
    ~LiveCount() {
        --count_;
    }
    LiveCount(const LiveCount&) = delete;
    LiveCount& operator=(const LiveCount&) = delete;

private:
    std::atomic<uint64_t>& count_;
};

}  // namespace desk
