#include "desk/gl/driver/gl_scope.h"

namespace desk {
namespace {

/// Both edges rounded outwards, so that a half-size plane's sample for an odd last column is covered too.
std::array<GLint, 4> HalfBox(const std::array<GLint, 4>& box) {
    const GLint left = box[0] >> 1;
    const GLint bottom = box[1] >> 1;
    return {left, bottom, ((box[0] + box[2] + 1) >> 1) - left, ((box[1] + box[3] + 1) >> 1) - bottom};
}

void SetBoxes(const std::array<GLint, 4>& viewport, const std::array<GLint, 4>& scissor) {
    Gl().Viewport(viewport[0], viewport[1], viewport[2], viewport[3]);
    Gl().Scissor(scissor[0], scissor[1], scissor[2], scissor[3]);
}

}  // namespace

HalfSizeScope::HalfSizeScope(GLuint framebuffer) {
    Gl().GetIntegerv(GL_VIEWPORT, viewport_.data());
    Gl().GetIntegerv(GL_SCISSOR_BOX, scissor_.data());
    BindDrawFramebuffer(framebuffer);
    SetBoxes(HalfBox(viewport_), HalfBox(scissor_));
}

HalfSizeScope::~HalfSizeScope() {
    SetBoxes(viewport_, scissor_);
}

}  // namespace desk
