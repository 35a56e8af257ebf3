#pragma once

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>

/// The platform's native window buffer, which no workstation package declares: the record that EGL
/// takes for the target EGL_NATIVE_BUFFER_ANDROID. Sizes and offsets are those of 64-bit Android.

constexpr int AndroidNativeBufferMagic = 0x5f626672;  ///< "_bfr"

struct android_native_base_t {
    int magic;
    int version;  ///< size of the record that this is the head of
    void* reserved[4];
    void (*incRef)(android_native_base_t* base);
    void (*decRef)(android_native_base_t* base);
};
static_assert(offsetof(android_native_base_t, version) == 4, "platform layout");
static_assert(offsetof(android_native_base_t, reserved) == 8, "platform layout");
static_assert(offsetof(android_native_base_t, incRef) == 40, "platform layout");
static_assert(offsetof(android_native_base_t, decRef) == 48, "platform layout");
static_assert(sizeof(android_native_base_t) == 56, "platform layout");

struct ANativeWindowBuffer {
    ANativeWindowBuffer() {
        common.magic = AndroidNativeBufferMagic;
        common.version = static_cast<int>(sizeof(ANativeWindowBuffer));
    }

    android_native_base_t common = {};
    int width = 0;   ///< pixels
    int height = 0;  ///< lines
    int stride = 0;
    int format = 0;
    int usage_deprecated = 0;
    uintptr_t layerCount = 0;
    void* reserved[1] = {};
    const native_handle_t* handle = nullptr;
    uint64_t usage = 0;
    void* reserved_proc[7] = {};
};
static_assert(offsetof(ANativeWindowBuffer, width) == 56, "platform layout");
static_assert(offsetof(ANativeWindowBuffer, height) == 60, "platform layout");
static_assert(offsetof(ANativeWindowBuffer, stride) == 64, "platform layout");
static_assert(offsetof(ANativeWindowBuffer, format) == 68, "platform layout");
static_assert(offsetof(ANativeWindowBuffer, usage_deprecated) == 72, "platform layout");
static_assert(offsetof(ANativeWindowBuffer, layerCount) == 80, "platform layout");
static_assert(offsetof(ANativeWindowBuffer, handle) == 96, "platform layout");
static_assert(offsetof(ANativeWindowBuffer, usage) == 104, "platform layout");
static_assert(sizeof(ANativeWindowBuffer) == 168, "platform layout");
