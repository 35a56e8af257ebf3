#include "desk/gl/egl/objects.h"

#include <fmt/format.h>

#include "desk/gl/driver/errors.h"
#include "desk/gl/egl/display.h"

namespace desk {
namespace {

thread_local std::shared_ptr<ContextState> currentState;

/// The application's attributes with a request for version 3 in place of one for version 2. A device's EGL
/// answers both with the same context; a driver that takes the number at its word would not compile
/// "#version 300 es".
std::vector<EGLint> RaiseVersion(const EGLint* attributes) {
    std::vector<EGLint> raised;
    for (; attributes != nullptr && *attributes != EGL_NONE; attributes += 2) {
        const bool isVersion2 = attributes[0] == EGL_CONTEXT_CLIENT_VERSION && attributes[1] == 2;
        raised.insert(raised.end(), {attributes[0], isVersion2 ? 3 : attributes[1]});
    }
    raised.push_back(EGL_NONE);
    return raised;
}

}  // namespace

ContextState* CurrentContext() {
    return currentState.get();
}

EGLContext CreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
    auto state = std::make_shared<ContextState>();
    EGLContext context = REAL(eglCreateContext)(display, config, share, RaiseVersion(attributes).data());
    if (context != EGL_NO_CONTEXT) {
        contexts.Add(display, context, std::move(state));
    }
    return context;
}

EGLBoolean DestroyContext(EGLDisplay display, EGLContext context) {
    // Before the driver may give the handle to another one.
    const auto dropped = contexts.Remove(display, context);
    const EGLBoolean isDone = REAL(eglDestroyContext)(display, context);
    if (isDone == EGL_FALSE && dropped) {
        contexts.Add(display, context, dropped);
    }
    return isDone;
}

EGLBoolean MakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
    const EGLBoolean isDone = REAL(eglMakeCurrent)(display, draw, read, context);
    if (isDone == EGL_TRUE) {
        currentState = contexts.Find(display, context);
        if (currentState) {
            currentState->BecomeCurrent();
        }
    }
    return isDone;
}

EGLBoolean ReleaseThread() {
    const EGLBoolean isDone = REAL(eglReleaseThread)();
    if (isDone == EGL_TRUE) {
        currentState.reset();
    }
    return isDone;
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
    images.Add(display, handle, std::move(image));
    SetEglResult(EGL_SUCCESS);
    return handle;
}

EGLBoolean DestroyImage(EGLDisplay display, EGLImageKHR handle) {
    RequireInitialised(display);
    if (images.Remove(display, handle) == nullptr) {
        throw EglError(EGL_BAD_PARAMETER, "expected an image of the display, got another handle");
    }
    SetEglResult(EGL_SUCCESS);
    return EGL_TRUE;
}

}  // namespace desk
