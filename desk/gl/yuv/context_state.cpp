#include "desk/gl/yuv/context_state.h"

#include <cstdio>
#include <utility>

#include "desk/gl/driver/gl_scope.h"
#include "desk/gl/driver/reports.h"

namespace desk {
namespace {

GLuint ActiveUnit() {
    return static_cast<GLuint>(Integer(REAL(glGetIntegerv), GL_ACTIVE_TEXTURE)) - GL_TEXTURE0;
}

/// All contexts have the same, so the first one's is kept.
void NoteRenderer() {
    globalCounters.With([](DeskGlCounters& counters) {
        if (counters.maxTextureSize == 0) {
            const auto note = [](char(&words)[128], GLenum name) {
                const auto* text = reinterpret_cast<const char*>(REAL(glGetString)(name));
                static_cast<void>(std::snprintf(words, sizeof(words), "%s", text));
            };
            note(counters.renderer, GL_RENDERER);
            note(counters.version, GL_VERSION);
            counters.maxTextureSize = Integer(REAL(glGetIntegerv), GL_MAX_TEXTURE_SIZE);
        }
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

void ContextState::BindTexture(GLenum target, GLuint texture) {
    if (target != GL_TEXTURE_EXTERNAL_OES) {
        REAL(glBindTexture)(target, texture);
        return;
    }
    externalBindings_[ActiveUnit()] = texture;
    if (texture != 0) {
        externalTextures_.try_emplace(texture);
    }
}

PlaneSet* ContextState::ExternalTexture(GLuint unit) {
    const auto found = externalTextures_.find(externalBindings_[unit]);
    return found == externalTextures_.end() ? nullptr : &found->second;
}

void ContextState::TexParameter(GLenum target, GLenum name, GLint value) {
    if (target != GL_TEXTURE_EXTERNAL_OES) {
        REAL(glTexParameteri)(target, name, value);
        return;
    }
    // External textures have one level and end at their edges, so only these values are left.
    const bool isFilter = name == GL_TEXTURE_MIN_FILTER || name == GL_TEXTURE_MAG_FILTER;
    const bool isWrap = name == GL_TEXTURE_WRAP_S || name == GL_TEXTURE_WRAP_T;
    PlaneSet* texture = ExternalTexture(ActiveUnit());
    if (isFilter && (value == GL_NEAREST || value == GL_LINEAR)) {
        if (texture != nullptr) {
            texture->SetFilter(name, value);
        }
    } else if (!isWrap || value != GL_CLAMP_TO_EDGE) {
        SetError(GL_INVALID_ENUM);
    }
}

void ContextState::SetTextureImage(GLenum target, std::shared_ptr<Image> image) {
    PlaneSet* texture = ExternalTexture(ActiveUnit());
    if (image == nullptr) {
        SetError(GL_INVALID_VALUE);
    } else if (target != GL_TEXTURE_EXTERNAL_OES && target != GL_TEXTURE_2D) {
        SetError(GL_INVALID_ENUM);
    } else if (target == GL_TEXTURE_2D || texture == nullptr) {
        SetError(GL_INVALID_OPERATION);
    } else {
        texture->SetImage(std::move(image));
    }
}

void ContextState::DeleteTextures(GLsizei count, const GLuint* textures) {
    for (GLsizei i = 0; i < count; ++i) {
        for (auto& [unit, bound] : externalBindings_) {
            bound = bound == textures[i] ? 0 : bound;
        }
        externalTextures_[textures[i]].Delete();
        externalTextures_.erase(textures[i]);
    }
    REAL(glDeleteTextures)(count, textures);
}

void ContextState::SetRenderbufferImage(GLenum target, std::shared_ptr<Image> image) {
    const auto renderbuffer = static_cast<GLuint>(Integer(REAL(glGetIntegerv), GL_RENDERBUFFER_BINDING));
    if (image == nullptr) {
        SetError(GL_INVALID_VALUE);
    } else if (target != GL_RENDERBUFFER) {
        SetError(GL_INVALID_ENUM);
    } else if (renderbuffer == 0) {
        SetError(GL_INVALID_OPERATION);
    } else {
        renderTargets_[renderbuffer].SetImage(std::move(image));
    }
}

void ContextState::AttachRenderbuffer(GLenum target, GLenum attachment, GLenum renderbufferTarget,
                                      GLuint renderbuffer) {
    const auto found = renderTargets_.find(renderbuffer);
    if (found == renderTargets_.end() || renderbufferTarget != GL_RENDERBUFFER) {
        REAL(glFramebufferRenderbuffer)(target, attachment, renderbufferTarget, renderbuffer);
    } else if (attachment != GL_COLOR_ATTACHMENT0) {
        SetError(GL_INVALID_OPERATION);
    } else {
        REAL(glFramebufferTexture2D)(target, attachment, GL_TEXTURE_2D, found->second.Texture(Luma), 0);
    }
}

void ContextState::DeleteRenderbuffers(GLsizei count, const GLuint* renderbuffers) {
    for (GLsizei i = 0; i < count; ++i) {
        renderTargets_[renderbuffers[i]].Delete();
        renderTargets_.erase(renderbuffers[i]);
    }
    REAL(glDeleteRenderbuffers)(count, renderbuffers);
}

PlaneSet* ContextState::DrawTarget() {
    if (renderTargets_.empty() || Integer(REAL(glGetIntegerv), GL_DRAW_FRAMEBUFFER_BINDING) == 0) {
        return nullptr;
    }
    // Asking the driver what is attached spares following every way of attaching and detaching.
    const auto attached = [](GLenum name) {
        return Integer(REAL(glGetFramebufferAttachmentParameteriv), name, GLenum{GL_DRAW_FRAMEBUFFER},
                       GLenum{GL_COLOR_ATTACHMENT0});
    };
    if (attached(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE) != GL_TEXTURE) {
        return nullptr;
    }
    const auto texture = static_cast<GLuint>(attached(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME));
    for (auto& [renderbuffer, target] : renderTargets_) {
        if (target.Texture(Luma) == texture) {
            return &target;
        }
    }
    return nullptr;
}

void ContextState::Finish() {
    for (auto& [renderbuffer, target] : renderTargets_) {
        target.Finish();
    }
    REAL(glFinish)();
}

void ContextState::SetError(GLenum error) {
    if (error_ == GL_NO_ERROR) {
        error_ = error;
    }
}

GLenum ContextState::TakeError() {
    return error_ == GL_NO_ERROR ? REAL(glGetError)() : std::exchange(error_, GLenum{GL_NO_ERROR});
}

}  // namespace desk
