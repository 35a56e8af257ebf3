#pragma once

#include "desk/gl/driver/real_gl.h"

namespace desk {

// As the EGL's functions of these names. The default display needs no window system: a device's has one, a
// workstation's may not. On a device all users of a display share it, and only the last one to terminate it
// really does, with its contexts and images.
EGLDisplay GetDisplay(EGLNativeDisplayType native);
EGLBoolean Initialise(EGLDisplay display, EGLint* major, EGLint* minor);
EGLBoolean Terminate(EGLDisplay display);

/// Throws EglError unless the display has been initialised and not terminated since.
void RequireInitialised(EGLDisplay display);

}  // namespace desk
