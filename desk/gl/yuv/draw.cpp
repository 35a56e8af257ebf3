#include <array>

#include "desk/gl/driver/export.h"
#include "desk/gl/driver/gl_scope.h"
#include "desk/gl/yuv/context_state.h"

namespace desk {
namespace {

/// One texture in the place of another on a unit. Leaves that unit active.
class BoundPlane {
public:
    BoundPlane(GLuint unit, GLuint texture) : unit_(GL_TEXTURE0 + unit) {
        ActivateUnit(unit_);
        previous_ = static_cast<GLuint>(GlInteger(GL_TEXTURE_BINDING_2D));
        BindTexture2D(texture);
    }
    ~BoundPlane() {
        ActivateUnit(unit_);
        BindTexture2D(previous_);
    }
    BoundPlane(const BoundPlane&) = delete;
    BoundPlane& operator=(const BoundPlane&) = delete;

private:
    GLenum unit_;
    GLuint previous_;
};

/// The unit that the application gave to the sampler; 0, its initial value, when only chroma is read.
GLuint SamplerUnit(const PlaneProgram& program, const ExternalSampler& sampler) {
    GLint unit = 0;
    if (sampler.unitLocation >= 0) {
        Gl().GetUniformiv(program.lumaProgram, sampler.unitLocation, &unit);
    }
    return static_cast<GLuint>(unit);
}

/// Calls `draw` with the program's external images, from the sampler `first` on, loaded and bound.
template <typename Draw>
void WithSamplers(ContextState& context, const PlaneProgram& program, size_t first, const Draw& draw) {
    if (first == program.samplers.size()) {
        draw();
        return;
    }
    const ExternalSampler& sampler = program.samplers[first];
    const GLuint unit = SamplerUnit(program, sampler);
    const ExternalTexture* texture = context.BoundExternalTexture(unit);
    if (texture != nullptr) {
        texture->Upload();
    }
    const ActiveTextureScope activeTexture;
    const BoundPlane luma(unit, texture == nullptr ? 0 : texture->PlaneName(Luma));
    const BoundPlane chroma(sampler.chromaUnit, texture == nullptr ? 0 : texture->PlaneName(Chroma));
    WithSamplers(context, program, first + 1, draw);
}

void UseChromaProgram(const PlaneProgram& program) {
    UseProgram(program.chromaProgram);
    for (const ExternalSampler& sampler : program.samplers) {
        Gl().Uniform1i(sampler.repeatedUnitLocation, static_cast<GLint>(SamplerUnit(program, sampler)));
    }
}

/// Draws what the application asks for: once on an ordinary target, once a plane on a YUV target, so that
/// every chroma sample is evaluated at its own centre.
template <typename Draw>
void DrawPlanes(ContextState& context, const Draw& draw) {
    RenderTarget* target = context.DrawTarget();
    const PlaneProgram* program = context.ProgramInUse();
    const bool writesPlanes = program != nullptr && program->chromaProgram != 0;
    if (writesPlanes != (target != nullptr)) {
        context.SetError(GL_INVALID_OPERATION);  // YUV on an ordinary target, or the reverse
        return;
    }
    if (program == nullptr) {
        draw();
        return;
    }
    WithSamplers(context, *program, 0, [&] {
        if (target == nullptr) {
            draw();
            return;
        }
        target->BeginDrawing(false);
        draw();
        const ProgramScope programScope;
        const HalfSizeScope half(target->ChromaFramebuffer());
        UseChromaProgram(*program);
        draw();
    });
}

void Clear(ContextState& context, GLbitfield mask) {
    RenderTarget* target = (mask & GL_COLOR_BUFFER_BIT) != 0 ? context.DrawTarget() : nullptr;
    if (target != nullptr) {
        target->BeginDrawing(Gl().IsEnabled(GL_SCISSOR_TEST) == GL_FALSE);
    }
    Gl().Clear(mask);
    if (target != nullptr) {
        std::array<GLfloat, 4> yuva{};
        Gl().GetFloatv(GL_COLOR_CLEAR_VALUE, yuva.data());
        const HalfSizeScope half(target->ChromaFramebuffer());
        Gl().ClearColor(yuva[1], yuva[2], 0.0F, yuva[3]);
        Gl().Clear(GL_COLOR_BUFFER_BIT);
        Gl().ClearColor(yuva[0], yuva[1], yuva[2], yuva[3]);
    }
}

}  // namespace
}  // namespace desk

DESK_GL_EXPORT void GL_APIENTRY glClear(GLbitfield mask) {
    desk::GlCall([&](desk::ContextState& context) { desk::Clear(context, mask); });
}

DESK_GL_EXPORT void GL_APIENTRY glDrawElements(GLenum mode, GLsizei count, GLenum type, const void* indices) {
    desk::GlCall([&](desk::ContextState& context) {
        desk::DrawPlanes(context, [&] { desk::Gl().DrawElements(mode, count, type, indices); });
    });
}

DESK_GL_EXPORT void GL_APIENTRY glDrawArrays(GLenum mode, GLint first, GLsizei count) {
    desk::GlCall([&](desk::ContextState& context) {
        desk::DrawPlanes(context, [&] { desk::Gl().DrawArrays(mode, first, count); });
    });
}
