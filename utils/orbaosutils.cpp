#include "utils/orbaosutils.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Orba {
namespace Utils {

void Memset(void* dst, int32_t value, size_t count) {
    std::memset(dst, value, count);
}

uint64_t VoidPtrToUINT64(void* p) {
    return reinterpret_cast<uint64_t>(p);
}

}  // namespace Utils

namespace OsUtils {

void StrLCpy(char* dst, const char* src, size_t size) {
    if (size == 0) {
        return;
    }
    const size_t length = strnlen(src, size - 1);
    std::memcpy(dst, src, length);
    dst[length] = '\0';
}

int32_t SNPrintF(char* dst, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = VSNPrintF(dst, size, format, arguments);
    va_end(arguments);
    return length;
}

int32_t VSNPrintF(char* dst, size_t size, const char* format, va_list arguments) {
    return vsnprintf(dst, size, format, arguments);
}

void* MallocAligned(size_t size, size_t alignment) {
    constexpr size_t SmallestAlignment = 8;
    if (alignment != 0 && !Utils::IsPowerOfTwo(alignment)) {
        return nullptr;
    }
    void* p = nullptr;
    const size_t used = (alignment < SmallestAlignment) ? SmallestAlignment : alignment;
    return (posix_memalign(&p, used, size) == 0) ? p : nullptr;
}

void FreeAligned(void* p) {
    std::free(p);
}

}  // namespace OsUtils
}  // namespace Orba
