#pragma once

#include <cstddef>
#include <vector>

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

/// Remembers the records of a buffer query, all ports of it, and tells afterwards whether the node changed
/// only what is its own.
class QueryWatch {
public:
    explicit QueryWatch(const LumNodeQueryBufferInfo& info);
    void Check(Contract& contract);

private:
    const LumNodeQueryBufferInfo& info_;
    LumNodeQueryBufferInfo expected_;
    std::vector<LumOutputPortQueryInfo> outputs_;
    std::vector<LumInputPortQueryInfo> inputs_;
    std::vector<LumNodeBufferRequirement> downstream_;
};

/// The same for one pass of a request: its record, the dependency record, the image lists and the handles
/// in them.
class RequestWatch {
public:
    explicit RequestWatch(const LumNodeProcessRequestInfo& request);
    /// After a first pass that returned `result`.
    void CheckFirstPass(Contract& contract, const TagRegistry& tags, uint32_t result);
    /// After a second pass, whatever it returned.
    void CheckSecondPass(Contract& contract);

private:
    struct WatchedList {
        const LumImageList* list;
        LumImageList expected;
        std::vector<int> handle;
    };

    void WatchLists(LumImageList** lists, uint32_t count);
    void ExpectDependencies(const NodeCall& caller, const TagRegistry& tags);
    void CheckRecords(Contract& contract) const;

    const LumNodeProcessRequestInfo& request_;
    LumNodeProcessRequestInfo expected_;
    LumDependencyInfo dependency_;
    std::vector<WatchedList> lists_;
};

}  // namespace desk
