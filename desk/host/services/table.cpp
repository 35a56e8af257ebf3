#include "desk/host/services/table.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "desk/host/services/service_call.h"

namespace desk {
namespace {

constexpr uint32_t VendorTagBase = 0x80000000;
constexpr const char* NodeName = "com.oxa.node.dewarp";

/// The record of the pass that runs; elsewhere, where a call has no place, one that nobody reads.
PassRecord& ThisPass() {
    static thread_local PassRecord unplaced;
    PassRecord* pass = CurrentCall().pass;
    return pass != nullptr ? *pass : unplaced;
}

uint32_t UnknownSlot() {
    HostState::Current()->contract.Require(false, "calls a slot of the services table that it does not know");
    return LumResultFailure;
}

uint32_t GetMetadataSlot(LumMetadataInfo*) {
    HostState::Current()->contract.Require(
        false, "calls GetMetadata through the table; expected LumNodeUtils::GetMetaData");
    return LumResultFailure;
}

uint32_t NotifyRequestDone(LumRequestDoneInfo* info) {
    const ServiceCall call(service::NotifyRequestDone);
    if (!call.Needs({info}) || !call.NeedsOwn(info->hNodeSession)) {
        return LumResultInvalidArgument;
    }
    call->contract.Require(
        info->size == sizeof(*info) && info->reserved4 == 0 && info->reserved24 == 0,
        "calls NotifyRequestDone with a record of size {} or reserved bytes that are not zero", info->size);
    call->contract.Require(info->requestId == CurrentCall().requestId, "says that request {} is done",
                           info->requestId);
    ++ThisPass().doneNotices;
    return call.fails ? call.result : LumResultSuccess;
}

uint32_t QueryRequestWindow(void* session, LumRequestWindowInfo* window) {
    const ServiceCall call(service::QueryRequestWindow);
    if (!call.Needs({window}) || !call.NeedsOwn(session)) {
        return LumResultInvalidArgument;
    }
    call->contract.Require(IsZero(*window), "calls QueryRequestWindow with a record that is not zeroed");
    PassRecord& pass = ThisPass();
    ++pass.windowQueries;
    if (call.fails) {
        return call.result;
    }
    // The node has use for one field only; the rest is none of its business.
    *window = Patterned<LumRequestWindowInfo>();
    const NodeCall& caller = CurrentCall();
    const NodeState& node = *caller.node;
    window->referenceRequestId = node.reference ? node.reference(caller.requestId) : node.lastRequest.load();
    pass.answeredReference = window->referenceRequestId;
    return LumResultSuccess;
}

}  // namespace

LumNodeInterface ServicesTable() {
    LumNodeInterface table = {};
    table.size = sizeof(table);
    auto* unknown = reinterpret_cast<void*>(&UnknownSlot);
    table.reservedSlot3 = unknown;
    std::fill(std::begin(table.reservedSlots5), std::end(table.reservedSlots5), unknown);
    std::fill(std::begin(table.reservedSlots17), std::end(table.reservedSlots17), unknown);
    table.GetMetadata = GetMetadataSlot;
    table.SetMetadata = SetMetadata;
    table.GetVendorTagBase = GetVendorTagBase;
    table.NotifyRequestDone = NotifyRequestDone;
    table.QueryRequestWindow = QueryRequestWindow;
    return table;
}

}  // namespace desk

uint32_t LumNodeUtils::SetNodeInterface(LumNodeInterface* host, const char* nodeName, LumNodeInterface* copy,
                                        uint32_t* vendorTagBase) {
    using namespace desk;
    const std::string_view name = TextOf(nodeName);
    const ServiceCall call(service::SetNodeInterface, name);
    if (!call.Needs({host, nodeName, copy, vendorTagBase})) {
        return LumResultInvalidArgument;
    }
    if (call.fails) {
        return call.result;
    }
    call->contract.Require(name == NodeName, "gives its name as \"{}\"; expected \"{}\"", name, NodeName);
    // A host's table may be longer than what the node has room for.
    std::memcpy(copy, host, std::min<size_t>(host->size, sizeof(*copy)));
    *vendorTagBase = VendorTagBase;
    return LumResultSuccess;
}
