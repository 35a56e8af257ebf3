#pragma once

#include "desk/abi/gl_reports.h"
#include "desk/base/guarded.h"

namespace desk {

/// What desk_gl_counters() gives, but for what is the calling thread's.
inline auto& globalCounters = *new Guarded<DeskGlCounters>;  // threads may outlive the static objects

/// A member that counts its owner as alive from construction to destruction.
class LiveCount {
public:
    explicit LiveCount(uint64_t DeskGlCounters::*count) : count_(count) {
        globalCounters.With([count](DeskGlCounters& counters) { ++(counters.*count); });
    }
    ~LiveCount() {
        globalCounters.With([this](DeskGlCounters& counters) { --(counters.*count_); });
    }
    LiveCount(const LiveCount&) = delete;
    LiveCount& operator=(const LiveCount&) = delete;

private:
    uint64_t DeskGlCounters::*count_;
};

}  // namespace desk
