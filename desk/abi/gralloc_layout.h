#pragma once

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>

#include "host/grallocmetadata.h"

/// What a gralloc buffer of the desk looks like to everyone who holds its native_handle: the host, which
/// makes it, and the GL libraries, which import it. The handle carries two memfds, the pixels and the
/// metadata, and the integers of GrallocHandleInts.
namespace desk {

constexpr int GrallocHandleMagic = 0x4442'4b44;
constexpr uint32_t GrallocMetadataMagic = 0x444d'4b44;

/// The one pixel format the desk renders: 8-bit luma plane, then interleaved CbCr at half size each way.
constexpr int GrallocFormatNv12 = 265;

enum GrallocHandleFd : int { GrallocPixelFd = 0, GrallocMetadataFd = 1 };
constexpr int GrallocFdCount = 2;

/// Positions in native_handle::data after the two fds.
enum GrallocHandleInt : int {
    GrallocIntMagic = 0,
    GrallocIntWidth,   ///< pixels
    GrallocIntHeight,  ///< lines
    GrallocIntFormat,  ///< GrallocFormatNv12
    GrallocIntSize,    ///< bytes of the pixel memfd
    GrallocIntCount
};

/// The whole contents of the metadata memfd. An item counts only once its flag is 1.
struct GrallocMetadata {
    uint32_t magic;  ///< GrallocMetadataMagic
    uint32_t hasGeometry;
    Orba::Gralloc::BufferGeometry geometry;
    uint32_t hasColor;
    Orba::Gralloc::ColorMetadata color;
};
static_assert(sizeof(GrallocMetadata) == 2824, "both sides of the memfd read this layout");

/// True when the handle is one of the desk's buffers.
inline bool IsGrallocHandle(const native_handle_t* handle) {
    return handle != nullptr && handle->version == static_cast<int>(sizeof(native_handle_t)) &&
           handle->numFds == GrallocFdCount && handle->numInts == GrallocIntCount &&
           handle->data[GrallocFdCount + GrallocIntMagic] == GrallocHandleMagic;
}

inline int GrallocInt(const native_handle_t* handle, GrallocHandleInt position) {
    return handle->data[GrallocFdCount + position];
}

}  // namespace desk
