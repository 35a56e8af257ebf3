#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "desk/base/guarded.h"
#include "desk/host/rules/tag_registry.h"
#include "host/lumnode.h"

namespace desk {

/// The payloads of the host's vendor tags, per session and request. Request 0 holds what is not tied to
/// a request. Thread safe; a payload handed to a node stays valid until it is replaced or removed.
class Metadata {
public:
    /// Copies `size` bytes; replaces what is there.
    void Set(const void* session, uint64_t requestId, const Tag& tag, const void* data, size_t size);
    template <typename Payload>
    void Set(const void* session, uint64_t requestId, const Tag& tag, const Payload& payload) {
        Set(session, requestId, tag, &payload, sizeof(payload));
    }

    /// The payload in place, or null.
    void* Find(const void* session, uint64_t requestId, const Tag& tag);
    /// A copy of the payload; empty when there is none or the tag's are of another size.
    template <typename Payload>
    std::optional<Payload> Get(const void* session, uint64_t requestId, const Tag& tag) {
        const void* payload = tag.payloadSize == sizeof(Payload) ? Find(session, requestId, tag) : nullptr;
        return payload != nullptr ? std::optional(*static_cast<const Payload*>(payload)) : std::nullopt;
    }

    void Remove(const void* session, uint64_t requestId, const Tag& tag);
    void RemoveSession(const void* session);

private:
    using Key = std::pair<uint64_t, const Tag*>;  ///< request, tag

    Guarded<std::map<const void*, std::map<Key, std::vector<std::byte>>>> sessions_;
};

/// The services table that the library is handed. What no node knows of leads to a finding.
LumNodeInterface ServicesTable();

}  // namespace desk
