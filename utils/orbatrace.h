#pragma once

#include <cutils/trace.h>

#include <cstdint>

/// Trace markers: `atrace_begin`, `atrace_end`, `atrace_async_begin` and `atrace_async_end` of the platform's
/// header, each of which calls into libcutils only while one of its tag's bits is enabled.

/// The tag of every marker of this library: camera and hardware module.
constexpr uint64_t OrbaTraceTag = ATRACE_TAG_CAMERA | ATRACE_TAG_HAL;
static_assert(OrbaTraceTag == 3072, "camera and hardware module");

/// Bit of g_traceEnableMask that switches the mutex markers on.
constexpr uint64_t OrbaTraceMutex = 0x2000;

/// What is traced. Nothing in the library sets it: mutex markers stay dormant unless a debugger does.
extern uint64_t g_traceEnableMask;
