#pragma once

#include <mutex>
#include <utility>

namespace desk {

/// A value that one thread at a time gets hold of.
template <typename Value>
class Guarded {
public:
    /// Calls `use` with the value, which no other thread has meanwhile. Returns what `use` returns.
    template <typename Use>
    decltype(auto) With(Use&& use) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::forward<Use>(use)(value_);
    }
    template <typename Use>
    decltype(auto) With(Use&& use) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::forward<Use>(use)(value_);
    }

private:
    mutable std::mutex mutex_;
    Value value_{};
};

}  // namespace desk
