#pragma once

#include "desk/abi/gl_reports.h"

namespace desk {

/// Has the driver tell what errors it meets in the context that is current. A driver that cannot tell keeps
/// silent.
void ListenToDriver();

/// Says whom it tells, as desk_gl_set_error_sink() has it.
void SetDriverErrorSink(DeskGlErrorSink function, void* owner);

}  // namespace desk
