#include <exception>
#include <functional>
#include <optional>
#include <type_traits>

#include "desk/abi/gl_reports.h"
#include "desk/gl/driver/reports.h"
#include "desk/gl/egl/display.h"
#include "desk/gl/yuv/draw.h"

/// Every function that callers of the libraries look up by name; all else stays hidden.
#define EXPORT extern "C" __attribute__((visibility("default")))

using namespace desk;  // what is defined here is C's

namespace {

/// Does what an EGL function is called for. The driver's result counts unless the function sets one; what it
/// throws becomes an EGL error and 0, EGL_FALSE or no handle, since nothing may be thrown at a caller of a C
/// library.
template <typename Function, typename... Arguments>
std::invoke_result_t<Function, Arguments...> EglCall(const char* name, Function function,
                                                     Arguments... arguments) noexcept {
    SetEglResult(std::nullopt);
    try {
        return function(arguments...);
    } catch (const std::exception& error) {
        const auto* refusal = dynamic_cast<const EglError*>(&error);
        SetEglResult(refusal != nullptr ? refusal->code : EGL_BAD_ALLOC);
        ReportRefusal(name, error.what());
    }
    return {};
}

/// Does what a GL function is called for, on the current context; without one there is nothing to do, as in
/// any GL. What it throws becomes GL_OUT_OF_MEMORY.
template <typename Function, typename... Arguments>
auto GlCall(Function function, Arguments... arguments) noexcept {
    using Result = std::invoke_result_t<Function, ContextState&, Arguments...>;
    ContextState* context = CurrentContext();
    try {
        return context == nullptr ? Result() : std::invoke(function, *context, arguments...);
    } catch (const std::exception&) {
        context->SetError(GL_OUT_OF_MEMORY);
        return Result();
    }
}

}  // namespace

// A row says what a function is called and who does its work.
// clang-format off
EXPORT EGLDisplay EGLAPIENTRY eglGetDisplay(EGLNativeDisplayType native) {
    return EglCall(__func__, GetDisplay, native); }
EXPORT EGLBoolean EGLAPIENTRY eglInitialize(EGLDisplay display, EGLint* major, EGLint* minor) {
    return EglCall(__func__, Initialise, display, major, minor); }
EXPORT EGLBoolean EGLAPIENTRY eglTerminate(EGLDisplay display) { return EglCall(__func__, Terminate, display); }
EXPORT EGLint EGLAPIENTRY eglGetError() { return TakeEglResult(); }
EXPORT EGLContext EGLAPIENTRY eglCreateContext(EGLDisplay display, EGLConfig config, EGLContext share,
                                               const EGLint* attributes) {
    return EglCall(__func__, CreateContext, display, config, share, attributes); }
EXPORT EGLBoolean EGLAPIENTRY eglDestroyContext(EGLDisplay display, EGLContext context) {
    return EglCall(__func__, DestroyContext, display, context); }
EXPORT EGLBoolean EGLAPIENTRY eglMakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
    return EglCall(__func__, MakeCurrent, display, draw, read, context); }
EXPORT EGLBoolean EGLAPIENTRY eglReleaseThread() { return EglCall(__func__, ReleaseThread); }
EXPORT EGLImageKHR EGLAPIENTRY eglCreateImageKHR(EGLDisplay display, EGLContext context, EGLenum target,
                                                 EGLClientBuffer buffer, const EGLint* attributes) {
    return EglCall(__func__, CreateImage, display, context, target, buffer, attributes); }
EXPORT EGLBoolean EGLAPIENTRY eglDestroyImageKHR(EGLDisplay display, EGLImageKHR image) {
    return EglCall(__func__, DestroyImage, display, image); }

EXPORT GLenum GL_APIENTRY glGetError() { return GlCall(&ContextState::TakeError); }
EXPORT void GL_APIENTRY glBindTexture(GLenum target, GLuint texture) {
    GlCall(&ContextState::BindTexture, target, texture); }
EXPORT void GL_APIENTRY glTexParameteri(GLenum target, GLenum name, GLint value) {
    GlCall(&ContextState::TexParameter, target, name, value); }
EXPORT void GL_APIENTRY glDeleteTextures(GLsizei count, const GLuint* textures) {
    GlCall(&ContextState::DeleteTextures, count, textures); }
EXPORT void GL_APIENTRY glEGLImageTargetTexture2DOES(GLenum target, GLeglImageOES image) {
    GlCall(&ContextState::SetTextureImage, target, FindImage(image)); }
EXPORT void GL_APIENTRY glEGLImageTargetRenderbufferStorageOES(GLenum target, GLeglImageOES image) {
    GlCall(&ContextState::SetRenderbufferImage, target, FindImage(image)); }
EXPORT void GL_APIENTRY glFramebufferRenderbuffer(GLenum target, GLenum attachment, GLenum bufferTarget, GLuint buffer) {
    GlCall(&ContextState::AttachRenderbuffer, target, attachment, bufferTarget, buffer); }
EXPORT void GL_APIENTRY glDeleteRenderbuffers(GLsizei count, const GLuint* renderbuffers) {
    GlCall(&ContextState::DeleteRenderbuffers, count, renderbuffers); }
EXPORT void GL_APIENTRY glShaderSource(GLuint shader, GLsizei count, const GLchar* const* strings, const GLint* lengths) {
    GlCall([=](auto& context) { context.programs.SetSource(shader, count, strings, lengths); }); }
EXPORT void GL_APIENTRY glLinkProgram(GLuint program) {
    GlCall([=](auto& context) { context.programs.Link(program); }); }
EXPORT void GL_APIENTRY glDeleteProgram(GLuint program) {
    GlCall([=](auto& context) { context.programs.Delete(program); }); }
EXPORT void GL_APIENTRY glClear(GLbitfield mask) { GlCall(Clear, mask); }
EXPORT void GL_APIENTRY glDrawElements(GLenum mode, GLsizei count, GLenum type, const void* indices) {
    GlCall(Draw, [&] { REAL(glDrawElements)(mode, count, type, indices); }); }
EXPORT void GL_APIENTRY glDrawArrays(GLenum mode, GLint first, GLsizei count) {
    GlCall(Draw, [&] { REAL(glDrawArrays)(mode, first, count); }); }
EXPORT void GL_APIENTRY glFinish() { GlCall(&ContextState::Finish); }

EXPORT void desk_gl_set_error_sink(DeskGlErrorSink function, void* owner) { SetDriverErrorSink(function, owner); }
// clang-format on

EXPORT void desk_gl_counters(DeskGlCounters* counters) {
    *counters = globalCounters.With([](const DeskGlCounters& global) { return global; });
    counters->contextCurrent = CurrentContext() != nullptr ? 1 : 0;
}
