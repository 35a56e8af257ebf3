#include "node/dewarp/gpu/nativebuffer.h"

namespace {

/// The enclosing buffer of the record's head, which is its first member.
NativeBuffer* BufferOf(android_native_base_t* pBase) {
    static_assert(offsetof(ANativeWindowBuffer, common) == 0, "EGL hands the hooks the head of the record");
    return static_cast<NativeBuffer*>(reinterpret_cast<ANativeWindowBuffer*>(pBase));
}

}  // namespace

NativeBuffer::NativeBuffer(int bufferWidth, int bufferHeight, int bufferStride, int bufferFormat,
                           int bufferUsage, native_handle* pHandle) {
    width = bufferWidth;
    height = bufferHeight;
    stride = bufferStride;
    format = bufferFormat;
    handle = pHandle;
    usage = static_cast<uint64_t>(bufferUsage);
    common.incRef = IncRef;
    common.decRef = DecRef;
}

NativeBuffer::~NativeBuffer() = default;

void NativeBuffer::IncRef(android_native_base_t* pBase) {
    NativeBuffer* pBuffer = BufferOf(pBase);
    pBuffer->incStrong(pBuffer);
}

void NativeBuffer::DecRef(android_native_base_t* pBase) {
    NativeBuffer* pBuffer = BufferOf(pBase);
    pBuffer->decStrong(pBuffer);
}
