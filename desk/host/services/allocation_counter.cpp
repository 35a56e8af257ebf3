#include "desk/host/services/allocation_counter.h"

namespace desk {

void AllocationCounter::Allocated(const void* block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    live_.insert(block);
    ++total_;
}

void AllocationCounter::Freed(const void* block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    live_.erase(block);
}

uint64_t AllocationCounter::Live() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return live_.size();
}

uint64_t AllocationCounter::Total() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return total_;
}

}  // namespace desk
