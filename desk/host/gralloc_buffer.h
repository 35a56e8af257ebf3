#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "desk/abi/node_types.h"
#include "host/lumimage.h"

namespace desk {

/// One NV12 gralloc buffer: pixels and metadata on a memfd each, a native_handle that carries both, and
/// a CPU mapping of the pixels. The luma plane has Stride() x Scanline() bytes; the chroma plane follows
/// it with the same stride and half the lines. Owns everything it hands out.
class GrallocBuffer {
public:
    /// `size` in pixels, at least 2 x 2; stride and scanline are the size rounded up to the alignment.
    /// The pixels are zero. Throws std::invalid_argument for a size or alignment that makes no buffer,
    /// std::system_error when the system has no room.
    static std::shared_ptr<GrallocBuffer> Create(Size size, Alignment alignment);
    /// Buffers that exist in the process.
    static uint64_t LiveCount();

    ~GrallocBuffer();
    GrallocBuffer(const GrallocBuffer&) = delete;
    GrallocBuffer& operator=(const GrallocBuffer&) = delete;

    uint32_t Width() const {
        return size_.width;
    }
    uint32_t Height() const {
        return size_.height;
    }
    uint32_t Stride() const {  ///< bytes, of both planes
        return stride_;
    }
    uint32_t Scanline() const {  ///< lines of the luma plane
        return scanline_;
    }
    size_t ByteSize() const {  ///< of the pixels: stride * scanline * 3 / 2
        return size_t{stride_} * scanline_ * 3 / 2;
    }
    uint8_t* Luma() {
        return pixels_;
    }
    uint8_t* Chroma() {
        return pixels_ + static_cast<size_t>(stride_) * scanline_;
    }
    native_handle* Handle() {
        return handle_.get();
    }

    /// Moves the CPU mapping: the same fd then comes with another pAddr, as when a descriptor is reused.
    void Remap();

    /// A port's list with this one buffer. Bytes that belong to the host hold a pattern; both fence
    /// pointers are set and stay the buffer's.
    LumImageList ImageList();

private:
    struct CloseHandle {
        void operator()(native_handle_t* handle) const;
    };

    GrallocBuffer(Size size, Alignment alignment);

    Size size_;
    uint32_t stride_;
    uint32_t scanline_;
    std::unique_ptr<native_handle_t, CloseHandle> handle_;
    uint8_t* pixels_ = nullptr;
    char fence_ = 0;  // stands for the fence; only its address is used
    char fenceSignaled_ = 0;
};

}  // namespace desk
