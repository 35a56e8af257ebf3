#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "desk/host/host_types.h"

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

/// What the host knows of one live node. Calls on one node never overlap, so only the thread that
/// runs its callback touches this.
struct NodeState {
    void* handle = nullptr;   ///< the node's own, as its creation returned it
    void* session = nullptr;  ///< the host's
    std::optional<Variant> variant;
    std::optional<uint64_t> pinnedReference;  ///< the reference request that tests ask for
    uint64_t lastRequest = 0;                 ///< last request whose second pass returned
    // What the node did in the pass that is running.
    uint64_t answeredReference = 0;
    unsigned windowQueries = 0;
    unsigned doneNotices = 0;
};

/// The callback that runs on a thread.
struct NodeCall {
    Phase phase = PhaseOutside;
    NodeState* node = nullptr;  ///< null when the callback concerns no known node
    uint64_t requestId = 0;     ///< in the two passes
};

/// The callback running on this thread; PhaseOutside when there is none.
const NodeCall& CurrentCall();

/// Marks the calling thread as running a callback, for its own lifetime.
class NodeCallScope {
public:
    explicit NodeCallScope(const NodeCall& call);
    ~NodeCallScope();
    NodeCallScope(const NodeCallScope&) = delete;
    NodeCallScope& operator=(const NodeCallScope&) = delete;

private:
    NodeCall previous_;
};

/// For sentences: "the real-time node in the second pass of request 7".
std::string Describe(const NodeCall& call);

}  // namespace desk
