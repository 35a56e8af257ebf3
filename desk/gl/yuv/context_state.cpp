#include "desk/gl/yuv/context_state.h"

#include <mutex>
#include <string>
#include <utility>

#include "desk/gl/driver/driver_errors.h"
#include "desk/gl/driver/export.h"

namespace desk {
namespace {

/// All contexts have the same, so the first one's is kept.
void NoteRenderer() {
    static std::once_flag isNoted;
    std::call_once(isNoted, [] {
        Counters& counters = GlobalCounters();
        const GLubyte* name = Gl().GetString(GL_RENDERER);
        const std::string text = name == nullptr ? "" : reinterpret_cast<const char*>(name);
        text.copy(counters.renderer.data(), counters.renderer.size() - 1);
        GLint most = 0;
        Gl().GetIntegerv(GL_MAX_TEXTURE_SIZE, &most);
        counters.maxTextureSize = most;
    });
}

}  // namespace

void ContextState::BecomeCurrent() {
    if (!isListening_) {
        isListening_ = true;
        NoteRenderer();
        ListenToDriver();
    }
}

void ContextState::BindExternalTexture(GLuint unit, GLuint texture) {
    if (texture == 0) {
        externalBindings_.erase(unit);
    } else {
        externalTextures_.try_emplace(texture);
        externalBindings_[unit] = texture;
    }
}

ExternalTexture* ContextState::BoundExternalTexture(GLuint unit) {
    const auto binding = externalBindings_.find(unit);
    return binding == externalBindings_.end() ? nullptr : &externalTextures_.at(binding->second);
}

void ContextState::DeleteExternalTexture(GLuint texture) {
    const auto found = externalTextures_.find(texture);
    if (found == externalTextures_.end()) {
        return;
    }
    for (auto binding = externalBindings_.begin(); binding != externalBindings_.end();) {
        binding = binding->second == texture ? externalBindings_.erase(binding) : std::next(binding);
    }
    found->second.Delete();
    externalTextures_.erase(found);
}

void ContextState::SetRenderTarget(GLuint renderbuffer, std::shared_ptr<Image> image) {
    DeleteRenderTarget(renderbuffer);
    renderTargets_.try_emplace(renderbuffer, std::move(image));
}

RenderTarget* ContextState::FindRenderTarget(GLuint renderbuffer) {
    const auto found = renderTargets_.find(renderbuffer);
    return found == renderTargets_.end() ? nullptr : &found->second;
}

void ContextState::DeleteRenderTarget(GLuint renderbuffer) {
    const auto found = renderTargets_.find(renderbuffer);
    if (found != renderTargets_.end()) {
        found->second.Delete();
        renderTargets_.erase(found);
    }
}

RenderTarget* ContextState::DrawTarget() {
    if (renderTargets_.empty() || GlInteger(GL_DRAW_FRAMEBUFFER_BINDING) == 0) {
        return nullptr;
    }
    // Asking the driver what is attached spares following every way of attaching and detaching.
    const auto attached = [](GLenum name) {
        GLint value = 0;
        Gl().GetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, name, &value);
        return value;
    };
    if (attached(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE) != GL_TEXTURE) {
        return nullptr;
    }
    const auto texture = static_cast<GLuint>(attached(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME));
    for (auto& [renderbuffer, target] : renderTargets_) {
        if (target.LumaTexture() == texture) {
            return &target;
        }
    }
    return nullptr;
}

void ContextState::FinishRenderTargets() {
    for (auto& [renderbuffer, target] : renderTargets_) {
        target.Finish();
    }
}

void ContextState::AddProgram(PlaneProgram program) {
    const GLuint name = program.lumaProgram;
    programs_[name] = std::move(program);
}

const PlaneProgram* ContextState::ProgramInUse() const {
    if (programs_.empty()) {
        return nullptr;
    }
    const auto found = programs_.find(static_cast<GLuint>(GlInteger(GL_CURRENT_PROGRAM)));
    return found == programs_.end() ? nullptr : &found->second;
}

void ContextState::ForgetProgram(GLuint program) {
    const auto found = programs_.find(program);
    if (found != programs_.end()) {
        Gl().DeleteProgram(found->second.chromaProgram);
        programs_.erase(found);
    }
}

void ContextState::ForgetDeletedPrograms() {
    for (auto program = programs_.begin(); program != programs_.end();) {
        const auto next = std::next(program);
        if (Gl().IsProgram(program->first) == GL_FALSE) {
            ForgetProgram(program->first);
        }
        program = next;
    }
}

std::shared_ptr<Image> ContextState::ImageFor(GLenum target, GLeglImageOES handle,
                                              PFNGLEGLIMAGETARGETTEXTURE2DOESPROC driverFunction) {
    auto image = FindImage(handle);
    if (!image && handle != nullptr && driverFunction != nullptr) {
        driverFunction(target, handle);
    } else if (!image) {
        SetError(GL_INVALID_VALUE);
    }
    return image;
}

void ContextState::SetError(GLenum error) {
    if (error_ == GL_NO_ERROR) {
        error_ = error;
    }
}

GLenum ContextState::TakeError() {
    return std::exchange(error_, GLenum{GL_NO_ERROR});
}

}  // namespace desk

DESK_GL_EXPORT GLenum GL_APIENTRY glGetError() {
    GLenum error = GL_NO_ERROR;
    desk::GlCall([&](desk::ContextState& context) {
        error = context.TakeError();
        if (error == GL_NO_ERROR) {
            error = desk::Gl().GetError();
        }
    });
    return error;
}
