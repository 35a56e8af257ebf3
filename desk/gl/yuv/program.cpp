#include "desk/gl/yuv/program.h"

#include <array>
#include <string>
#include <utility>

#include "desk/gl/driver/egl_call.h"
#include "desk/gl/driver/export.h"
#include "desk/gl/driver/gl_scope.h"
#include "desk/gl/yuv/context_state.h"
#include "desk/gl/yuv/shader_translate.h"

namespace desk {
namespace {

/// The shaders of a program at the time it is linked: one of each kind in OpenGL ES 3.0.
struct AttachedShaders {
    GLuint vertex = 0;
    GLuint fragment = 0;
};

GLint ShaderInteger(GLuint shader, GLenum name) {
    GLint value = 0;
    Gl().GetShaderiv(shader, name, &value);
    return value;
}

GLint ProgramInteger(GLuint program, GLenum name) {
    GLint value = 0;
    Gl().GetProgramiv(program, name, &value);
    return value;
}

AttachedShaders ShadersOf(GLuint program) {
    std::array<GLuint, 2> shaders{};
    GLsizei count = 0;
    Gl().GetAttachedShaders(program, static_cast<GLsizei>(shaders.size()), &count, shaders.data());
    AttachedShaders attached;
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        const GLint type = ShaderInteger(shaders[i], GL_SHADER_TYPE);
        if (type == GL_VERTEX_SHADER) {
            attached.vertex = shaders[i];
        } else if (type == GL_FRAGMENT_SHADER) {
            attached.fragment = shaders[i];
        }
    }
    return attached;
}

std::string SourceOf(GLuint shader) {
    std::string source(static_cast<size_t>(ShaderInteger(shader, GL_SHADER_SOURCE_LENGTH)), '\0');
    GLsizei length = 0;
    Gl().GetShaderSource(shader, static_cast<GLsizei>(source.size()), &length, source.data());
    source.resize(static_cast<size_t>(length));
    return source;
}

/// One set of vertex attributes has to serve both programs.
void BindSameAttributes(GLuint program, GLuint chromaProgram) {
    std::string name(static_cast<size_t>(ProgramInteger(program, GL_ACTIVE_ATTRIBUTE_MAX_LENGTH)), '\0');
    const auto count = static_cast<GLuint>(ProgramInteger(program, GL_ACTIVE_ATTRIBUTES));
    for (GLuint i = 0; i < count; ++i) {
        GLint size = 0;
        GLenum type = 0;
        Gl().GetActiveAttrib(program, i, static_cast<GLsizei>(name.size()), nullptr, &size, &type,
                             name.data());
        const GLint location = Gl().GetAttribLocation(program, name.c_str());
        if (location >= 0) {  // built-in inputs have none
            Gl().BindAttribLocation(chromaProgram, static_cast<GLuint>(location), name.c_str());
        }
    }
}

/// 0 when the driver does not link it, which it says on stderr: the luma program did link.
GLuint LinkChromaProgram(GLuint program, GLuint vertexShader, const std::string& translated) {
    const std::string source = ChromaVariant(translated);
    const char* text = source.c_str();
    const GLuint shader = Gl().CreateShader(GL_FRAGMENT_SHADER);
    Gl().ShaderSource(shader, 1, &text, nullptr);
    Gl().CompileShader(shader);

    const GLuint chromaProgram = Gl().CreateProgram();
    Gl().AttachShader(chromaProgram, vertexShader);
    Gl().AttachShader(chromaProgram, shader);
    BindSameAttributes(program, chromaProgram);
    Gl().LinkProgram(chromaProgram);
    Gl().DetachShader(chromaProgram, vertexShader);
    Gl().DetachShader(chromaProgram, shader);
    Gl().DeleteShader(shader);
    if (ProgramInteger(chromaProgram, GL_LINK_STATUS) == GL_TRUE) {
        return chromaProgram;
    }
    std::array<char, 1024> log{};
    Gl().GetProgramInfoLog(chromaProgram, static_cast<GLsizei>(log.size()), nullptr, log.data());
    ReportRefusal("glLinkProgram", log.data());
    Gl().DeleteProgram(chromaProgram);
    return 0;
}

/// The chroma planes take the highest units, which applications leave alone, and stay there.
std::vector<ExternalSampler> PlaceSamplers(GLuint program, GLuint chromaProgram,
                                           const std::vector<std::string>& names) {
    const ProgramScope scope;
    auto unit = static_cast<GLuint>(GlInteger(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS));
    std::vector<ExternalSampler> samplers;
    for (const std::string& name : names) {
        --unit;
        for (const GLuint target : {program, chromaProgram}) {
            if (target != 0) {
                UseProgram(target);
                Gl().Uniform1i(Gl().GetUniformLocation(target, ChromaSampler(name).c_str()),
                               static_cast<GLint>(unit));
            }
        }
        samplers.push_back({Gl().GetUniformLocation(program, name.c_str()),
                            chromaProgram == 0 ? -1 : Gl().GetUniformLocation(chromaProgram, name.c_str()),
                            unit});
    }
    return samplers;
}

void LinkProgram(ContextState& context, GLuint program) {
    Gl().LinkProgram(program);
    context.ForgetProgram(program);
    const AttachedShaders shaders = ShadersOf(program);
    if (shaders.fragment == 0 || ProgramInteger(program, GL_LINK_STATUS) != GL_TRUE) {
        return;
    }
    const std::string source = SourceOf(shaders.fragment);
    const std::vector<std::string> names = ExternalSamplers(source);
    if (names.empty() && !WritesPlanes(source)) {
        return;
    }
    PlaneProgram planes;
    planes.lumaProgram = program;
    if (WritesPlanes(source)) {
        planes.chromaProgram = LinkChromaProgram(program, shaders.vertex, source);
    }
    planes.samplers = PlaceSamplers(program, planes.chromaProgram, names);
    context.AddProgram(std::move(planes));
}

std::string JoinSource(GLsizei count, const GLchar* const* strings, const GLint* lengths) {
    std::string source;
    for (GLsizei i = 0; i < count; ++i) {
        if (lengths != nullptr && lengths[i] >= 0) {
            source.append(strings[i], static_cast<size_t>(lengths[i]));
        } else {
            source.append(strings[i]);
        }
    }
    return source;
}

}  // namespace
}  // namespace desk

DESK_GL_EXPORT void GL_APIENTRY glShaderSource(GLuint shader, GLsizei count, const GLchar* const* strings,
                                               const GLint* lengths) {
    desk::GlCall([&](desk::ContextState&) {
        const std::string source =
            desk::LeadWithVersion(desk::TranslateYuvShader(desk::JoinSource(count, strings, lengths)));
        const char* text = source.c_str();
        desk::Gl().ShaderSource(shader, 1, &text, nullptr);
    });
}

DESK_GL_EXPORT void GL_APIENTRY glLinkProgram(GLuint program) {
    desk::GlCall([&](desk::ContextState& context) { desk::LinkProgram(context, program); });
}

DESK_GL_EXPORT void GL_APIENTRY glDeleteProgram(GLuint program) {
    desk::GlCall([&](desk::ContextState& context) {
        desk::Gl().DeleteProgram(program);
        context.ForgetDeletedPrograms();
    });
}
