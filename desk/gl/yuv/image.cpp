#include "desk/gl/yuv/image.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "desk/abi/gralloc_layout.h"
#include "desk/gl/driver/egl_call.h"

namespace desk {
namespace {

template <typename Value>
void Require(EGLint code, const char* what, Value expected, Value got) {
    if (expected != got) {
        throw EglError(code, fmt::format("expected {} {}, got {}", what, expected, got));
    }
}

void CheckBuffer(const ANativeWindowBuffer& buffer) {
    Require(EGL_BAD_PARAMETER, "a window buffer of magic", AndroidNativeBufferMagic, buffer.common.magic);
    Require(EGL_BAD_PARAMETER, "a window buffer of version", static_cast<int>(sizeof(ANativeWindowBuffer)),
            buffer.common.version);
    if (buffer.common.incRef == nullptr || buffer.common.decRef == nullptr) {
        throw EglError(EGL_BAD_PARAMETER, "expected a window buffer with incRef and decRef, got null");
    }
    if (!IsGrallocHandle(buffer.handle)) {
        throw EglError(EGL_BAD_PARAMETER, "expected the handle of a desk buffer, got another or none");
    }
    Require(EGL_BAD_PARAMETER, "a window buffer of format", GrallocFormatNv12, buffer.format);
    Require(EGL_BAD_PARAMETER, "a handle of format", GrallocFormatNv12,
            GrallocInt(buffer.handle, GrallocIntFormat));
    if (buffer.width <= 0 || buffer.height <= 0) {
        throw EglError(EGL_BAD_PARAMETER, fmt::format("expected a window buffer of positive size, got {}x{}",
                                                      buffer.width, buffer.height));
    }
    Require(EGL_BAD_MATCH, "the handle's width", GrallocInt(buffer.handle, GrallocIntWidth), buffer.width);
    Require(EGL_BAD_MATCH, "the handle's height", GrallocInt(buffer.handle, GrallocIntHeight), buffer.height);
}

void CheckAttributes(const ANativeWindowBuffer& buffer, const EGLint* attributes) {
    for (; attributes != nullptr && *attributes != EGL_NONE; attributes += 2) {
        switch (attributes[0]) {
            case EGL_WIDTH:
                Require(EGL_BAD_MATCH, "EGL_WIDTH", buffer.width, attributes[1]);
                break;
            case EGL_HEIGHT:
                Require(EGL_BAD_MATCH, "EGL_HEIGHT", buffer.height, attributes[1]);
                break;
            case EGL_IMAGE_PRESERVED_KHR:  // the planes are loaded from the buffer before every use
                break;
            default:
                throw EglError(
                    EGL_BAD_ATTRIBUTE,
                    fmt::format("expected EGL_WIDTH, EGL_HEIGHT or EGL_IMAGE_PRESERVED, got attribute {:#x}",
                                attributes[0]));
        }
    }
}

Orba::Gralloc::BufferGeometry ReadGeometry(int metadataFd) {
    GrallocMetadata metadata = {};
    const ssize_t count = pread(metadataFd, &metadata, sizeof(metadata), 0);
    if (count != static_cast<ssize_t>(sizeof(metadata)) || metadata.magic != GrallocMetadataMagic) {
        throw EglError(EGL_BAD_PARAMETER,
                       fmt::format("expected {} bytes of buffer metadata, got {}", sizeof(metadata), count));
    }
    Require(EGL_BAD_PARAMETER, "geometry in the buffer's metadata, flag", 1U, metadata.hasGeometry);
    Require(EGL_BAD_PARAMETER, "colour in the buffer's metadata, flag", 1U, metadata.hasColor);
    return metadata.geometry;
}

/// Both planes have to lie inside the memory: the chroma plane begins after `scanline` rows of luma, and its
/// two-byte samples need an even stride.
void CheckGeometry(const ANativeWindowBuffer& buffer, Orba::Gralloc::BufferGeometry geometry, int64_t bytes) {
    if (geometry.stride < buffer.width || geometry.stride % 2 != 0 || geometry.scanline < buffer.height) {
        throw EglError(
            EGL_BAD_PARAMETER,
            fmt::format("expected an even stride of {} or more and a scanline of {} or more, got {} "
                        "and {}",
                        buffer.width, buffer.height, geometry.stride, geometry.scanline));
    }
    const int64_t rows = int64_t{geometry.scanline} + (int64_t{geometry.scanline} + 1) / 2;
    if (rows * geometry.stride > bytes) {
        throw EglError(
            EGL_BAD_PARAMETER,
            fmt::format("expected {} bytes of pixels or more for stride {} and scanline {}, got {}",
                        rows * geometry.stride, geometry.stride, geometry.scanline, bytes));
    }
}

}  // namespace

std::shared_ptr<Image> Image::Import(ANativeWindowBuffer* buffer, const EGLint* attributes) {
    if (buffer == nullptr) {
        throw EglError(EGL_BAD_PARAMETER, "expected a window buffer, got null");
    }
    CheckBuffer(*buffer);
    CheckAttributes(*buffer, attributes);
    const auto geometry = ReadGeometry(buffer->handle->data[GrallocMetadataFd]);
    const int pixelFd = buffer->handle->data[GrallocPixelFd];
    const int64_t bytes = GrallocInt(buffer->handle, GrallocIntSize);
    CheckGeometry(*buffer, geometry, bytes);

    struct stat file {};
    if (fstat(pixelFd, &file) != 0 || file.st_size < bytes) {
        throw EglError(EGL_BAD_PARAMETER,
                       fmt::format("expected a pixel file of {} bytes or more, got {}", bytes, file.st_size));
    }
    const auto size = static_cast<size_t>(bytes);
    void* pixels = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, pixelFd, 0);
    if (pixels == MAP_FAILED) {
        throw EglError(EGL_BAD_ALLOC, fmt::format("expected to map {} bytes of pixels, got \"{}\"", bytes,
                                                  std::generic_category().message(errno)));
    }
    try {
        return std::make_shared<Image>(buffer, pixels, size, geometry);
    } catch (...) {
        munmap(pixels, size);
        throw;
    }
}

Image::Image(ANativeWindowBuffer* buffer, void* pixels, size_t bytes, Orba::Gralloc::BufferGeometry geometry)
    : buffer_(buffer),
      width_(buffer->width),
      height_(buffer->height),
      pixels_(static_cast<uint8_t*>(pixels)),
      bytes_(bytes),
      geometry_(geometry),
      live_(GlobalCounters().liveImages) {
    ++GlobalCounters().imports;
    buffer_->common.incRef(&buffer_->common);
}

Image::~Image() {
    munmap(pixels_, bytes_);
    buffer_->common.decRef(&buffer_->common);
}

int Image::Width(Plane plane) const {
    return plane == Luma ? width_ : (width_ + 1) / 2;
}

int Image::Height(Plane plane) const {
    return plane == Luma ? height_ : (height_ + 1) / 2;
}

int Image::RowLength(Plane plane) const {
    return plane == Luma ? geometry_.stride : geometry_.stride / 2;
}

uint8_t* Image::Data(Plane plane) const {
    return plane == Luma ? pixels_ : pixels_ + ptrdiff_t{geometry_.stride} * geometry_.scanline;
}

}  // namespace desk
