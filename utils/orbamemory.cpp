#include "utils/orbamemory.h"

#include "utils/orbaosutils.h"

namespace {

constexpr int32_t NewFlags = 11;
constexpr int32_t NewArrayFlags = 15;
constexpr int32_t DeleteTag = 16;
constexpr int32_t DeleteArrayTag = 20;

uint32_t AlignmentOf(std::align_val_t alignment) {
    return static_cast<uint32_t>(alignment);
}

}  // namespace

void* OrbaCalloc(size_t size, uint32_t alignment, int32_t flags, int32_t /*reserved*/, const char* /*file*/,
                 uint32_t /*line*/) {
    if (size == 0) {
        return nullptr;
    }
    void* p = Orba::OsUtils::MallocAligned(size, alignment);
    if (p != nullptr && (flags & OrbaAllocZeroFill) != 0) {
        Orba::Utils::Memset(p, 0, size);
    }
    return p;
}

void OrbaFree(void* p, int32_t /*tag*/, const char* /*file*/, uint32_t /*line*/) {
    if (p != nullptr) {
        Orba::OsUtils::FreeAligned(p);
    }
}

void* operator new(size_t size, int32_t flags, int32_t reserved, const char* file, uint32_t line) noexcept {
    return OrbaCalloc(size, 0, (flags & 0xFF) | 9, reserved, file, line);
}

// The global operators in every form that a compiler may call. The version script keeps them inside the
// library; in the host's own code the host's operators stay in force.

void* operator new(size_t size) {
    return OrbaCalloc(size, 0, NewFlags, 0, nullptr, 0);
}

void* operator new[](size_t size) {
    return OrbaCalloc(size, 0, NewArrayFlags, 0, nullptr, 0);
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return OrbaCalloc(size, 0, NewFlags, 0, nullptr, 0);
}

void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return OrbaCalloc(size, 0, NewArrayFlags, 0, nullptr, 0);
}

void* operator new(size_t size, std::align_val_t alignment) {
    return OrbaCalloc(size, AlignmentOf(alignment), NewFlags, 0, nullptr, 0);
}

void* operator new[](size_t size, std::align_val_t alignment) {
    return OrbaCalloc(size, AlignmentOf(alignment), NewArrayFlags, 0, nullptr, 0);
}

void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
    return OrbaCalloc(size, AlignmentOf(alignment), NewFlags, 0, nullptr, 0);
}

void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
    return OrbaCalloc(size, AlignmentOf(alignment), NewArrayFlags, 0, nullptr, 0);
}

void operator delete(void* p) noexcept {
    OrbaFree(p, DeleteTag, nullptr, 0);
}

void operator delete[](void* p) noexcept {
    OrbaFree(p, DeleteArrayTag, nullptr, 0);
}

void operator delete(void* p, size_t /*size*/) noexcept {
    OrbaFree(p, DeleteTag, nullptr, 0);
}

void operator delete[](void* p, size_t /*size*/) noexcept {
    OrbaFree(p, DeleteArrayTag, nullptr, 0);
}

void operator delete(void* p, const std::nothrow_t& /*tag*/) noexcept {
    OrbaFree(p, DeleteTag, nullptr, 0);
}

void operator delete[](void* p, const std::nothrow_t& /*tag*/) noexcept {
    OrbaFree(p, DeleteArrayTag, nullptr, 0);
}

void operator delete(void* p, std::align_val_t /*alignment*/) noexcept {
    OrbaFree(p, DeleteTag, nullptr, 0);
}

void operator delete[](void* p, std::align_val_t /*alignment*/) noexcept {
    OrbaFree(p, DeleteArrayTag, nullptr, 0);
}

void operator delete(void* p, size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    OrbaFree(p, DeleteTag, nullptr, 0);
}

void operator delete[](void* p, size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    OrbaFree(p, DeleteArrayTag, nullptr, 0);
}

void operator delete(void* p, std::align_val_t /*alignment*/, const std::nothrow_t& /*tag*/) noexcept {
    OrbaFree(p, DeleteTag, nullptr, 0);
}

void operator delete[](void* p, std::align_val_t /*alignment*/, const std::nothrow_t& /*tag*/) noexcept {
    OrbaFree(p, DeleteArrayTag, nullptr, 0);
}
