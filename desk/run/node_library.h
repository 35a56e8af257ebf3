#pragma once

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>

#include "desk/host/desk_host.h"

namespace desk {

/// The whole path of the node library: the one that is named, or the one built beside the program. Throws
/// UsageError when the one that is named is no library for this machine; std::runtime_error when there is
/// none.
std::filesystem::path NodeLibrary(const std::filesystem::path& named);

/// The number by which the linker marked a library that is loaded, in hexadecimal digits; empty without.
std::string BuildId(const std::filesystem::path& library);

/// A host that has loaded the library. Throws UsageError when the library is no node.
std::unique_ptr<DeskHost> OpenHost(const std::filesystem::path& library, const std::filesystem::path& dumpDir,
                                   std::ostream* log, uint32_t luxBits);

}  // namespace desk
