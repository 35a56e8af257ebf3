#pragma once

#include <stdexcept>

namespace desk {

/// What was asked for cannot be done: an option, a clip or a dump is wrong. Any other exception is the
/// environment's fault: a full disk, a folder without permission, no GL.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace desk
