#pragma once

#include "desk/gl/egl/handle_table.h"
#include "desk/gl/yuv/image.h"

namespace desk {

/// The images that have an EGL handle.
HandleTable<Image>& Images();

// As the EGL's functions of these names.
EGLImageKHR CreateImage(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                        const EGLint* attributes);
EGLBoolean DestroyImage(EGLDisplay display, EGLImageKHR handle);

}  // namespace desk
