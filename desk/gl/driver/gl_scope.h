#pragma once

#include "desk/gl/driver/real_gl.h"

/// The application must find the GL state as it left it, so the layer changes state only in scopes, which put
/// it back; but for how pixels lie in memory, which a node leaves as it is and the layer sets to GL's
/// defaults. All need a current context from construction to destruction.
namespace desk {

/// The one integer that a query of the driver's gives for `name`, of the object if it is one's; 0 when it
/// refuses.
template <typename Query, typename... Object>
GLint Integer(Query query, GLenum name, Object... object) {
    GLint value = 0;
    query(object..., name, &value);
    return value;
}

/// One value of the state, which `State` is the name of and `PutBack` sets.
template <GLenum State, void (*PutBack)(GLuint)>
class StateScope {
public:
    StateScope() : value_(static_cast<GLuint>(Integer(REAL(glGetIntegerv), State))) {}
    ~StateScope() {
        PutBack(value_);
    }
    StateScope(const StateScope&) = delete;
    StateScope& operator=(const StateScope&) = delete;

private:
    GLuint value_;
};

inline void ActivateUnit(GLuint unit) {
    REAL(glActiveTexture)(unit);
}
inline void BindTexture2D(GLuint texture) {
    REAL(glBindTexture)(GL_TEXTURE_2D, texture);
}
template <GLenum Target>
void BindFramebuffer(GLuint framebuffer) {
    REAL(glBindFramebuffer)(Target, framebuffer);
}
inline void UseProgram(GLuint program) {
    REAL(glUseProgram)(program);
}

using ActiveTextureScope = StateScope<GL_ACTIVE_TEXTURE, ActivateUnit>;
using TextureScope = StateScope<GL_TEXTURE_BINDING_2D, BindTexture2D>;  ///< of the unit that is active
using DrawFramebufferScope = StateScope<GL_DRAW_FRAMEBUFFER_BINDING, BindFramebuffer<GL_DRAW_FRAMEBUFFER>>;
using ReadFramebufferScope = StateScope<GL_READ_FRAMEBUFFER_BINDING, BindFramebuffer<GL_READ_FRAMEBUFFER>>;
using ProgramScope = StateScope<GL_CURRENT_PROGRAM, UseProgram>;

}  // namespace desk
