#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

/// All memory of the library passes through here. It is zero-filled, and a failure is a null result,
/// never an exception: the process that the library lives in is not built for one.

/// Flag bit of OrbaCalloc that asks for zero filling; no other bit changes anything.
constexpr int32_t OrbaAllocZeroFill = 1;

/// `size` bytes at the given alignment (a power of two; 0 for the smallest, 8). Null when size is 0,
/// when the alignment is neither 0 nor a power of two, or when the platform has no memory left.
/// `reserved`, `file` and `line` are accepted for the host's conventions and not used.
void* OrbaCalloc(size_t size, uint32_t alignment, int32_t flags, int32_t reserved, const char* file,
                 uint32_t line);

/// Releases what OrbaCalloc gave; null is accepted.
void OrbaFree(void* p, int32_t tag, const char* file, uint32_t line);

/// The form in which the node makes its own objects, always with zeros after the size. It is declared
/// noexcept so that the compiler keeps the null test before it runs a constructor, and is not one that the
/// standard defines, so that the zeros are read. The build refuses the others (cmake/PlainNew.cmake).
void* operator new(size_t size, int32_t flags, int32_t reserved, const char* file, uint32_t line) noexcept;
