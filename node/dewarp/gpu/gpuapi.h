#pragma once

/// The Khronos declarations that the engine takes its types and constants from. Nothing of EGL or
/// OpenGL ES is linked: every function is looked up at run time.

#define EGL_EGLEXT_PROTOTYPES 1
#define GL_GLEXT_PROTOTYPES 1

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>

#include <GLES2/gl2ext.h>
