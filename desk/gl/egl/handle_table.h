#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "desk/gl/driver/real_gl.h"

namespace desk {

/// The displays' shares in what their handles stand for. Owners are handed out, so that the last one does its
/// work after the lock.
template <typename Owned>
class HandleTable {
public:
    using Owner = std::shared_ptr<Owned>;

    void Add(EGLDisplay display, void* handle, Owner owner) {
        const std::lock_guard<std::mutex> lock(mutex_);
        owners_[{display, handle}] = std::move(owner);
    }

    /// Null when the display has no such handle, here and below.
    Owner Find(EGLDisplay display, void* handle) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = owners_.find({display, handle});
        return found == owners_.end() ? nullptr : found->second;
    }

    Owner Remove(EGLDisplay display, void* handle) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto node = owners_.extract({display, handle});
        return node.empty() ? nullptr : std::move(node.mapped());
    }

    /// All of the display's, whose handles end.
    std::vector<Owner> TakeAll(EGLDisplay display) {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::vector<Owner> taken;
        const auto first = owners_.lower_bound({display, nullptr});
        auto last = first;
        for (; last != owners_.end() && last->first.first == display; ++last) {
            taken.push_back(std::move(last->second));
        }
        owners_.erase(first, last);
        return taken;
    }

private:
    std::mutex mutex_;
    std::map<std::pair<EGLDisplay, void*>, Owner> owners_;
};

}  // namespace desk
