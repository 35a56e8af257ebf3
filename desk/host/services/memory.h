#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>

#include "desk/base/guarded.h"

namespace desk {

/// The blocks that the library allocated.
struct Blocks {
    std::unordered_set<const void*> live;  ///< not freed yet
    uint64_t total = 0;                    ///< since the library was loaded
};
using Memory = Guarded<Blocks>;

// What the library's imports of the same names are pointed at. A block that it did not allocate is freed
// uncounted.
int NodePosixMemalign(void** block, size_t alignment, size_t size);
void* NodeMalloc(size_t size);
void NodeFree(void* block);

}  // namespace desk
