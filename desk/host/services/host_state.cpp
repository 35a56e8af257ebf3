#include "desk/host/services/host_state.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <utility>

namespace desk {
namespace {

std::atomic<HostState*> current = nullptr;

}  // namespace

HostState::HostState(HostOptions givenOptions)
    : options(std::move(givenOptions)),
      log(options.log),
      contract([this](const std::string& sentence) { log.WriteOwn("finding: " + sentence); }),
      libraries(options.systemLibraryDir, contract) {
    HostState* none = nullptr;
    if (!current.compare_exchange_strong(none, this)) {
        throw std::logic_error("another DeskHost exists in this process; only one may at a time");
    }
}

HostState::~HostState() {
    current = nullptr;
    openFiles.With([](const auto& files) { std::for_each(files.begin(), files.end(), &std::fclose); });
}

HostState* HostState::Current() {
    return current;
}

ServiceCall::ServiceCall(const Service& called, std::string_view subject)
    : service(called), host(HostState::Current()), fails(host == nullptr), result(called.failure) {
    if (host != nullptr) {
        const NodeCall& caller = CurrentCall();
        host->contract.Require((service.phases & caller.phase) != 0, "calls {}({}), which has no place there",
                               service.name, subject);
        fails = service.canFail && host->fault && host->fault({service.name, subject, caller}, result);
    }
}

bool ServiceCall::Needs(std::initializer_list<const void*> arguments) const {
    const bool holds = std::find(arguments.begin(), arguments.end(), nullptr) == arguments.end();
    return host != nullptr && host->contract.Require(holds, "calls {} with a null argument", service.name);
}

bool ServiceCall::NeedsOwn(const void* session) const {
    const NodeState* node = CurrentCall().node;
    return host->contract.Require(node != nullptr && session == node->session,
                                  "calls {} with a session that is not its own", service.name);
}

}  // namespace desk
