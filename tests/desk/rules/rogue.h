#pragma once

#include <cstddef>
#include <cstdint>

#include "desk/abi/gl_reports.h"
#include "desk/host/rules/node_call.h"
#include "host/lumnodeutils.h"

/// One step of the rogue node, as a misdeed sees it when the node has done its duty there.
struct RogueCall {
    desk::Phase step;           ///< PhaseRefusal is DumpCoreNodeConfig
    void* record;               ///< the callback's; null where it has none
    void* session;              ///< the host's of the last node created
    uint32_t result;            ///< what the callback returns
    LumNodeInterface services;  ///< the node's copy; zero before any host has handed its table over
    DeskGlCounters* gl;         ///< what the library counts where it is mapped as the device's GL
    // The library's own imports, which the host counts.
    void* (*allocate)(size_t size);
    int (*allocateAligned)(void** block, size_t alignment, size_t size);

    template <typename Record>
    Record& As() const {
        return *static_cast<Record*>(record);
    }
};

/// What the test program does at the end of every step. A program without it has a node that keeps every
/// rule.
extern "C" __attribute__((weak, visibility("default"))) void RogueMisdeed(RogueCall& call);
