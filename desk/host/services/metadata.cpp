#include "desk/host/services/metadata.h"

#include <fmt/core.h>

#include <algorithm>
#include <string>

#include "desk/host/services/service_call.h"

namespace desk {
namespace {

/// Reports a tag used in a phase or by a variant that it is not for; `does` is the verb.
void RequireUse(const ServiceCall& call, const Tag& tag, unsigned tagPhases, const char* does) {
    const NodeCall& caller = CurrentCall();
    // Where the service itself has no place, that has been reported.
    const bool isPlaced = (tagPhases & caller.phase) != 0 || (call.service.phases & caller.phase) == 0;
    call->contract.Require(isPlaced, "{} {}, which has no place there", does, tag.FullName());
    const bool isOwn = !tag.variant || caller.node == nullptr || tag.variant == caller.node->variant;
    call->contract.Require(isOwn, "{} {}, which belongs to the other variant", does, tag.FullName());
}

/// Reports a wrong id or pool of a metadata access.
void RequireAccess(const ServiceCall& call, const Tag& tag, uint32_t tagId, LumMetadataType pool,
                   const char* does, const char* to) {
    const uint32_t expected = call->tags.FlaggedId(tag);
    call->contract.Require(tagId == expected, "{} {} under the id {:#x}; expected {:#x}", does,
                           tag.FullName(), tagId, expected);
    call->contract.Require(pool == tag.pool, "{} {} {} the pool {}; expected {}", does, tag.FullName(), to,
                           unsigned{pool}, unsigned{tag.pool});
}

/// Whether the record can be served; `tag` is the published one, null when it cannot be told.
bool CheckPublication(const ServiceCall& call, const LumMetadataInfo& info, const Tag* tag) {
    Contract& contract = call->contract;
    if (!contract.Require(info.size == sizeof(info),
                          "publishes with a LumMetadataInfo of size {}; expected {}", info.size,
                          sizeof(info)) ||
        !contract.Require(info.tagCount == 1 && info.pTagIds != nullptr && info.pTagData != nullptr,
                          "publishes {} tags; expected one, with its payload", info.tagCount) ||
        !call.NeedsOwn(info.hSession) ||
        !contract.Require(tag != nullptr, "publishes the tag {:#x}, which the host does not have",
                          info.pTagIds[0])) {
        return false;
    }
    const LumTagData& data = info.pTagData[0];
    const std::string subject = tag->FullName();
    RequireUse(call, *tag, tag->write, "publishes");
    RequireAccess(call, *tag, info.pTagIds[0], info.metadataType, "publishes", "to");
    contract.Require(data.requestId == 0, "publishes {} for request {}; expected 0", subject, data.requestId);
    contract.Require(info.reserved4 == 0 && info.reserved20 == 0 && IsZero(info.reserved44) &&
                         data.reserved4 == 0 && IsZero(data.reserved32),
                     "publishes {} with reserved bytes that are not zero", subject);
    return contract.Require(data.size == sizeof(data),
                            "publishes {} with a LumTagData of size {}; expected {}", subject, data.size,
                            sizeof(data)) &&
           contract.Require(data.pData != nullptr && data.dataSize == tag->payloadSize,
                            "publishes {} with {} bytes; expected {}", subject, data.dataSize,
                            tag->payloadSize);
}

}  // namespace

void Metadata::Set(const void* session, uint64_t requestId, const Tag& tag, const void* data, size_t size) {
    const auto* bytes = static_cast<const std::byte*>(data);
    payloads_.With([&](auto& payloads) { payloads[{session, requestId, &tag}].assign(bytes, bytes + size); });
}

void* Metadata::Find(const void* session, uint64_t requestId, const Tag& tag) {
    return payloads_.With([&](auto& payloads) -> void* {
        const auto found = payloads.find({session, requestId, &tag});
        return found == payloads.end() ? nullptr : found->second.data();
    });
}

void Metadata::Remove(const void* session, uint64_t requestId, const Tag& tag) {
    payloads_.With([&](auto& payloads) { payloads.erase({session, requestId, &tag}); });
}

void Metadata::RemoveSession(const void* session) {
    payloads_.With([&](auto& payloads) {
        const auto begin = payloads.lower_bound({session, 0, nullptr});
        payloads.erase(begin, std::find_if(begin, payloads.end(), [&](const auto& payload) {
                           return std::get<0>(payload.first) != session;
                       }));
    });
}

uint32_t GetVendorTagBase(LumVendorTagBaseInfo* info) {
    const bool named = info != nullptr && info->pComponentName != nullptr && info->pTagName != nullptr;
    const std::string subject = named ? std::string(info->pComponentName) + "/" + info->pTagName : "";
    const ServiceCall call(service::GetVendorTagBase, subject);
    if (!call.Needs({info}) || !call->contract.Require(named, "looks up a vendor tag without saying which")) {
        return LumResultInvalidArgument;
    }
    Contract& contract = call->contract;
    contract.Require(info->size == sizeof(*info), "looks up {} with a record of size {}; expected {}",
                     subject, info->size, sizeof(*info));
    contract.Require(info->vendorTagBase == 0, "looks up {} with a record that is not zeroed", subject);
    if (call.fails) {
        return call.result;
    }
    const Tag* tag = call->tags.Find(info->pComponentName, info->pTagName);
    if (!contract.Require(tag != nullptr, "looks up the tag {}, which the host does not have", subject)) {
        return LumResultFailure;
    }
    RequireUse(call, *tag, tag->lookup, "looks up");
    info->vendorTagBase = call->tags.Id(*tag);
    return LumResultSuccess;
}

uint32_t SetMetadata(LumMetadataInfo* info) {
    const HostState* host = HostState::Current();
    const bool one = host != nullptr && info != nullptr && info->tagCount == 1 && info->pTagIds != nullptr;
    const Tag* tag = one ? host->tags.Resolve(info->pTagIds[0]) : nullptr;
    const ServiceCall call(service::SetMetadata, tag != nullptr ? tag->FullName() : "");
    if (!call.Needs({info}) || info == nullptr || !CheckPublication(call, *info, tag) || tag == nullptr) {
        return LumResultInvalidArgument;
    }
    if (call.fails) {
        return call.result;
    }
    const LumTagData& data = info->pTagData[0];
    call->metadata.Set(info->hSession, data.requestId, *tag, data.pData, tag->payloadSize);
    return LumResultSuccess;
}

}  // namespace desk

void* LumNodeUtils::GetMetaData(uint64_t requestId, uint32_t tagId, LumMetadataType type,
                                LumNodeInterface* nodeInterface, void* session, uint32_t reserved) {
    using namespace desk;
    const HostState* host = HostState::Current();
    const Tag* tag = host != nullptr ? host->tags.Resolve(tagId) : nullptr;
    const std::string subject = tag != nullptr ? tag->FullName() : fmt::format("tag {:#x}", tagId);
    const ServiceCall call(service::GetMetaData, subject);
    if (!call.Needs({nodeInterface})) {
        return nullptr;
    }
    Contract& contract = call->contract;
    contract.Require(std::memcmp(nodeInterface, &call->table, sizeof(call->table)) == 0,
                     "reads {} through a services table that is not the host's", subject);
    contract.Require(reserved == 0, "reads {} with the reserved argument {}; expected 0", subject, reserved);
    if (!contract.Require(tag != nullptr, "reads the {}, which the host does not have", subject) ||
        !call.NeedsOwn(session)) {
        return nullptr;
    }
    RequireUse(call, *tag, tag->read, "reads");
    RequireAccess(call, *tag, tagId, type, "reads", "from");
    const uint64_t expected = CurrentCall().requestId;
    contract.Require(requestId == expected, "reads {} of request {}; expected {}", subject, requestId,
                     expected);
    return call.fails ? nullptr : call->metadata.Find(session, requestId, *tag);
}
