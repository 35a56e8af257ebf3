#pragma once

/// Marks a definition that callers of the libraries look up by name; everything else stays hidden.
#define DESK_GL_EXPORT extern "C" __attribute__((visibility("default")))
