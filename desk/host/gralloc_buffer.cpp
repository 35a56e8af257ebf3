#include "desk/host/gralloc_buffer.h"

#include <fmt/core.h>
#include <linux/memfd.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <system_error>

#include "desk/abi/gralloc_layout.h"

namespace desk {
namespace {

std::atomic<uint64_t> liveBuffers = 0;

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// The descriptor goes to `fd` at once, so that its owner closes it whatever happens next.
void MakeFile(const char* name, size_t size, int& fd) {
    // The kernel's own call: older C libraries of Android lack the function.
    fd = static_cast<int>(::syscall(SYS_memfd_create, name, MFD_CLOEXEC));
    if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(size)) != 0) {
        Fail("no memory for a gralloc buffer");
    }
}

uint32_t RoundUp(uint32_t value, int32_t alignment) {
    const uint32_t step = std::max(static_cast<uint32_t>(alignment), 1U);
    return (value + step - 1) / step * step;
}

}  // namespace

std::shared_ptr<GrallocBuffer> GrallocBuffer::Create(Size size, Alignment alignment) {
    // Larger sizes than any GPU renders would only overflow the arithmetic below.
    constexpr uint32_t MaxSide = 16384;
    if (size.width < 2 || size.height < 2 || size.width > MaxSide || size.height > MaxSide) {
        throw std::invalid_argument(
            fmt::format("a buffer of {} x {} pixels cannot be made; expected 2 x 2 to {} x {}", size.width,
                        size.height, MaxSide, MaxSide));
    }
    if (alignment.strideAlignment < 0 || alignment.scanlineAlignment < 0 ||
        alignment.strideAlignment > static_cast<int32_t>(MaxSide) ||
        alignment.scanlineAlignment > static_cast<int32_t>(MaxSide)) {
        throw std::invalid_argument(
            fmt::format("a buffer cannot be aligned to {} bytes and {} lines; expected 0 to {} of each",
                        alignment.strideAlignment, alignment.scanlineAlignment, MaxSide));
    }
    return std::shared_ptr<GrallocBuffer>(new GrallocBuffer(size, alignment));
}

uint64_t GrallocBuffer::LiveCount() {
    return liveBuffers;
}

GrallocBuffer::GrallocBuffer(Size size, Alignment alignment)
    : size_(size),
      // Both sides are rounded up to even numbers first: the chroma plane has half of each.
      stride_(RoundUp(RoundUp(size.width, 2), alignment.strideAlignment)),
      scanline_(RoundUp(RoundUp(size.height, 2), alignment.scanlineAlignment)),
      handle_(::native_handle_create(GrallocFdCount, GrallocIntCount)) {
    if (handle_ == nullptr) {
        throw std::bad_alloc();
    }
    handle_->data[GrallocPixelFd] = -1;
    handle_->data[GrallocMetadataFd] = -1;
    int* ints = handle_->data + GrallocFdCount;
    ints[GrallocIntMagic] = GrallocHandleMagic;
    ints[GrallocIntWidth] = static_cast<int>(size_.width);
    ints[GrallocIntHeight] = static_cast<int>(size_.height);
    ints[GrallocIntFormat] = GrallocFormatNv12;
    ints[GrallocIntSize] = static_cast<int>(ByteSize());
    MakeFile("desk-gralloc-pixels", ByteSize(), handle_->data[GrallocPixelFd]);
    MakeFile("desk-gralloc-metadata", sizeof(GrallocMetadata), handle_->data[GrallocMetadataFd]);
    GrallocMetadata metadata = {};
    metadata.magic = GrallocMetadataMagic;
    const ssize_t written = ::pwrite(handle_->data[GrallocMetadataFd], &metadata, sizeof(metadata), 0);
    if (written != static_cast<ssize_t>(sizeof(metadata))) {
        Fail("the metadata of a gralloc buffer cannot be written");
    }
    Remap();
    ++liveBuffers;
}

GrallocBuffer::~GrallocBuffer() {
    ::munmap(pixels_, ByteSize());
    --liveBuffers;
}

void GrallocBuffer::CloseHandle::operator()(native_handle_t* handle) const {
    ::native_handle_close(handle);  // what was not opened is -1
    ::native_handle_delete(handle);
}

void GrallocBuffer::Remap() {
    void* mapping =
        ::mmap(nullptr, ByteSize(), PROT_READ | PROT_WRITE, MAP_SHARED, handle_->data[GrallocPixelFd], 0);
    if (mapping == MAP_FAILED) {
        Fail("the memory of a gralloc buffer cannot be mapped");
    }
    if (pixels_ != nullptr) {
        ::munmap(pixels_, ByteSize());
    }
    pixels_ = static_cast<uint8_t*>(mapping);
}

LumImageList GrallocBuffer::ImageList() {
    auto list = Patterned<LumImageList>();
    list.format = LumFormatNv12;
    list.width = size_.width;
    list.height = size_.height;
    list.stride = stride_;
    list.scanline = scanline_;
    list.firstImage.fd = static_cast<uint32_t>(handle_->data[GrallocPixelFd]);
    list.firstImage.pAddr = pixels_;
    list.firstImage.pNativeHandle = handle_.get();
    list.pFenceHandle = &fence_;
    list.pFenceSignaled = &fenceSignaled_;
    return list;
}

}  // namespace desk
