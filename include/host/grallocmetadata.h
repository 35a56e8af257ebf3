#pragma once

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>

namespace Orba {
namespace Gralloc {

/// Metadata items that a node writes into a gralloc buffer before it is imported.
enum MetadataItem : uint32_t {
    MetadataColor = 10001,          ///< ColorMetadata
    MetadataBufferGeometry = 10009  ///< BufferGeometry
};

/// Where the planes of a buffer lie: the first plane's stride and scanline count.
struct BufferGeometry {
    int32_t stride;    ///< bytes
    int32_t scanline;  ///< lines
};
static_assert(offsetof(BufferGeometry, scanline) == 4, "host layout");
static_assert(sizeof(BufferGeometry) == 8, "host layout");

/// The head of the colour description, and the room that the rest of it takes.
struct ColorMetadata {
    uint32_t primaries;
    uint32_t range;
    uint8_t reserved8[2796];
};
static_assert(offsetof(ColorMetadata, range) == 4, "host layout");
static_assert(sizeof(ColorMetadata) == 2804, "host layout");

/// The host's gralloc metadata service: writes one item into a buffer. 0 on success.
int32_t SetGrallocMetaData(const native_handle* handle, uint32_t metadataType, uint32_t size,
                           const void* data);

}  // namespace Gralloc
}  // namespace Orba
