#include "desk/host/rules/node_gate.h"

#include <atomic>
#include <cstring>
#include <shared_mutex>
#include <stdexcept>
#include <utility>

#include "desk/host/rules/record_watch.h"

namespace desk {
namespace {

std::atomic<NodeGate*> currentGate = nullptr;

/// A callback of the entered table that hands its record on to a member of the gate.
template <auto Member, typename Record>
uint32_t Through(Record* record) {
    return (currentGate.load()->*Member)(record);
}

// How a call shares its node with others.
using Alone = std::unique_lock<std::shared_mutex>;
using Shared = std::shared_lock<std::shared_mutex>;

/// Whether a record may be read in full.
template <typename Record>
bool IsWhole(const Record* record) {
    return record != nullptr && record->size >= sizeof(Record);
}

std::optional<Variant> VariantOf(uint32_t caps) {
    for (const Variant variant : {Variant::RealTime, Variant::LookAhead}) {
        if (caps == CapsOf(variant)) {
            return variant;
        }
    }
    return std::nullopt;
}

}  // namespace

void NodeTable::Add(std::shared_ptr<NodeState> node) {
    const std::lock_guard<std::mutex> lock(mutex_);
    void* handle = node->handle;
    nodes_[handle] = std::move(node);
}

void NodeTable::Remove(void* handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    nodes_.erase(handle);
}

std::shared_ptr<NodeState> NodeTable::Find(void* handle) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = nodes_.find(handle);
    return found == nodes_.end() ? nullptr : found->second;
}

size_t NodeTable::Count() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return nodes_.size();
}

NodeGate::NodeGate(HostServices& services, Entry entry)
    : services_(services), contract_(services.contract), entry_(entry) {
    std::memset(&library_, HostPattern, sizeof(library_));
    library_.size = sizeof(library_);
    library_.majorVersion = 0;
    library_.minorVersion = 1;
    const LumNodeCallbacks offered = library_;
    Enter(&library_);
    CheckTable(offered);
    entered_ = library_;
    entered_.GetCaps = Through<&NodeGate::GetCaps>;
    entered_.Create = Through<&NodeGate::Create>;
    entered_.Destroy = Through<&NodeGate::Destroy>;
    entered_.QueryBufferInfo = Through<&NodeGate::QueryBufferInfo>;
    entered_.SetBufferInfo = Through<&NodeGate::SetBufferInfo>;
    entered_.ProcRequest = Through<&NodeGate::ProcRequest>;
    entered_.SetNodeInterface = Through<&NodeGate::SetNodeInterface>;
    entered_.DumpCoreNodeConfig = [](int32_t fd, uint32_t indent, void* reserved) {
        return currentGate.load()->DumpCoreNodeConfig(fd, indent, reserved);
    };
    currentGate = this;
}

NodeGate::~NodeGate() {
    currentGate = nullptr;
}

void NodeGate::CheckTable(const LumNodeCallbacks& offered) const {
    LumNodeCallbacks expected = library_;
    expected.size = offered.size;
    expected.minorVersion = 0;
    expected.reserved12 = offered.reserved12;
    expected.reservedSlot1 = offered.reservedSlot1;
    std::memcpy(expected.reservedSlots8, offered.reservedSlots8, sizeof(expected.reservedSlots8));
    std::memcpy(expected.reservedSlots23, offered.reservedSlots23, sizeof(expected.reservedSlots23));
    const NodeCallScope scope({PhaseEntry});
    RequireRecord(contract_, "LumNodeCallbacks", {}, &expected, &library_, sizeof(expected));
    if (library_.GetCaps == offered.GetCaps || library_.Create == offered.Create ||
        library_.Destroy == offered.Destroy || library_.QueryBufferInfo == offered.QueryBufferInfo ||
        library_.SetBufferInfo == offered.SetBufferInfo || library_.ProcRequest == offered.ProcRequest ||
        library_.SetNodeInterface == offered.SetNodeInterface ||
        library_.DumpCoreNodeConfig == offered.DumpCoreNodeConfig) {
        throw std::runtime_error("LumNodeEntry left one of the eight callbacks of a dewarp node out");
    }
}

void NodeGate::Enter(LumNodeCallbacks* callbacks) {
    const NodeCallScope scope({PhaseEntry});
    entry_(callbacks);
}

LumNodeCallbacks& NodeGate::Callbacks() {
    return entered_;
}

NodeTable& NodeGate::Nodes() {
    return nodes_;
}

template <typename Callback>
uint32_t NodeGate::Run(const NodeCall& call, Callback&& callback) {
    const NodeCallScope scope(call);
    const auto contextIsCurrent = [this] {
        const std::optional<DeskGlCounters> gl = services_.libraries.GlCounters();
        return gl && gl->contextCurrent != 0;
    };
    const bool before = contextIsCurrent();
    const uint32_t result = callback();
    // A frame that failed half-way may keep its context until the next one.
    contract_.Require(result != 0 || before || !contextIsCurrent(),
                      "leaves its EGL context current on the calling thread");
    return result;
}

template <typename Lock, typename Callback>
uint32_t NodeGate::RunIn(const NodeCall& call, Callback&& callback) {
    if (call.node == nullptr) {
        return Run(call, std::forward<Callback>(callback));
    }
    const Lock lock(call.node->occupancy, std::try_to_lock);
    if (!lock.owns_lock()) {
        contract_.Report(Describe(call) +
                         " meets another call on the same node; expected the host to let only requests "
                         "overlap");
        return LumResultFailure;
    }
    return Run(call, std::forward<Callback>(callback));
}

uint32_t NodeGate::GetCaps(LumNodeCapsInfo* info) {
    return Run({PhaseCaps}, [&] { return library_.GetCaps(info); });
}

uint32_t NodeGate::Create(LumNodeCreateInfo* info) {
    if (!IsWhole(info)) {
        return Run({PhaseRefusal}, [&] { return library_.Create(info); });
    }
    auto node = std::make_shared<NodeState>();
    node->session = info->hSession;
    node->variant = VariantOf(info->nodeCaps);
    void* const before = info->phNodeSession;
    const CreateWatch watch(*info);
    const uint32_t result = Run({PhaseCreate, node.get()}, [&] {
        const uint32_t created = library_.Create(info);
        watch.Check(contract_, created);
        return created;
    });
    // A creation that fails at its very end still hands its node over.
    if (info->phNodeSession != before && info->phNodeSession != nullptr) {
        node->handle = info->phNodeSession;
        nodes_.Add(std::move(node));
    } else if (result == 0) {
        contract_.Report("the library created a node with success but returned no handle");
    }
    return result;
}

uint32_t NodeGate::Destroy(LumNodedestroyInfo* info) {
    if (!IsWhole(info) || info->hNodeSession == nullptr) {
        return Run({PhaseRefusal}, [&] { return library_.Destroy(info); });
    }
    void* const handle = info->hNodeSession;
    const std::shared_ptr<NodeState> node = nodes_.Find(handle);
    return RunIn<Alone>({PhaseDestroy, node.get()}, [&] {
        nodes_.Remove(handle);  // before its address can come back as another node's
        const uint32_t destroyed = library_.Destroy(info);
        contract_.Require(destroyed != 0 || info->hNodeSession == nullptr, "leaves its handle in the record");
        if (destroyed != 0 && node != nullptr) {
            nodes_.Add(node);
        }
        return destroyed;
    });
}

uint32_t NodeGate::QueryBufferInfo(LumNodeQueryBufferInfo* info) {
    const auto node = IsWhole(info) ? nodes_.Find(info->hNodeSession) : nullptr;
    if (node == nullptr) {
        return Run({PhaseRefusal}, [&] { return library_.QueryBufferInfo(info); });
    }
    QueryWatch watch(*info);
    return RunIn<Alone>({PhaseQuery, node.get()}, [&] {
        const uint32_t result = library_.QueryBufferInfo(info);
        watch.Check(contract_);
        return result;
    });
}

uint32_t NodeGate::SetBufferInfo(LumNodeSetBufferPropertiesInfo* info) {
    const auto node = IsWhole(info) ? nodes_.Find(info->hNodeSession) : nullptr;
    const Phase phase = node != nullptr ? PhaseSetBuffer : PhaseRefusal;
    return RunIn<Alone>({phase, node.get()}, [&] { return library_.SetBufferInfo(info); });
}

uint32_t NodeGate::ProcRequest(LumNodeProcessRequestInfo* info) {
    const auto node = IsWhole(info) ? nodes_.Find(info->hNodeSession) : nullptr;
    const bool isPass = node != nullptr && info->pDependency != nullptr &&
                        (info->pDependency->processSequenceId & 0xffffU) <= 1;
    if (!isPass) {
        return RunIn<Shared>({PhaseRefusal, node.get()}, [&] { return library_.ProcRequest(info); });
    }
    const bool isFirst = (info->pDependency->processSequenceId & 0xffffU) == 0;
    RequestWatch watch(*info);
    PassRecord pass;
    const Phase phase = isFirst ? PhaseFirstPass : PhaseSecondPass;
    const uint32_t result = RunIn<Shared>({phase, node.get(), info->requestId, &pass}, [&] {
        const uint32_t processed = library_.ProcRequest(info);
        if (isFirst) {
            watch.CheckFirstPass(contract_, services_.tags, processed);
        } else {
            watch.CheckSecondPass(contract_);
        }
        return processed;
    });
    if (!isFirst) {
        node->lastRequest = info->requestId;
    }
    return result;
}

uint32_t NodeGate::SetNodeInterface(LumNodeInterface* nodeInterface) {
    return Run({PhaseInterface}, [&] { return library_.SetNodeInterface(nodeInterface); });
}

uint32_t NodeGate::DumpCoreNodeConfig(int32_t fd, uint32_t indent, void* reserved) {
    return Run({PhaseRefusal}, [&] { return library_.DumpCoreNodeConfig(fd, indent, reserved); });
}

}  // namespace desk
