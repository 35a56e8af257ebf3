#pragma once

// Every EGL and OpenGL ES entry point that the engine calls, one row each. Members, lookup, required test,
// reset and the tests' fakes are expansions of these lists; types come from the Khronos headers.

/// ENTRY(member, symbol, isRequired, isReset), in the order of the members.
///   isRequired  without it the library is refused
///   isReset     cleared by ResetFunctionPointer
/// Three rows stand apart: a missing glUseProgram is refused but neither reset nor printed; glFlush and the
/// renderbuffer storage are optional.
#define DEWARP_GLES_ENTRIES(ENTRY)                                                                           \
    ENTRY(m_pfngluseprogram, glUseProgram, true, false)                                                      \
    ENTRY(m_pfnglgetattriblocation, glGetAttribLocation, true, true)                                         \
    ENTRY(m_pfngldeleteshader, glDeleteShader, true, true)                                                   \
    ENTRY(m_pfnglfinish, glFinish, true, true)                                                               \
    ENTRY(m_pfnglcreateshader, glCreateShader, true, true)                                                   \
    ENTRY(m_pfnglshadersource, glShaderSource, true, true)                                                   \
    ENTRY(m_pfnglcompileshader, glCompileShader, true, true)                                                 \
    ENTRY(m_pfnglgetshaderiv, glGetShaderiv, true, true)                                                     \
    ENTRY(m_pfnglgetprograminfolog, glGetProgramInfoLog, true, true)                                         \
    ENTRY(m_pfngldeleteprogram, glDeleteProgram, true, true)                                                 \
    ENTRY(m_pfngldetachshader, glDetachShader, true, true)                                                   \
    ENTRY(m_pfnglgeterror, glGetError, true, true)                                                           \
    ENTRY(m_pfnglgetuniformlocation, glGetUniformLocation, true, true)                                       \
    ENTRY(m_pfnglactivetexture, glActiveTexture, true, true)                                                 \
    ENTRY(m_pfngluniform1i, glUniform1i, true, true)                                                         \
    ENTRY(m_pfngldisablevertexattribarray, glDisableVertexAttribArray, true, true)                           \
    ENTRY(m_pfngldeletebuffers, glDeleteBuffers, true, true)                                                 \
    ENTRY(m_pfnglgetprogramiv, glGetProgramiv, true, true)                                                   \
    ENTRY(m_pfnglbindattriblocation, glBindAttribLocation, true, true)                                       \
    ENTRY(m_pfnglgetshaderinfolog, glGetShaderInfoLog, true, true)                                           \
    ENTRY(m_pfnglcreateprogram, glCreateProgram, true, true)                                                 \
    ENTRY(m_pfnglattachshader, glAttachShader, true, true)                                                   \
    ENTRY(m_pfngllinkprogram, glLinkProgram, true, true)                                                     \
    ENTRY(m_pfnglviewport, glViewport, true, true)                                                           \
    ENTRY(m_pfnglbindtexture, glBindTexture, true, true)                                                     \
    ENTRY(m_pfnglbindframebuffer, glBindFramebuffer, true, true)                                             \
    ENTRY(m_pfnglClearColor, glClearColor, true, true)                                                       \
    ENTRY(m_pfnglClear, glClear, true, true)                                                                 \
    ENTRY(m_pfnglscissor, glScissor, true, true)                                                             \
    ENTRY(m_pfnglbindbuffer, glBindBuffer, true, true)                                                       \
    ENTRY(m_pfnglenablevertexattribarray, glEnableVertexAttribArray, true, true)                             \
    ENTRY(m_pfnglvertexattribpointer, glVertexAttribPointer, true, true)                                     \
    ENTRY(m_pfnglgenbuffers, glGenBuffers, true, true)                                                       \
    ENTRY(m_pfnglbufferdata, glBufferData, true, true)                                                       \
    ENTRY(m_pfnglflush, glFlush, false, false)                                                               \
    ENTRY(m_pfngldrawelements, glDrawElements, true, true)                                                   \
    ENTRY(m_pfnglcheckframebufferstatus, glCheckFramebufferStatus, true, true)                               \
    ENTRY(m_pfnglgentextures, glGenTextures, true, true)                                                     \
    ENTRY(m_pfngltexparameteri, glTexParameteri, true, true)                                                 \
    ENTRY(m_pfngleglImageTargetTexture2DOES, glEGLImageTargetTexture2DOES, true, true)                       \
    ENTRY(m_pfngleglImageTargetRenderbufferStorageOES, glEGLImageTargetRenderbufferStorageOES, false, false) \
    ENTRY(m_pfnglgenframebuffers, glGenFramebuffers, true, true)                                             \
    ENTRY(m_pfnglgenrenderbuffers, glGenRenderbuffers, true, true)                                           \
    ENTRY(m_pfnglbindrenderbuffer, glBindRenderbuffer, true, true)                                           \
    ENTRY(m_pfnglframebufferrenderbuffer, glFramebufferRenderbuffer, true, true)                             \
    ENTRY(m_pfngldeleteframebuffers, glDeleteFramebuffers, true, true)                                       \
    ENTRY(m_pfngldeleterenderbuffers, glDeleteRenderbuffers, true, true)                                     \
    ENTRY(m_pfngldeletetextures, glDeleteTextures, true, true)

/// ENTRY(member, symbol), in the order of the members. All are required, all are reset.
#define DEWARP_EGL_ENTRIES(ENTRY)                                \
    ENTRY(m_pfneglgetdisplay, eglGetDisplay)                     \
    ENTRY(m_pfneglinitialize, eglInitialize)                     \
    ENTRY(m_pfneglmakecurrent, eglMakeCurrent)                   \
    ENTRY(m_pfneglgeterror, eglGetError)                         \
    ENTRY(m_pfneglquerystring, eglQueryString)                   \
    ENTRY(m_pfneglcreatecontext, eglCreateContext)               \
    ENTRY(m_pfneglcreatepbuffersurface, eglCreatePbufferSurface) \
    ENTRY(m_pfnegldestroycontext, eglDestroyContext)             \
    ENTRY(m_pfnegldestroysurface, eglDestroySurface)             \
    ENTRY(m_pfneglterminate, eglTerminate)                       \
    ENTRY(m_pfneglchooseconfig, eglChooseConfig)                 \
    ENTRY(m_pfneglgetconfigattrib, eglGetConfigAttrib)           \
    ENTRY(m_pfneglbindapi, eglBindAPI)                           \
    ENTRY(m_pfneglcreateimagekhr, eglCreateImageKHR)             \
    ENTRY(m_pfneglgetcurrentdisplay, eglGetCurrentDisplay)       \
    ENTRY(m_pfneglDestroyImageKHR, eglDestroyImageKHR)

/// ENTRY(member), in the order in which a failure message shows them.
#define DEWARP_GLES_PRINTED(ENTRY)           \
    ENTRY(m_pfnglgetattriblocation)          \
    ENTRY(m_pfngldeleteshader)               \
    ENTRY(m_pfnglfinish)                     \
    ENTRY(m_pfnglcreateshader)               \
    ENTRY(m_pfnglshadersource)               \
    ENTRY(m_pfnglcompileshader)              \
    ENTRY(m_pfnglgetshaderiv)                \
    ENTRY(m_pfnglgetprograminfolog)          \
    ENTRY(m_pfngldeleteprogram)              \
    ENTRY(m_pfngldetachshader)               \
    ENTRY(m_pfnglgeterror)                   \
    ENTRY(m_pfnglgetuniformlocation)         \
    ENTRY(m_pfnglactivetexture)              \
    ENTRY(m_pfngluniform1i)                  \
    ENTRY(m_pfngldisablevertexattribarray)   \
    ENTRY(m_pfngldeletebuffers)              \
    ENTRY(m_pfnglbindattriblocation)         \
    ENTRY(m_pfnglcreateprogram)              \
    ENTRY(m_pfnglgetprogramiv)               \
    ENTRY(m_pfnglgetshaderinfolog)           \
    ENTRY(m_pfnglattachshader)               \
    ENTRY(m_pfngllinkprogram)                \
    ENTRY(m_pfnglviewport)                   \
    ENTRY(m_pfnglbindtexture)                \
    ENTRY(m_pfnglbindframebuffer)            \
    ENTRY(m_pfnglscissor)                    \
    ENTRY(m_pfnglClearColor)                 \
    ENTRY(m_pfnglClear)                      \
    ENTRY(m_pfnglbindbuffer)                 \
    ENTRY(m_pfnglenablevertexattribarray)    \
    ENTRY(m_pfnglvertexattribpointer)        \
    ENTRY(m_pfnglgenbuffers)                 \
    ENTRY(m_pfnglbufferdata)                 \
    ENTRY(m_pfngldrawelements)               \
    ENTRY(m_pfnglgentextures)                \
    ENTRY(m_pfngltexparameteri)              \
    ENTRY(m_pfnglcheckframebufferstatus)     \
    ENTRY(m_pfngleglImageTargetTexture2DOES) \
    ENTRY(m_pfnglgenframebuffers)            \
    ENTRY(m_pfnglgenrenderbuffers)           \
    ENTRY(m_pfnglbindrenderbuffer)           \
    ENTRY(m_pfnglframebufferrenderbuffer)    \
    ENTRY(m_pfngldeleteframebuffers)         \
    ENTRY(m_pfngldeleterenderbuffers)        \
    ENTRY(m_pfngldeletetextures)

/// FIRST(member), then ENTRY(member): a separator stands before every row but the first.
#define DEWARP_EGL_PRINTED(FIRST, ENTRY) \
    FIRST(m_pfneglgetdisplay)            \
    ENTRY(m_pfneglinitialize)            \
    ENTRY(m_pfneglmakecurrent)           \
    ENTRY(m_pfneglgeterror)              \
    ENTRY(m_pfneglquerystring)           \
    ENTRY(m_pfneglcreatepbuffersurface)  \
    ENTRY(m_pfneglcreatecontext)         \
    ENTRY(m_pfnegldestroycontext)        \
    ENTRY(m_pfnegldestroysurface)        \
    ENTRY(m_pfneglterminate)             \
    ENTRY(m_pfneglchooseconfig)          \
    ENTRY(m_pfneglgetconfigattrib)       \
    ENTRY(m_pfneglbindapi)               \
    ENTRY(m_pfneglcreateimagekhr)        \
    ENTRY(m_pfneglgetcurrentdisplay)     \
    ENTRY(m_pfneglDestroyImageKHR)
