#include "desk/gl/yuv/image.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "desk/abi/gralloc_layout.h"

namespace desk {
namespace {

/// `sentence` says what was expected and what came.
template <typename... Values>
void Require(bool isMet, EGLint code, fmt::format_string<Values...> sentence, Values... values) {
    if (!isMet) {
        throw EglError(code, fmt::format(sentence, values...));
    }
}

void RequireEqual(EGLint code, const char* what, int64_t expected, int64_t got) {
    Require(expected == got, code, "expected {} {}, got {}", what, expected, got);
}

void CheckBuffer(const ANativeWindowBuffer* buffer) {
    Require(buffer != nullptr, EGL_BAD_PARAMETER, "expected a window buffer, got null");
    RequireEqual(EGL_BAD_PARAMETER, "a window buffer of magic", AndroidNativeBufferMagic,
                 buffer->common.magic);
    RequireEqual(EGL_BAD_PARAMETER, "a window buffer of version", sizeof(ANativeWindowBuffer),
                 buffer->common.version);
    Require(buffer->common.incRef != nullptr && buffer->common.decRef != nullptr, EGL_BAD_PARAMETER,
            "expected a window buffer with incRef and decRef, got null");
    const native_handle_t* handle = buffer->handle;
    Require(IsGrallocHandle(handle), EGL_BAD_PARAMETER,
            "expected the handle of a desk buffer, got another or none");
    RequireEqual(EGL_BAD_PARAMETER, "a window buffer of format", GrallocFormatNv12, buffer->format);
    RequireEqual(EGL_BAD_PARAMETER, "a handle of format", GrallocFormatNv12,
                 GrallocInt(handle, GrallocIntFormat));
    Require(buffer->width > 0 && buffer->height > 0, EGL_BAD_PARAMETER,
            "expected a window buffer of positive size, got {}x{}", buffer->width, buffer->height);
    RequireEqual(EGL_BAD_MATCH, "the handle's width", GrallocInt(handle, GrallocIntWidth), buffer->width);
    RequireEqual(EGL_BAD_MATCH, "the handle's height", GrallocInt(handle, GrallocIntHeight), buffer->height);
}

void CheckAttributes(const ANativeWindowBuffer& buffer, const EGLint* attributes) {
    for (; attributes != nullptr && *attributes != EGL_NONE; attributes += 2) {
        if (attributes[0] == EGL_WIDTH) {
            RequireEqual(EGL_BAD_MATCH, "EGL_WIDTH", buffer.width, attributes[1]);
        } else if (attributes[0] == EGL_HEIGHT) {
            RequireEqual(EGL_BAD_MATCH, "EGL_HEIGHT", buffer.height, attributes[1]);
        } else {  // preserved it is: the planes are loaded from the buffer before every use
            Require(attributes[0] == EGL_IMAGE_PRESERVED_KHR, EGL_BAD_ATTRIBUTE,
                    "expected EGL_WIDTH, EGL_HEIGHT or EGL_IMAGE_PRESERVED, got attribute {:#x}",
                    attributes[0]);
        }
    }
}

Orba::Gralloc::BufferGeometry ReadGeometry(int metadataFd) {
    GrallocMetadata metadata = {};
    const ssize_t count = pread(metadataFd, &metadata, sizeof(metadata), 0);
    RequireEqual(EGL_BAD_PARAMETER, "buffer metadata of size", sizeof(metadata), count);
    RequireEqual(EGL_BAD_PARAMETER, "buffer metadata of magic", GrallocMetadataMagic, metadata.magic);
    RequireEqual(EGL_BAD_PARAMETER, "geometry in the buffer's metadata, flag", 1, metadata.hasGeometry);
    RequireEqual(EGL_BAD_PARAMETER, "colour in the buffer's metadata, flag", 1, metadata.hasColor);
    return metadata.geometry;
}

/// Both planes have to lie inside the memory: the chroma plane begins after `scanline` rows of luma, and its
/// two-byte samples need an even stride.
void CheckGeometry(const ANativeWindowBuffer& buffer, Orba::Gralloc::BufferGeometry geometry, int64_t bytes) {
    Require(geometry.stride >= buffer.width && geometry.stride % 2 == 0 && geometry.scanline >= buffer.height,
            EGL_BAD_PARAMETER,
            "expected an even stride of {} or more and a scanline of {} or more, got {} and {}", buffer.width,
            buffer.height, geometry.stride, geometry.scanline);
    const int64_t rows = int64_t{geometry.scanline} + (int64_t{geometry.scanline} + 1) / 2;
    Require(rows * geometry.stride <= bytes, EGL_BAD_PARAMETER,
            "expected {} bytes of pixels or more for stride {} and scanline {}, got {}",
            rows * geometry.stride, geometry.stride, geometry.scanline, bytes);
}

uint8_t* MapPixels(int file, size_t bytes) {
    struct stat status {};
    const bool isWhole = fstat(file, &status) == 0 && status.st_size >= static_cast<off_t>(bytes);
    Require(isWhole, EGL_BAD_PARAMETER, "expected a pixel file of {} bytes or more, got {}", bytes,
            status.st_size);
    void* pixels = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    Require(pixels != MAP_FAILED, EGL_BAD_ALLOC, "expected to map {} bytes of pixels, got \"{}\"", bytes,
            std::generic_category().message(errno));
    return static_cast<uint8_t*>(pixels);
}

}  // namespace

Image::Image(ANativeWindowBuffer* buffer, const EGLint* attributes) : buffer_(buffer) {
    CheckBuffer(buffer);
    CheckAttributes(*buffer, attributes);
    width_ = buffer->width;
    height_ = buffer->height;
    geometry_ = ReadGeometry(buffer->handle->data[GrallocMetadataFd]);
    const int64_t bytes = GrallocInt(buffer->handle, GrallocIntSize);
    CheckGeometry(*buffer, geometry_, bytes);
    bytes_ = static_cast<size_t>(bytes);
    pixels_ = MapPixels(buffer->handle->data[GrallocPixelFd], bytes_);
    buffer->common.incRef(&buffer->common);
    globalCounters.With([](DeskGlCounters& counters) { ++counters.imports; });
}

Image::~Image() {
    munmap(pixels_, bytes_);
    buffer_->common.decRef(&buffer_->common);
}

PlaneLayout Image::Layout(Plane plane) const {
    if (plane == Luma) {
        return {width_, height_, geometry_.stride, pixels_};
    }
    // An odd last column or row has a chroma sample of its own.
    return {(width_ + 1) / 2, (height_ + 1) / 2, geometry_.stride / 2,
            pixels_ + ptrdiff_t{geometry_.stride} * geometry_.scanline};
}

}  // namespace desk
