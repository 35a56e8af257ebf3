#pragma once

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

/// Points the imports of malloc, posix_memalign and free of one loaded library at services of the host: every
/// slot through which it calls them. Other libraries and the process keep theirs. A block that it did not
/// allocate is freed uncounted. The library must have been loaded with RTLD_NOW, and none of its functions
/// may run meanwhile. `inside` is the address of anything in it. Throws std::runtime_error when the library's
/// tables cannot be read or written.
void CountAllocations(const void* inside);

}  // namespace desk
