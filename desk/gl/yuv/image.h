#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "desk/gl/driver/counters.h"
#include "desk/gl/driver/real_gl.h"
#include "host/grallocmetadata.h"
#include "platform/nativewindowbuffer.h"

namespace desk {

enum Plane : size_t { Luma, Chroma, PlaneCount };
constexpr Plane Planes[PlaneCount] = {Luma, Chroma};

/// An NV12 window buffer imported into EGL: its pixels mapped, and a reference held on the window buffer for
/// as long as anyone owns the image. Owners are the EGL handle and every texture or renderbuffer made from
/// it.
class Image {
public:
    /// Throws EglError when the buffer is not one of the desk's, or `attributes` (null or an EGL_NONE
    /// terminated list) ask for another size.
    static std::shared_ptr<Image> Import(ANativeWindowBuffer* buffer, const EGLint* attributes);

    /// Takes over the mapping of `bytes` bytes at `pixels`, and a reference on the buffer.
    Image(ANativeWindowBuffer* buffer, void* pixels, size_t bytes, Orba::Gralloc::BufferGeometry geometry);
    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    /// Samples across and down. The chroma plane has one CbCr sample for two by two pixels; an odd last
    /// column or row has its own.
    int Width(Plane plane) const;
    int Height(Plane plane) const;
    /// Samples from one row's start to the next one's.
    int RowLength(Plane plane) const;
    /// First byte of the plane, in the buffer's memory.
    uint8_t* Data(Plane plane) const;

private:
    ANativeWindowBuffer* buffer_;
    int width_;
    int height_;
    uint8_t* pixels_;
    size_t bytes_;
    Orba::Gralloc::BufferGeometry geometry_;
    LiveCount live_;
};

/// Makes the display an owner of the image, and gives the handle by which the application knows it.
EGLImageKHR AddImage(EGLDisplay display, std::shared_ptr<Image> image);

/// Null when the handle is none of AddImage's.
std::shared_ptr<Image> FindImage(EGLImageKHR handle);

/// Ends the display's ownership of one image; false when it has none of that handle.
bool RemoveImage(EGLDisplay display, EGLImageKHR handle);

/// Hands over the display's ownership of all its images, and their handles end.
std::vector<std::shared_ptr<Image>> TakeImages(EGLDisplay display);

}  // namespace desk
