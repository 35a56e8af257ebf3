#include "desk/gl/yuv/program.h"

#include <algorithm>
#include <array>
#include <string>

#include "desk/gl/driver/egl_error.h"
#include "desk/gl/driver/gl_scope.h"
#include "desk/gl/yuv/shader_translate.h"

namespace desk {
namespace {

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

/// The program's one shader of a kind, at the time it is linked; 0 when it has none.
GLuint ShaderOf(GLuint program, GLint kind) {
    std::array<GLuint, 2> shaders{};
    GLsizei count = 0;
    Gl().GetAttachedShaders(program, static_cast<GLsizei>(shaders.size()), &count, shaders.data());
    const auto end = shaders.begin() + count;
    const auto found = std::find_if(shaders.begin(), end, [kind](GLuint shader) {
        return ShaderInteger(shader, GL_SHADER_TYPE) == kind;
    });
    return found == end ? 0 : *found;
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
GLuint LinkChromaProgram(GLuint program, const std::string& translated) {
    const GLuint vertexShader = ShaderOf(program, GL_VERTEX_SHADER);
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

/// The chroma plane takes the highest unit, which applications leave alone, and stays there.
void PlaceSampler(PlaneProgram& program, const std::string& name) {
    const ProgramScope scope;
    program.samplesImage = true;
    program.lumaSampler = Gl().GetUniformLocation(program.luma, name.c_str());
    program.chromaPlaneUnit = static_cast<GLuint>(GlInteger(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS)) - 1;
    for (const GLuint reader : {program.luma, program.chroma}) {
        if (reader != 0) {
            UseProgram(reader);
            Gl().Uniform1i(Gl().GetUniformLocation(reader, ChromaSampler),
                           static_cast<GLint>(program.chromaPlaneUnit));
        }
    }
    if (program.chroma != 0) {
        program.chromaSampler = Gl().GetUniformLocation(program.chroma, name.c_str());
    }
}

}  // namespace

GLuint PlaneProgram::Unit() const {
    GLint unit = 0;
    if (lumaSampler >= 0) {
        Gl().GetUniformiv(luma, lumaSampler, &unit);
    }
    return static_cast<GLuint>(unit);
}

void PlanePrograms::Link(GLuint program) {
    Gl().LinkProgram(program);
    Forget(program);
    const GLuint shader = ShaderOf(program, GL_FRAGMENT_SHADER);
    if (shader == 0 || ProgramInteger(program, GL_LINK_STATUS) != GL_TRUE) {
        return;
    }
    const std::string source = SourceOf(shader);
    const std::string sampler = ExternalSampler(source);
    if (sampler.empty() && !WritesPlanes(source)) {
        return;
    }
    PlaneProgram added;
    added.luma = program;
    if (WritesPlanes(source)) {
        added.chroma = LinkChromaProgram(program, source);
    }
    if (!sampler.empty()) {
        PlaceSampler(added, sampler);
    }
    programs_[program] = added;
}

void PlanePrograms::Delete(GLuint program) {
    Forget(program);
    Gl().DeleteProgram(program);
}

const PlaneProgram* PlanePrograms::InUse() const {
    if (programs_.empty()) {
        return nullptr;
    }
    const auto found = programs_.find(static_cast<GLuint>(GlInteger(GL_CURRENT_PROGRAM)));
    return found == programs_.end() ? nullptr : &found->second;
}

void PlanePrograms::Forget(GLuint program) {
    const auto found = programs_.find(program);
    if (found != programs_.end()) {
        Gl().DeleteProgram(found->second.chroma);
        programs_.erase(found);
    }
}

}  // namespace desk
