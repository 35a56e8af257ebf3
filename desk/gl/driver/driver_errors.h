#pragma once

namespace desk {

/// Has the driver tell what errors it meets in the context that is current, for desk_gl_set_error_sink(). A
/// driver that cannot tell keeps silent.
void ListenToDriver();

}  // namespace desk
