#pragma once

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>

/// The host's pixel formats. A dewarp node tells three values apart and takes every other for NV12;
/// it gives them no names of its own.
enum LumFormat : uint32_t {};

/// One gralloc buffer of a port. Bytes not named belong to the host.
struct LumImage {
    uint8_t reserved0[4];
    uint32_t fd;  ///< file descriptor of the buffer's memory; key of the node's import cache
    uint8_t reserved8[16];
    void* pAddr;  ///< CPU address; a change under the same fd means another buffer
    uint8_t reserved32[24];
    native_handle* pNativeHandle;  ///< the gralloc handle
};
static_assert(offsetof(LumImage, fd) == 4, "host layout");
static_assert(offsetof(LumImage, pAddr) == 24, "host layout");
static_assert(offsetof(LumImage, pNativeHandle) == 56, "host layout");
static_assert(sizeof(LumImage) == 64, "host layout");

/// The buffers of one port in one request. Bytes not named belong to the host.
struct LumImageList {
    uint8_t reserved0[16];
    LumFormat format;
    uint8_t reserved20[12];
    uint32_t width;     ///< pixels
    uint32_t height;    ///< lines
    uint32_t stride;    ///< first plane, bytes
    uint32_t scanline;  ///< first plane, lines allocated
    uint8_t reserved48[264];
    LumImage firstImage;  ///< the buffer rendered from or into
    uint8_t reserved376[472];
    void* pFenceHandle;    ///< handed on to the dependency record, never dereferenced by a node
    void* pFenceSignaled;  ///< likewise
};
static_assert(offsetof(LumImageList, format) == 16, "host layout");
static_assert(offsetof(LumImageList, width) == 32, "host layout");
static_assert(offsetof(LumImageList, height) == 36, "host layout");
static_assert(offsetof(LumImageList, stride) == 40, "host layout");
static_assert(offsetof(LumImageList, scanline) == 44, "host layout");
static_assert(offsetof(LumImageList, firstImage) == 312, "host layout");
static_assert(offsetof(LumImageList, pFenceHandle) == 848, "host layout");
static_assert(offsetof(LumImageList, pFenceSignaled) == 856, "host layout");
static_assert(sizeof(LumImageList) == 864, "host layout");
