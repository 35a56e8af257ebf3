#pragma once

#include <memory>

#include "desk/gl/yuv/context_state.h"

namespace desk {

// As the EGL's functions of these names. The default display needs no window system: a device's has one, a
// workstation's may not. On a device all users of a display share it, and only the last one to terminate it
// really does, with its contexts and images.
EGLDisplay GetDisplay(EGLNativeDisplayType native);
EGLBoolean Initialise(EGLDisplay display, EGLint* major, EGLint* minor);
EGLBoolean Terminate(EGLDisplay display);
EGLContext CreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes);
EGLBoolean DestroyContext(EGLDisplay display, EGLContext context);
EGLBoolean MakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context);
EGLBoolean ReleaseThread();
EGLImageKHR CreateImage(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                        const EGLint* attributes);
EGLBoolean DestroyImage(EGLDisplay display, EGLImageKHR handle);

/// Null when the calling thread has no context current.
ContextState* CurrentContext();
/// Null when the current display has no image of that handle.
std::shared_ptr<Image> FindImage(EGLImageKHR handle);

}  // namespace desk
