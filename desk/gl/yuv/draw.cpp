#include "desk/gl/yuv/draw.h"

#include <array>
#include <optional>

#include "desk/gl/driver/gl_scope.h"

namespace desk {
namespace {

/// One texture in the place of another on a unit.
class BoundPlane {
public:
    BoundPlane(GLuint unit, GLuint texture) : unit_(GL_TEXTURE0 + unit) {
        const ActiveTextureScope activeTexture;
        ActivateUnit(unit_);
        previous_ = static_cast<GLuint>(GlInteger(GL_TEXTURE_BINDING_2D));
        BindTexture2D(texture);
    }
    ~BoundPlane() {
        const ActiveTextureScope activeTexture;
        ActivateUnit(unit_);
        BindTexture2D(previous_);
    }
    BoundPlane(const BoundPlane&) = delete;
    BoundPlane& operator=(const BoundPlane&) = delete;

private:
    GLenum unit_;
    GLuint previous_;
};

/// The external image that a program samples, loaded and bound; black when there is none.
class BoundImage {
public:
    BoundImage(const PlaneProgram& program, PlaneSet* image)
        : luma_(program.Unit(), image == nullptr ? 0 : image->Texture(Luma)),
          chroma_(program.chromaPlaneUnit, image == nullptr ? 0 : image->Texture(Chroma)) {
        if (image != nullptr) {
            image->Upload();
        }
    }

private:
    BoundPlane luma_;
    BoundPlane chroma_;
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
    std::optional<BoundImage> image;
    if (program != nullptr && program->samplesImage) {
        image.emplace(*program, context.ExternalTexture(program->Unit()));
    }
    if (target == nullptr) {
        draw();
        return;
    }
    target->BeginDrawing(false);
    draw();
    const ProgramScope programScope;
    const HalfSizeScope half(target->Framebuffer(Chroma));
    UseProgram(program->chroma);
    Gl().Uniform1i(program->chromaSampler, static_cast<GLint>(program->Unit()));
    draw();
}

void Clear(ContextState& context, GLbitfield mask) {
    PlaneSet* target = (mask & GL_COLOR_BUFFER_BIT) != 0 ? context.DrawTarget() : nullptr;
    if (target != nullptr) {
        target->BeginDrawing(Gl().IsEnabled(GL_SCISSOR_TEST) == GL_FALSE);
    }
    Gl().Clear(mask);
    if (target != nullptr) {
        std::array<GLfloat, 4> yuva{};
        Gl().GetFloatv(GL_COLOR_CLEAR_VALUE, yuva.data());
        const HalfSizeScope half(target->Framebuffer(Chroma));
        Gl().ClearColor(yuva[1], yuva[2], 0.0F, yuva[3]);
        Gl().Clear(GL_COLOR_BUFFER_BIT);
        Gl().ClearColor(yuva[0], yuva[1], yuva[2], yuva[3]);
    }
}

}  // namespace desk
