#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Arithmetic on sizes and counters, and indexes into fixed arrays. A result that does not fit ends the
/// process: a wrong size inside somebody else's process is worse than no process.
namespace Orba {

template <typename T>
inline T CheckedAdd(T a, T b) {
    T sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) {
        std::abort();
    }
    return sum;
}

template <typename T>
inline T CheckedSub(T a, T b) {
    T difference = 0;
    if (__builtin_sub_overflow(a, b, &difference)) {
        std::abort();
    }
    return difference;
}

template <typename T>
inline T CheckedMul(T a, T b) {
    T product = 0;
    if (__builtin_mul_overflow(a, b, &product)) {
        std::abort();
    }
    return product;
}

/// The index itself when it lies inside an array of `count` elements.
inline uint32_t CheckedIndex(uint32_t index, uint32_t count) {
    if (index >= count) {
        std::abort();
    }
    return index;
}

/// Truncates towards zero. Negative values and NaN give 0; values beyond 32 bits give the largest.
constexpr uint32_t SaturatingUINT32(float value) {
    constexpr float beyondLargest = 4294967296.0F;
    if (!(value > 0.0F)) {
        return 0;
    }
    return (value >= beyondLargest) ? UINT32_MAX : static_cast<uint32_t>(value);
}

}  // namespace Orba
