#include "desk/host/rules/node_gate.h"

#include <shared_mutex>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "desk/host/rules/record_watch.h"
#include "host/lumresult.h"

namespace desk {
namespace {

// What a dewarp node has to fill.
constexpr auto Slots = std::make_tuple(
    &LumNodeCallbacks::GetCaps, &LumNodeCallbacks::Create, &LumNodeCallbacks::Destroy,
    &LumNodeCallbacks::QueryBufferInfo, &LumNodeCallbacks::SetBufferInfo, &LumNodeCallbacks::ProcRequest,
    &LumNodeCallbacks::SetNodeInterface, &LumNodeCallbacks::DumpCoreNodeConfig);

// How a call shares its node with others.
using Alone = std::unique_lock<std::shared_mutex>;
using Shared = std::shared_lock<std::shared_mutex>;

/// Whether a record may be read in full.
template <typename Record>
bool IsWhole(const Record* record) {
    return record != nullptr && record->size >= sizeof(Record);
}

}  // namespace

NodeGate::NodeGate(Contract& contract, const TagRegistry& tags, std::function<bool()> contextIsCurrent,
                   Entry entry)
    : contract_(contract),
      tags_(tags),
      contextIsCurrent_(std::move(contextIsCurrent)),
      entry_(entry),
      library_(PatternedRecord<LumNodeCallbacks>()) {
    library_.majorVersion = 0;
    library_.minorVersion = 1;
    const LumNodeCallbacks offered = library_;
    Enter(&library_);
    LumNodeCallbacks expected = offered;
    expected.minorVersion = 0;
    std::apply([&](auto... slot) { ((expected.*slot = library_.*slot), ...); }, Slots);
    const NodeCallScope scope({PhaseEntry});
    RequireRecord(contract_, "LumNodeCallbacks", expected, library_);
    if (std::apply([&](auto... slot) { return ((library_.*slot == offered.*slot) || ...); }, Slots)) {
        throw std::runtime_error("LumNodeEntry left one of the eight callbacks of a dewarp node out");
    }
}

void NodeGate::Enter(LumNodeCallbacks* callbacks) {
    const NodeCallScope scope({PhaseEntry});
    entry_(callbacks);
}

std::shared_ptr<NodeState> NodeGate::Find(void* handle) const {
    return nodes_.With([&](const auto& nodes) -> std::shared_ptr<NodeState> {
        const auto found = nodes.find(handle);
        return found == nodes.end() ? nullptr : found->second;
    });
}

size_t NodeGate::LiveNodes() const {
    return nodes_.With([](const auto& nodes) { return nodes.size(); });
}

template <typename Lock, typename Callback>
uint32_t NodeGate::Run(const NodeCall& call, Callback&& callback) {
    Lock lock;
    if (call.node != nullptr) {
        lock = Lock(call.node->occupancy, std::try_to_lock);
        if (!lock.owns_lock()) {
            contract_.Report(Describe(call) +
                             " meets another call on the same node; expected the host to let only requests "
                             "overlap");
            return LumResultFailure;
        }
    }
    const NodeCallScope scope(call);
    const bool before = contextIsCurrent_();
    const uint32_t result = callback();
    // A frame that failed half-way may keep its context until the next one.
    contract_.Require(result != 0 || before || !contextIsCurrent_(),
                      "leaves its EGL context current on the calling thread");
    return result;
}

uint32_t NodeGate::GetCaps(LumNodeCapsInfo* info) {
    return Run<Alone>({PhaseCaps}, [&] { return library_.GetCaps(info); });
}

uint32_t NodeGate::Create(LumNodeCreateInfo* info) {
    if (!IsWhole(info)) {
        return Run<Alone>({PhaseRefusal}, [&] { return library_.Create(info); });
    }
    auto node = std::make_shared<NodeState>();
    node->session = info->hSession;
    for (const Variant variant : {Variant::RealTime, Variant::LookAhead}) {
        if (info->nodeCaps == CapsOf(variant)) {
            node->variant = variant;
        }
    }
    const LumNodeCreateInfo before = *info;
    const uint32_t result = Run<Alone>({PhaseCreate, node.get()}, [&] {
        const uint32_t created = library_.Create(info);
        CheckCreation(contract_, before, *info, created);
        return created;
    });
    // A creation that fails at its very end still hands its node over.
    if (info->phNodeSession != before.phNodeSession && info->phNodeSession != nullptr) {
        node->handle = info->phNodeSession;
        nodes_.With([&](auto& nodes) { nodes[node->handle] = node; });
    } else if (result == 0) {
        contract_.Report("the library created a node with success but returned no handle");
    }
    return result;
}

uint32_t NodeGate::Destroy(LumNodedestroyInfo* info) {
    if (!IsWhole(info) || info->hNodeSession == nullptr) {
        return Run<Alone>({PhaseRefusal}, [&] { return library_.Destroy(info); });
    }
    void* const handle = info->hNodeSession;
    const std::shared_ptr<NodeState> node = Find(handle);
    return Run<Alone>({PhaseDestroy, node.get()}, [&] {
        // Before its address can come back as another node's.
        nodes_.With([&](auto& nodes) { nodes.erase(handle); });
        const uint32_t destroyed = library_.Destroy(info);
        contract_.Require(destroyed != 0 || info->hNodeSession == nullptr, "leaves its handle in the record");
        if (destroyed != 0 && node != nullptr) {
            nodes_.With([&](auto& nodes) { nodes[handle] = node; });
        }
        return destroyed;
    });
}

uint32_t NodeGate::QueryBufferInfo(LumNodeQueryBufferInfo* info) {
    const auto node = IsWhole(info) ? Find(info->hNodeSession) : nullptr;
    if (node == nullptr) {
        return Run<Alone>({PhaseRefusal}, [&] { return library_.QueryBufferInfo(info); });
    }
    const auto check = WatchQuery(*info);
    return Run<Alone>({PhaseQuery, node.get()}, [&] {
        const uint32_t result = library_.QueryBufferInfo(info);
        check(contract_);
        return result;
    });
}

uint32_t NodeGate::SetBufferInfo(LumNodeSetBufferPropertiesInfo* info) {
    const auto node = IsWhole(info) ? Find(info->hNodeSession) : nullptr;
    const Phase phase = node != nullptr ? PhaseSetBuffer : PhaseRefusal;
    return Run<Alone>({phase, node.get()}, [&] { return library_.SetBufferInfo(info); });
}

uint32_t NodeGate::ProcRequest(LumNodeProcessRequestInfo* info) {
    const auto node = IsWhole(info) ? Find(info->hNodeSession) : nullptr;
    const bool isPass = node != nullptr && info->pDependency != nullptr &&
                        (info->pDependency->processSequenceId & 0xffffU) <= 1;
    if (!isPass) {
        return Run<Shared>({PhaseRefusal, node.get()}, [&] { return library_.ProcRequest(info); });
    }
    const bool isFirst = (info->pDependency->processSequenceId & 0xffffU) == 0;
    const auto check = WatchRequest(*info);
    const Phase phase = isFirst ? PhaseFirstPass : PhaseSecondPass;
    const uint32_t result = Run<Shared>({phase, node.get(), info->requestId}, [&] {
        const uint32_t processed = library_.ProcRequest(info);
        check(contract_, tags_, processed);
        return processed;
    });
    if (!isFirst) {
        node->lastRequest = info->requestId;
    }
    return result;
}

uint32_t NodeGate::SetNodeInterface(LumNodeInterface* nodeInterface) {
    return Run<Alone>({PhaseInterface}, [&] { return library_.SetNodeInterface(nodeInterface); });
}

uint32_t NodeGate::DumpCoreNodeConfig(int32_t fd, uint32_t indent, void* reserved) {
    return Run<Alone>({PhaseRefusal}, [&] { return library_.DumpCoreNodeConfig(fd, indent, reserved); });
}

}  // namespace desk
