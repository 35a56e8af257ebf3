#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>

#include "desk/base/guarded.h"
#include "desk/host/rules/contract.h"
#include "desk/host/rules/tag_registry.h"
#include "host/lumnode.h"

namespace desk {

/// The way into the library: every callback is called with its phase marked on the thread, and what it
/// did to the host's records and to the thread is compared with the rules afterwards. Requests of one node
/// may be in it together, on threads of their own; every other call on a node stands alone. A host that lets
/// one overlap is told so by a finding, and the call fails without reaching the library.
class NodeGate {
public:
    using Entry = void (*)(LumNodeCallbacks*);

    /// Calls the library's entry point. `contextIsCurrent` tells whether the calling thread has a GL context
    /// current. Throws std::runtime_error when the library leaves a callback out.
    NodeGate(Contract& contract, const TagRegistry& tags, std::function<bool()> contextIsCurrent,
             Entry entry);
    NodeGate(const NodeGate&) = delete;
    NodeGate& operator=(const NodeGate&) = delete;

    /// Calls the library's entry point once more.
    void Enter(LumNodeCallbacks* callbacks);
    /// Null when no such node lives.
    std::shared_ptr<NodeState> Find(void* handle) const;
    size_t LiveNodes() const;

    // The library's callbacks. A record too small to be read is passed on unread: the library has to
    // refuse it.
    uint32_t GetCaps(LumNodeCapsInfo* info);
    uint32_t Create(LumNodeCreateInfo* info);
    uint32_t Destroy(LumNodedestroyInfo* info);
    uint32_t QueryBufferInfo(LumNodeQueryBufferInfo* info);
    uint32_t SetBufferInfo(LumNodeSetBufferPropertiesInfo* info);
    uint32_t ProcRequest(LumNodeProcessRequestInfo* info);
    uint32_t SetNodeInterface(LumNodeInterface* nodeInterface);
    uint32_t DumpCoreNodeConfig(int32_t fd, uint32_t indent, void* reserved);

private:
    /// Runs a callback in its phase, once `Lock` lets it in beside what else is in its node.
    template <typename Lock, typename Callback>
    uint32_t Run(const NodeCall& call, Callback&& callback);

    Contract& contract_;
    const TagRegistry& tags_;
    const std::function<bool()> contextIsCurrent_;
    const Entry entry_;
    LumNodeCallbacks library_;
    Guarded<std::map<void*, std::shared_ptr<NodeState>>> nodes_;
};

}  // namespace desk
