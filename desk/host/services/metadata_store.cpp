#include "desk/host/services/metadata_store.h"

#include <cstring>

namespace desk {

void MetadataStore::Set(const void* session, uint64_t requestId, const Tag& tag, const void* data,
                        size_t size) {
    const auto* bytes = static_cast<const std::byte*>(data);
    const std::lock_guard<std::mutex> lock(mutex_);
    payloads_[{session, requestId, &tag}].assign(bytes, bytes + size);
}

void* MetadataStore::Find(const void* session, uint64_t requestId, const Tag& tag) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = payloads_.find({session, requestId, &tag});
    return found == payloads_.end() ? nullptr : found->second.data();
}

bool MetadataStore::Copy(const void* session, uint64_t requestId, const Tag& tag, void* to,
                         size_t size) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = payloads_.find({session, requestId, &tag});
    if (found == payloads_.end() || found->second.size() != size) {
        return false;
    }
    std::memcpy(to, found->second.data(), size);
    return true;
}

void MetadataStore::Remove(const void* session, uint64_t requestId, const Tag& tag) {
    const std::lock_guard<std::mutex> lock(mutex_);
    payloads_.erase({session, requestId, &tag});
}

void MetadataStore::RemoveSession(const void* session) {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto at = payloads_.lower_bound({session, 0, nullptr});
    while (at != payloads_.end() && std::get<0>(at->first) == session) {
        at = payloads_.erase(at);
    }
}

}  // namespace desk
