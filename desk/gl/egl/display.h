#pragma once

#include "desk/gl/driver/real_gl.h"

namespace desk {

/// Throws EglError unless the display has been initialised and not terminated since.
void RequireInitialised(EGLDisplay display);

}  // namespace desk
