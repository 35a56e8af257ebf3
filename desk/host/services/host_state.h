#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "desk/base/guarded.h"
#include "desk/host/rules/contract.h"
#include "desk/host/rules/node_gate.h"
#include "desk/host/rules/service.h"
#include "desk/host/rules/tag_registry.h"
#include "desk/host/services/files.h"
#include "desk/host/services/libraries.h"
#include "desk/host/services/log.h"
#include "desk/host/services/memory.h"
#include "desk/host/services/metadata.h"
#include "desk/host/services/table.h"
#include "host/lumnodeutils.h"

namespace desk {

/// Everything that the one host of the process knows and does for its nodes. Services use it from several
/// threads; `tags`, `clock`, `fault` and `gate` are set while no callback runs.
struct HostState {
    /// `stream` takes log lines and findings: null for none, outlives the host. The folders stand for the
    /// device's. Throws std::logic_error when another host exists.
    HostState(std::ostream* stream, const std::filesystem::path& systemLibraryDir,
              const std::filesystem::path& dumpDir);
    ~HostState();

    /// The one of the process, or null.
    static HostState* Current();

    Log log;
    Contract contract;
    TagRegistry tags;
    Metadata metadata;
    LumNodeInterface table = ServicesTable();  ///< what the library is handed
    Guarded<std::map<std::string, std::string>> properties;
    Files files;
    Libraries libraries;
    Memory memory;
    std::optional<LUMDateTime> clock;  ///< a fixed GetDateTime; the local time when empty
    Fault fault;                       ///< makes services fail; empty for none
    std::unique_ptr<NodeGate> gate;    ///< the way into the library, once it is loaded
};

}  // namespace desk
