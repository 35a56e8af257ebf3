#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "desk/host/rules/contract.h"
#include "desk/host/rules/tag_registry.h"
#include "host/lumnode.h"

namespace desk {

/// Compares a record with what it should hold; a difference becomes a finding that names the record, the
/// field and both values.
void RequireBytes(Contract& contract, const char* record, const void* expected, const void* actual,
                  size_t size);
template <typename Record>
void RequireRecord(Contract& contract, const char* name, const Record& expected, const Record& actual) {
    RequireBytes(contract, name, &expected, &actual, sizeof(Record));
}

/// Whether a creation that returned `result` changed only what is the node's own in its record.
void CheckCreation(Contract& contract, const LumNodeCreateInfo& before, const LumNodeCreateInfo& after,
                   uint32_t result);

/// Remembers the records of a buffer query, all ports of it. Returns what tells afterwards whether the node
/// changed only what is its own; the query's record has to live until then.
std::function<void(Contract&)> WatchQuery(const LumNodeQueryBufferInfo& info);

/// The same for one pass of a request, which returned `result`: its record, the dependency record, the image
/// lists and the handles in them.
std::function<void(Contract&, const TagRegistry&, uint32_t result)> WatchRequest(
    const LumNodeProcessRequestInfo& request);

}  // namespace desk
