#pragma once

#include "desk/gl/driver/real_gl.h"

/// The application must find the GL state as it left it, so the layer changes state only in scopes, which put
/// it back; but for how pixels lie in memory, which a node leaves as it is and the layer sets to GL's
/// defaults. All need a current context from construction to destruction.
namespace desk {

/// One integer of the current context's state.
inline GLint GlInteger(GLenum name) {
    GLint value = 0;
    Gl().GetIntegerv(name, &value);
    return value;
}

/// One value of the state, which `State` is the name of and `PutBack` sets.
template <GLenum State, void (*PutBack)(GLuint)>
class StateScope {
public:
    StateScope() : value_(static_cast<GLuint>(GlInteger(State))) {}
    ~StateScope() {
        PutBack(value_);
    }
    StateScope(const StateScope&) = delete;
    StateScope& operator=(const StateScope&) = delete;

private:
    GLuint value_;
};

inline void ActivateUnit(GLuint unit) {
    Gl().ActiveTexture(unit);
}
inline void BindTexture2D(GLuint texture) {
    Gl().BindTexture(GL_TEXTURE_2D, texture);
}
inline void BindDrawFramebuffer(GLuint framebuffer) {
    Gl().BindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
}
inline void BindReadFramebuffer(GLuint framebuffer) {
    Gl().BindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
}
inline void UseProgram(GLuint program) {
    Gl().UseProgram(program);
}

using ActiveTextureScope = StateScope<GL_ACTIVE_TEXTURE, ActivateUnit>;
using TextureScope = StateScope<GL_TEXTURE_BINDING_2D, BindTexture2D>;  ///< of the unit that is active
using DrawFramebufferScope = StateScope<GL_DRAW_FRAMEBUFFER_BINDING, BindDrawFramebuffer>;
using ReadFramebufferScope = StateScope<GL_READ_FRAMEBUFFER_BINDING, BindReadFramebuffer>;
using ProgramScope = StateScope<GL_CURRENT_PROGRAM, UseProgram>;

}  // namespace desk
