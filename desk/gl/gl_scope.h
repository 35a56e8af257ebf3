#pragma once

#include <array>

#include "desk/gl/real_gl.h"

/// The application must find the GL state as it left it, so the layer changes state only through these
/// scopes, which put it back. All need a current context from construction to destruction.
namespace desk {

/// The texture unit that is active.
class ActiveTextureScope {
public:
    ActiveTextureScope() : unit_(GlInteger(GL_ACTIVE_TEXTURE)) {}
    ~ActiveTextureScope() {
        Gl().ActiveTexture(static_cast<GLenum>(unit_));
    }
    ActiveTextureScope(const ActiveTextureScope&) = delete;
    ActiveTextureScope& operator=(const ActiveTextureScope&) = delete;

private:
    GLint unit_;
};

/// The GL_TEXTURE_2D binding of the active unit.
class TextureScope {
public:
    TextureScope() : texture_(GlInteger(GL_TEXTURE_BINDING_2D)) {}
    ~TextureScope() {
        Gl().BindTexture(GL_TEXTURE_2D, static_cast<GLuint>(texture_));
    }
    TextureScope(const TextureScope&) = delete;
    TextureScope& operator=(const TextureScope&) = delete;

private:
    GLint texture_;
};

/// GL_DRAW_FRAMEBUFFER or GL_READ_FRAMEBUFFER.
class FramebufferScope {
public:
    explicit FramebufferScope(GLenum target)
        : target_(target),
          framebuffer_(GlInteger(target == GL_READ_FRAMEBUFFER ? GL_READ_FRAMEBUFFER_BINDING
                                                               : GL_DRAW_FRAMEBUFFER_BINDING)) {}
    ~FramebufferScope() {
        Gl().BindFramebuffer(target_, static_cast<GLuint>(framebuffer_));
    }
    FramebufferScope(const FramebufferScope&) = delete;
    FramebufferScope& operator=(const FramebufferScope&) = delete;

private:
    GLenum target_;
    GLint framebuffer_;
};

/// The program in use.
class ProgramScope {
public:
    ProgramScope() : program_(GlInteger(GL_CURRENT_PROGRAM)) {}
    ~ProgramScope() {
        Gl().UseProgram(static_cast<GLuint>(program_));
    }
    ProgramScope(const ProgramScope&) = delete;
    ProgramScope& operator=(const ProgramScope&) = delete;

private:
    GLint program_;
};

/// Lets pixel transfers run between the GL and rows of client memory of any length.
class PixelTransferScope {
public:
    enum Direction { Unpack, Pack };
    explicit PixelTransferScope(Direction direction);
    ~PixelTransferScope();
    PixelTransferScope(const PixelTransferScope&) = delete;
    PixelTransferScope& operator=(const PixelTransferScope&) = delete;

    /// Pixels from one row's start to the next one's.
    void SetRowLength(GLint pixels);

private:
    static constexpr size_t ParameterCount = 4;
    struct State;
    static const State States[2];

    const State& state_;
    GLint buffer_;
    std::array<GLint, ParameterCount> values_{};
};

/// The driver's own target of colour output while one other framebuffer of half the size stands in for it:
/// draw framebuffer, viewport and scissor box.
class HalfSizeScope {
public:
    explicit HalfSizeScope(GLuint framebuffer);
    ~HalfSizeScope();
    HalfSizeScope(const HalfSizeScope&) = delete;
    HalfSizeScope& operator=(const HalfSizeScope&) = delete;

private:
    FramebufferScope framebuffer_;
    std::array<GLint, 4> viewport_{};
    std::array<GLint, 4> scissor_{};
};

}  // namespace desk
