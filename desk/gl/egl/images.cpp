#include "desk/gl/egl/images.h"

#include <fmt/format.h>

#include "desk/gl/driver/egl_error.h"
#include "desk/gl/egl/display.h"

namespace desk {

HandleTable<Image>& Images() {
    static auto* images = new HandleTable<Image>;  // threads may outlive the static objects
    return *images;
}

EGLImageKHR CreateImage(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                        const EGLint* attributes) {
    RequireInitialised(display);
    if (target != EGL_NATIVE_BUFFER_ANDROID) {
        throw EglError(EGL_BAD_PARAMETER,
                       fmt::format("expected the target EGL_NATIVE_BUFFER_ANDROID, got {:#x}", target));
    }
    if (context != EGL_NO_CONTEXT) {
        throw EglError(EGL_BAD_CONTEXT, "expected EGL_NO_CONTEXT with a window buffer, got a context");
    }
    auto image = std::make_shared<Image>(reinterpret_cast<ANativeWindowBuffer*>(buffer), attributes);
    // The address serves as the handle: while the image has a handle, no other image is at its place.
    const EGLImageKHR handle = image.get();
    Images().Add(display, handle, std::move(image));
    SetEglResult(EGL_SUCCESS);
    return handle;
}

EGLBoolean DestroyImage(EGLDisplay display, EGLImageKHR handle) {
    RequireInitialised(display);
    if (Images().Remove(display, handle) == nullptr) {
        throw EglError(EGL_BAD_PARAMETER, "expected an image of the display, got another handle");
    }
    SetEglResult(EGL_SUCCESS);
    return EGL_TRUE;
}

}  // namespace desk
