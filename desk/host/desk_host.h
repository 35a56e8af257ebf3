#pragma once

#include <memory>
#include <optional>

#include "desk/abi/node_types.h"
#include "desk/host/rules/node_gate.h"
#include "desk/host/services/host_state.h"

namespace desk {

class DeskNode;

/// What exists right now because of the library.
struct HostCounters {
    uint64_t liveNodes = 0;
    uint64_t liveAllocations = 0;   ///< blocks that the library allocated and has not freed
    uint64_t totalAllocations = 0;  ///< since the library was loaded
    uint64_t openFiles = 0;
    uint64_t mappedLibraries = 0;      ///< mappings made and not undone
    std::optional<DeskGlCounters> gl;  ///< what the desk's GL libraries count; empty with any others
};

/// The camera framework of a workstation: loads the node library, hands it the host's services and
/// watches over the rules between the two. At most one exists in a process at a time.
/// Set up on one thread. Nodes may then run on several threads at once, and so may the requests of one node:
/// only its creation, negotiation and destruction stand alone. The Set... functions and tag ids are for times
/// when no callback runs.
class DeskHost : public HostState {
public:
    /// Loads the library, fetches its callbacks, hands over the services and asks for its capabilities.
    /// Throws std::logic_error when another host exists; std::runtime_error, naming the file and the
    /// reason, when the library cannot be used.
    explicit DeskHost(HostOptions given);
    /// Runs CheckTornDown, unloads the library and releases what it left behind. Nodes must be gone.
    ~DeskHost();
    DeskHost(const DeskHost&) = delete;
    DeskHost& operator=(const DeskHost&) = delete;

    /// Throws NodeError when the library refuses.
    std::unique_ptr<DeskNode> CreateNode(Variant variant);

    HostCounters Counters() const;

    /// g_enableLuxLogs and g_enableSystemLog.
    void SetLogLevels(uint32_t luxBits, bool systemLog);
    /// The property that switches the dump files of nodes created from now on. Throws std::runtime_error
    /// when the dump folder does not exist.
    void SetDumps(bool on);
    /// Reports as findings what is left of the library's doing although no node lives: allocations,
    /// mapped libraries, open files, GL images and contexts, descriptors of the desk's memory.
    void CheckTornDown();

private:
    std::unique_ptr<void, int (*)(void*)> library_;  // unloaded while its services still exist
};

}  // namespace desk
