#include "desk/host/services/memory.h"

#include <cstdlib>

#include "desk/host/services/service_call.h"

namespace desk {
namespace {

void Count(Memory& memory, const void* block) {
    memory.With([&](Blocks& blocks) {
        blocks.live.insert(block);
        ++blocks.total;
    });
}

}  // namespace

int NodePosixMemalign(void** block, size_t alignment, size_t size) {
    const ServiceCall call(service::PosixMemalign);
    if (!call.Needs({block}) || call.fails) {
        return static_cast<int>(call.result);
    }
    const int error = ::posix_memalign(block, alignment, size);
    if (error == 0) {
        Count(call->memory, *block);
    }
    return error;
}

void* NodeMalloc(size_t size) {
    const ServiceCall call(service::Malloc);
    void* block = call.fails ? nullptr : std::malloc(size);
    if (block != nullptr) {
        Count(call->memory, block);
    }
    return block;
}

void NodeFree(void* block) {
    // A library that stays loaded after its host frees what it holds when the process ends.
    if (HostState* host = HostState::Current()) {
        host->memory.With([&](Blocks& blocks) { blocks.live.erase(block); });
    }
    std::free(block);
}

}  // namespace desk
