#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "desk/host/services/host_state.h"

namespace desk {

/// What a service is asked about; nothing when it is not said.
inline std::string_view TextOf(const char* text) {
    return text != nullptr ? text : "";
}

template <typename Bytes>
bool IsZero(const Bytes& bytes) {
    const auto* begin = reinterpret_cast<const unsigned char*>(&bytes);
    return std::all_of(begin, begin + sizeof(bytes), [](unsigned char byte) { return byte == 0; });
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
