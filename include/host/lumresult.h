#pragma once

#include <cstdint>

/// Result codes shared by the host and its nodes. Every callback and every host service returns one.
enum LumResult : uint32_t {
    LumResultSuccess = 0,            ///< done
    LumResultFailure = 1,            ///< failed, or a host record smaller than its minimum size
    LumResultUnsupported = 2,        ///< node capabilities that name no stabilisation variant
    LumResultInvalidArgument = 5,    ///< null record or null node handle
    LumResultLibraryFailure = 6,     ///< a GL or EGL library could not be loaded or resolved
    LumResultNoMemory = 8,           ///< allocation failed
    LumResultEntryPointFailure = 15  ///< entry-point initialisation failed
};
