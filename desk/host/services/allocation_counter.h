#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_set>

namespace desk {

/// The blocks that the library allocated and has not freed. Thread safe.
class AllocationCounter {
public:
    void Allocated(const void* block);
    /// A block that is not the library's passes through uncounted.
    void Freed(const void* block);

    uint64_t Live() const;
    uint64_t Total() const;

private:
    mutable std::mutex mutex_;
    std::unordered_set<const void*> live_;
    uint64_t total_ = 0;
};

}  // namespace desk
