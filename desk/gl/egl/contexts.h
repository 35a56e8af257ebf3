#pragma once

#include "desk/gl/egl/handle_table.h"
#include "desk/gl/yuv/context_state.h"

namespace desk {

/// The contexts that are not destroyed. A state has two owners, this table and the thread that has the
/// context current, so that a context destroyed while current lives until it is released, as EGL has it.
HandleTable<ContextState>& Contexts();

/// Null when the calling thread has no context current.
ContextState* CurrentContext();

// As the EGL's functions of these names.
EGLContext CreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes);
EGLBoolean DestroyContext(EGLDisplay display, EGLContext context);
EGLBoolean MakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context);
EGLBoolean ReleaseThread();

}  // namespace desk
