#pragma once

#include <cstddef>
#include <cstdint>

#include "desk/gl/driver/real_gl.h"
#include "desk/gl/driver/reports.h"
#include "host/grallocmetadata.h"
#include "platform/nativewindowbuffer.h"

namespace desk {

enum Plane : size_t { Luma, Chroma, PlaneCount };
constexpr Plane Planes[PlaneCount] = {Luma, Chroma};

/// Where a plane of an image lies in the buffer's memory.
struct PlaneLayout {
    int width;  ///< samples; the chroma plane has one CbCr sample for two by two pixels
    int height;
    int rowLength;  ///< samples from one row's start to the next one's
    uint8_t* data;
};

/// An NV12 window buffer imported into EGL: its pixels mapped, and a reference held on the window buffer for
/// as long as anyone owns the image. Owners are the EGL handle and every texture or renderbuffer made from
/// it.
class Image {
public:
    /// Throws EglError when the buffer is not one of the desk's, or `attributes` (null or an EGL_NONE
    /// terminated list) ask for another size.
    Image(ANativeWindowBuffer* buffer, const EGLint* attributes);
    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    PlaneLayout Layout(Plane plane) const;

private:
    ANativeWindowBuffer* buffer_;
    int width_ = 0;
    int height_ = 0;
    Orba::Gralloc::BufferGeometry geometry_{};
    size_t bytes_ = 0;
    uint8_t* pixels_ = nullptr;
    LiveCount live_{&DeskGlCounters::liveImages};
};

}  // namespace desk
