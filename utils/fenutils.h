#pragma once

#include <cstdint>

/// Helpers of the development kit, kept for the host's conventions.
namespace FenUtils {

/// Wall-clock time in nanoseconds since the epoch. Ends the process on overflow rather than lie.
uint64_t GetNanosecondsSinceEpoch();

/// The calling thread's pthread_self().
uint64_t GetThreadID();

}  // namespace FenUtils
