#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

/// What a fuzzer calls with every input, and the replay with every kept one. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// The input as a stream of values; past its end everything is zero.
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : data_(data), left_(size) {}

    template <typename T>
    T Take() {
        T value = {};
        const size_t bytes = (left_ < sizeof(T)) ? left_ : sizeof(T);
        if (bytes != 0) {  // an empty input may come without an address
            std::memcpy(static_cast<void*>(&value), data_, bytes);
        }
        data_ += bytes;
        left_ -= bytes;
        return value;
    }
    /// 0 to `count` - 1.
    uint32_t Below(uint32_t count) {
        return Take<uint8_t>() % count;
    }
    bool IsEmpty() const {
        return left_ == 0;
    }

private:
    const uint8_t* data_;
    size_t left_;
};

/// Ends the process, as a finding, unless `holds`.
inline void Require(bool holds, const char* otherwise) {
    if (!holds) {
        static_cast<void>(std::fprintf(stderr, "finding: %s\n", otherwise));
        std::abort();
    }
}
