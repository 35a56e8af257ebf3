#include "desk/gl/driver/gl_scope.h"

namespace desk {

struct PixelTransferScope::State {
    GLenum bufferTarget;
    GLenum bufferBinding;
    GLenum rowLength;
    std::array<GLenum, ParameterCount> parameters;  ///< all that a transfer of a 2D image reads
};

const PixelTransferScope::State PixelTransferScope::States[2] = {
    {GL_PIXEL_UNPACK_BUFFER,
     GL_PIXEL_UNPACK_BUFFER_BINDING,
     GL_UNPACK_ROW_LENGTH,
     {GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS, GL_UNPACK_ALIGNMENT}},
    {GL_PIXEL_PACK_BUFFER,
     GL_PIXEL_PACK_BUFFER_BINDING,
     GL_PACK_ROW_LENGTH,
     {GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS, GL_PACK_SKIP_PIXELS, GL_PACK_ALIGNMENT}},
};

PixelTransferScope::PixelTransferScope(Direction direction)
    : state_(States[direction]), buffer_(GlInteger(state_.bufferBinding)) {
    Gl().BindBuffer(state_.bufferTarget, 0);
    for (std::size_t i = 0; i < ParameterCount; ++i) {
        const GLenum parameter = state_.parameters[i];
        values_[i] = GlInteger(parameter);
        const bool isAlignment = parameter == GL_UNPACK_ALIGNMENT || parameter == GL_PACK_ALIGNMENT;
        Gl().PixelStorei(parameter, isAlignment ? 1 : 0);
    }
}

PixelTransferScope::~PixelTransferScope() {
    for (std::size_t i = 0; i < ParameterCount; ++i) {
        Gl().PixelStorei(state_.parameters[i], values_[i]);
    }
    Gl().BindBuffer(state_.bufferTarget, static_cast<GLuint>(buffer_));
}

void PixelTransferScope::SetRowLength(GLint pixels) {
    Gl().PixelStorei(state_.rowLength, pixels);
}

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
