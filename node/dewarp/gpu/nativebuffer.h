#pragma once

#include <utils/RefBase.h>

#include "host/lumimage.h"
#include "platform/nativewindowbuffer.h"

/// Presents a bare native handle to EGL as a native window buffer. Reference-counted: EGL takes its
/// references through common.incRef and common.decRef, and the last one frees the object. The engine
/// itself takes none and never deletes one. The handle belongs to the host.
class NativeBuffer : public ANativeWindowBuffer, public android::RefBase {
public:
    /// Sizes in pixels and lines; `format` is the GL-side format code, `usage` the gralloc usage bits.
    NativeBuffer(int bufferWidth, int bufferHeight, int bufferStride, int bufferFormat, int bufferUsage,
                 native_handle* pHandle);

    void incStrong(const void* id) const {
        RefBase::incStrong(id);
    }
    void decStrong(const void* id) const {
        RefBase::decStrong(id);
    }

private:
    ~NativeBuffer() override;

    static void IncRef(android_native_base_t* pBase);
    static void DecRef(android_native_base_t* pBase);
};
