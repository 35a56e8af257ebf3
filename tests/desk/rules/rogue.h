#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "desk/abi/gl_reports.h"
#include "desk/host/rules/node_call.h"
#include "host/lumnodeutils.h"

/// One step of the rogue node, as a misdeed sees it when the node has done its duty there.
struct RogueCall {
    desk::Phase step;            ///< PhaseRefusal is DumpCoreNodeConfig
    void* record;                ///< the callback's; null where it has none
    void* session;               ///< the host's of the last node created
    uint32_t result;             ///< what the callback returns
    LumNodeInterface& services;  ///< the node's copy; zero before any host has handed its table over
    DeskGlCounters& gl;          ///< what the library counts where it is mapped as the device's GL
    // The library's own imports, which the host counts.
    void* (*allocate)(size_t size);
    int (*allocateAligned)(void** block, size_t alignment, size_t size);

    template <typename Record>
    Record& As() const {
        return *static_cast<Record*>(record);
    }
};

using Misdeed = std::function<void(RogueCall&)>;

extern "C" {
/// What is done at the end of every step from now on. Must outlive its use. The counters start again.
__attribute__((visibility("default"))) void RogueSet(const Misdeed* misdeed);
/// A step of the caller's, outside of every callback. Returns what the misdeed leaves in `result`.
__attribute__((visibility("default"))) uint32_t RogueStep(desk::Phase step, void* record);
}
