#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <shared_mutex>
#include <string>
#include <utility>

#include "desk/abi/node_types.h"

namespace desk {

/// Which callback of the library is running. One bit each, so that a service names all the phases in
/// which a node may call it.
enum Phase : unsigned {
    PhaseOutside = 1U << 0,  ///< no callback runs on this thread
    PhaseEntry = 1U << 1,
    PhaseInterface = 1U << 2,
    PhaseCaps = 1U << 3,
    PhaseCreate = 1U << 4,
    PhaseQuery = 1U << 5,
    PhaseSetBuffer = 1U << 6,
    PhaseFirstPass = 1U << 7,
    PhaseSecondPass = 1U << 8,
    PhaseDestroy = 1U << 9,
    PhaseRefusal = 1U << 10  ///< a record that the callback must refuse or pass over
};
constexpr unsigned AnyCallback = ~0U & ~unsigned{PhaseOutside};
constexpr unsigned AnyPhase = ~0U;

/// The reference request that QueryRequestWindow answers in the first pass of `requestId`.
using ReferenceRequest = std::function<uint64_t(uint64_t requestId)>;

/// What the host knows of one live node. Requests run in it on several threads at once; what is neither
/// atomic nor a lock stays as it is meanwhile.
struct NodeState {
    void* handle = nullptr;   ///< the node's own, as its creation returned it
    void* session = nullptr;  ///< the host's
    std::optional<Variant> variant;
    ReferenceRequest reference;             ///< empty: the request that the node finished last
    std::atomic<uint64_t> lastRequest = 0;  ///< last request whose second pass returned
    std::shared_mutex occupancy;  ///< shared by the requests in the node; held alone by every other call
};

/// The callback that runs on a thread.
struct NodeCall {
    Phase phase = PhaseOutside;
    NodeState* node = nullptr;  ///< null when the callback concerns no known node
    uint64_t requestId = 0;     ///< in the two passes
    // What the node has done in the callback so far.
    uint64_t answeredReference = 0;
    unsigned windowQueries = 0;
    unsigned doneNotices = 0;
};

/// The callback running on this thread; PhaseOutside when there is none.
NodeCall& CurrentCall();

/// Marks the calling thread as running a callback, for its own lifetime.
class NodeCallScope {
public:
    explicit NodeCallScope(const NodeCall& call) : previous_(std::exchange(CurrentCall(), call)) {}
    ~NodeCallScope() {
        CurrentCall() = previous_;
    }
    NodeCallScope(const NodeCallScope&) = delete;
    NodeCallScope& operator=(const NodeCallScope&) = delete;

private:
    NodeCall previous_;
};

/// For sentences: "the real-time node in the second pass of request 7".
std::string Describe(const NodeCall& call);

}  // namespace desk
