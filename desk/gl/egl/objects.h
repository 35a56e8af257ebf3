#pragma once

#include "desk/gl/egl/handle_table.h"
#include "desk/gl/yuv/context_state.h"
#include "desk/gl/yuv/image.h"

namespace desk {

// Threads may outlive the static objects, so these two tables end with the process.
/// The contexts that are not destroyed. A state has two owners, this table and the thread that has the
/// context current, so that a context destroyed while current lives until it is released, as EGL has it.
inline auto& contexts = *new HandleTable<ContextState>;
/// The images that have an EGL handle.
inline auto& images = *new HandleTable<Image>;

/// Null when the calling thread has no context current.
ContextState* CurrentContext();

// As the EGL's functions of these names.
EGLContext CreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes);
EGLBoolean DestroyContext(EGLDisplay display, EGLContext context);
EGLBoolean MakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context);
EGLBoolean ReleaseThread();
EGLImageKHR CreateImage(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                        const EGLint* attributes);
EGLBoolean DestroyImage(EGLDisplay display, EGLImageKHR handle);

}  // namespace desk
