#pragma once

#include <functional>

#include "desk/gl/yuv/context_state.h"

namespace desk {

/// Does what the application's call of `draw` asks for: once on an ordinary target, once a plane on a YUV
/// target, so that every chroma sample is evaluated at its own centre. YUV on an ordinary target, or the
/// reverse, is GL_INVALID_OPERATION.
void Draw(ContextState& context, const std::function<void()>& draw);

void Clear(ContextState& context, GLbitfield mask);

}  // namespace desk
