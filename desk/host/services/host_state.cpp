#include "desk/host/services/host_state.h"

#include <atomic>
#include <stdexcept>
#include <string>

namespace desk {
namespace {

std::atomic<HostState*> current = nullptr;

}  // namespace

HostState::HostState(std::ostream* stream, const std::filesystem::path& systemLibraryDir,
                     const std::filesystem::path& dumpDir)
    : log(stream),
      contract([this](const std::string& sentence) { log.WriteOwn("finding: " + sentence); }),
      files(dumpDir),
      libraries(systemLibraryDir, contract) {
    HostState* none = nullptr;
    if (!current.compare_exchange_strong(none, this)) {
        throw std::logic_error("another DeskHost exists in this process; only one may at a time");
    }
}

HostState::~HostState() {
    current = nullptr;
}

HostState* HostState::Current() {
    return current;
}

}  // namespace desk
