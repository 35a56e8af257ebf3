#include "desk/host/services/service_call.h"

namespace desk {

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
