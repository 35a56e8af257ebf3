#include "desk/gl/yuv/draw.h"

#include <array>
#include <optional>

#include "desk/gl/driver/gl_scope.h"

namespace desk {
namespace {

using Box = std::array<GLint, 4>;  ///< left, bottom, width, height

/// Both edges rounded outwards, so that a half-size plane's sample for an odd last column is covered too.
Box Half(const Box& box) {
    const GLint left = box[0] >> 1;
    const GLint bottom = box[1] >> 1;
    return {left, bottom, ((box[0] + box[2] + 1) >> 1) - left, ((box[1] + box[3] + 1) >> 1) - bottom};
}

/// Another draw framebuffer of half the size, with viewport and scissor box halved to match.
class HalfSizeScope {
public:
    explicit HalfSizeScope(GLuint framebuffer) {
        REAL(glGetIntegerv)(GL_VIEWPORT, viewport_.data());
        REAL(glGetIntegerv)(GL_SCISSOR_BOX, scissor_.data());
        BindFramebuffer<GL_DRAW_FRAMEBUFFER>(framebuffer);
        SetBoxes(Half(viewport_), Half(scissor_));
    }
    ~HalfSizeScope() {
        SetBoxes(viewport_, scissor_);
    }
    HalfSizeScope(const HalfSizeScope&) = delete;
    HalfSizeScope& operator=(const HalfSizeScope&) = delete;

private:
    static void SetBoxes(const Box& viewport, const Box& scissor) {
        REAL(glViewport)(viewport[0], viewport[1], viewport[2], viewport[3]);
        REAL(glScissor)(scissor[0], scissor[1], scissor[2], scissor[3]);
    }

    DrawFramebufferScope framebuffer_;
    Box viewport_{};
    Box scissor_{};
};

}  // namespace

void Draw(ContextState& context, const std::function<void()>& draw) {
    PlaneSet* target = context.DrawTarget();
    const PlaneProgram* program = context.programs.InUse();
    const bool writesPlanes = program != nullptr && program->chroma != 0;
    if (writesPlanes != (target != nullptr)) {
        context.SetError(GL_INVALID_OPERATION);
        return;
    }
    std::optional<ActiveTextureScope> activeUnit;
    std::optional<TextureScope> lumaTexture;  // the chroma plane's unit is the layer's own
    if (program != nullptr && program->samplesImage) {
        const PlaneSet* image = context.ExternalTexture(program->Unit());
        if (image != nullptr) {
            image->Upload();
        }
        activeUnit.emplace();
        ActivateUnit(GL_TEXTURE0 + program->chromaPlaneUnit);
        BindTexture2D(image == nullptr ? 0 : image->Texture(Chroma));  // black when there is none
        ActivateUnit(GL_TEXTURE0 + program->Unit());
        lumaTexture.emplace();
        BindTexture2D(image == nullptr ? 0 : image->Texture(Luma));
    }
    if (target != nullptr) {
        target->BeginDrawing(false);
    }
    draw();
    if (target != nullptr) {
        const ProgramScope programScope;
        const HalfSizeScope half(target->Framebuffer(Chroma));
        UseProgram(program->chroma);
        REAL(glUniform1i)(program->chromaSampler, static_cast<GLint>(program->Unit()));
        draw();
    }
}

void Clear(ContextState& context, GLbitfield mask) {
    PlaneSet* target = (mask & GL_COLOR_BUFFER_BIT) != 0 ? context.DrawTarget() : nullptr;
    if (target != nullptr) {
        target->BeginDrawing(REAL(glIsEnabled)(GL_SCISSOR_TEST) == GL_FALSE);
    }
    REAL(glClear)(mask);
    if (target != nullptr) {
        GLfloat yuva[5] = {};  // four from the second on are asked for, of which the plane has two
        REAL(glGetFloatv)(GL_COLOR_CLEAR_VALUE, yuva);
        const HalfSizeScope half(target->Framebuffer(Chroma));
        REAL(glClearBufferfv)(GL_COLOR, 0, yuva + 1);
    }
}

}  // namespace desk
