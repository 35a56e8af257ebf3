#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace Orba {
namespace Utils {

/// True when exactly one bit is set.
constexpr bool IsPowerOfTwo(size_t v) {
    return v != 0 && (v & (v - 1)) == 0;
}

void Memset(void* dst, int32_t value, size_t count);

uint64_t VoidPtrToUINT64(void* p);

}  // namespace Utils

namespace OsUtils {

/// Copies at most size - 1 characters and terminates; with size 0 nothing is written.
void StrLCpy(char* dst, const char* src, size_t size);

/// Formats at most size bytes, the terminator included; returns the length of the full text.
__attribute__((format(printf, 3, 4))) int32_t SNPrintF(char* dst, size_t size, const char* format, ...);
__attribute__((format(printf, 3, 0))) int32_t VSNPrintF(char* dst, size_t size, const char* format,
                                                        va_list arguments);

/// Null when the alignment is neither 0 nor a power of two, or when there is no memory left. Alignments
/// below 8 are raised to 8.
void* MallocAligned(size_t size, size_t alignment);
void FreeAligned(void* p);

}  // namespace OsUtils
}  // namespace Orba
