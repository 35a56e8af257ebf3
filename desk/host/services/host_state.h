#pragma once

#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "desk/base/guarded.h"
#include "desk/host/rules/contract.h"
#include "desk/host/rules/node_gate.h"
#include "desk/host/rules/service.h"
#include "desk/host/rules/tag_registry.h"
#include "desk/host/services/libraries.h"
#include "desk/host/services/log.h"
#include "desk/host/services/memory.h"
#include "desk/host/services/metadata.h"
#include "host/lumnodeutils.h"

namespace desk {

struct HostOptions {
    std::filesystem::path nodeLibrary;       ///< com.oxa.node.dewarp.so
    std::filesystem::path systemLibraryDir;  ///< what /system/lib64 maps to
    std::filesystem::path dumpDir;   ///< what /data/vendor/camera maps to; must exist while dumps are on
    std::ostream* log = &std::cerr;  ///< log lines and findings; null for none; outlives the host
    uint32_t luxBits = 1 | 2;        ///< levels logged from the start: errors and warnings
};

/// Everything that the one host of the process knows and does for its nodes. Services use it from several
/// threads; `tags`, `clock`, `fault` and `gate` are set while no callback runs.
struct HostState {
    /// Throws std::logic_error when another host exists.
    explicit HostState(HostOptions options);
    /// Closes the files that are still open.
    ~HostState();
    HostState(const HostState&) = delete;
    HostState& operator=(const HostState&) = delete;

    /// The one of the process, or null.
    static HostState* Current();

    const HostOptions options;
    Log log;
    Contract contract;
    TagRegistry tags;
    Metadata metadata;
    LumNodeInterface table = ServicesTable();  ///< what the library is handed
    Guarded<std::map<std::string, std::string>> properties;
    Guarded<std::set<FILE*>> openFiles;
    Libraries libraries;
    Memory memory;
    std::optional<LUMDateTime> clock;  ///< a fixed GetDateTime; the local time when empty
    Fault fault;                       ///< makes services fail; empty for none
    std::unique_ptr<NodeGate> gate;    ///< the way into the library, once it is loaded
};

/// What a service is asked about; nothing when it is not said.
inline std::string_view TextOf(const char* text) {
    return text != nullptr ? text : "";
}

/// One call of a service. Making it reports a call out of its phase and asks the fault; then the service
/// checks its arguments, and serves unless it `fails`. Without a host no service succeeds.
struct ServiceCall {
    explicit ServiceCall(const Service& called, std::string_view subject = {});

    /// Whether there is a host and none of the arguments is null, which is reported.
    bool Needs(std::initializer_list<const void*> arguments) const;
    /// Whether the session is that of the node that calls, which is reported otherwise.
    bool NeedsOwn(const void* session) const;

    HostState* operator->() const {
        return host;
    }

    const Service& service;
    HostState* const host;
    bool fails;       ///< because the fault has it so, or there is no host
    uint32_t result;  ///< what a failure looks like
};

}  // namespace desk
