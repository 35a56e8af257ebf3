#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "desk/host/rules/contract.h"
#include "desk/host/services/host_services.h"
#include "host/lumnode.h"

namespace desk {

/// The nodes that live. Thread safe.
class NodeTable {
public:
    void Add(std::shared_ptr<NodeState> node);
    void Remove(void* handle);
    /// Null when no such node lives.
    std::shared_ptr<NodeState> Find(void* handle) const;
    size_t Count() const;

private:
    mutable std::mutex mutex_;
    std::map<void*, std::shared_ptr<NodeState>> nodes_;
};

/// The way into the library: every callback is called with its phase marked on the thread, and what it
/// did to the host's records and to the thread is compared with the rules afterwards. Requests of one node
/// may be in it together, on threads of their own; every other call on a node stands alone. A host that lets
/// one overlap is told so by a finding, and the call fails without reaching the library.
class NodeGate {
public:
    using Entry = void (*)(LumNodeCallbacks*);

    /// Calls the library's entry point. Throws std::runtime_error when it leaves a callback out.
    NodeGate(HostServices& services, Entry entry);
    ~NodeGate();
    NodeGate(const NodeGate&) = delete;
    NodeGate& operator=(const NodeGate&) = delete;

    void Enter(LumNodeCallbacks* callbacks);
    LumNodeCallbacks& Callbacks();
    NodeTable& Nodes();

    // The callbacks, as the table's functions reach them. A record too small to be read is passed on
    // unread: the library has to refuse it.
    uint32_t GetCaps(LumNodeCapsInfo* info);
    uint32_t Create(LumNodeCreateInfo* info);
    uint32_t Destroy(LumNodedestroyInfo* info);
    uint32_t QueryBufferInfo(LumNodeQueryBufferInfo* info);
    uint32_t SetBufferInfo(LumNodeSetBufferPropertiesInfo* info);
    uint32_t ProcRequest(LumNodeProcessRequestInfo* info);
    uint32_t SetNodeInterface(LumNodeInterface* nodeInterface);
    uint32_t DumpCoreNodeConfig(int32_t fd, uint32_t indent, void* reserved);

private:
    /// Runs a callback in its phase.
    template <typename Callback>
    uint32_t Run(const NodeCall& call, Callback&& callback);
    /// The same for a callback of the node that `Lock` lets in beside what else is in it.
    template <typename Lock, typename Callback>
    uint32_t RunIn(const NodeCall& call, Callback&& callback);
    void CheckTable(const LumNodeCallbacks& offered) const;

    HostServices& services_;
    Contract& contract_;
    Entry entry_;
    LumNodeCallbacks library_ = {};  // what the library filled
    LumNodeCallbacks entered_ = {};  // the same table, entered through the gate
    NodeTable nodes_;
};

}  // namespace desk
