#include "desk/gl/yuv/program.h"

#include <algorithm>
#include <array>
#include <string>

#include "desk/gl/driver/gl_scope.h"
#include "desk/gl/driver/reports.h"

namespace desk {
namespace {

/// The program's one shader of a kind, at the time it is linked; 0 when it has none.
GLuint ShaderOf(GLuint program, GLint kind) {
    std::array<GLuint, 2> shaders{};
    GLsizei count = 0;
    REAL(glGetAttachedShaders)(program, static_cast<GLsizei>(shaders.size()), &count, shaders.data());
    const auto end = shaders.begin() + count;
    const auto found = std::find_if(shaders.begin(), end, [kind](GLuint shader) {
        return Integer(REAL(glGetShaderiv), GL_SHADER_TYPE, shader) == kind;
    });
    return found == end ? 0 : *found;
}

/// One set of vertex attributes has to serve both programs.
void BindSameAttributes(GLuint program, GLuint chromaProgram) {
    const GLint length = Integer(REAL(glGetProgramiv), GL_ACTIVE_ATTRIBUTE_MAX_LENGTH, program);
    std::string name(static_cast<size_t>(length), '\0');
    const auto count = static_cast<GLuint>(Integer(REAL(glGetProgramiv), GL_ACTIVE_ATTRIBUTES, program));
    for (GLuint i = 0; i < count; ++i) {
        GLint size = 0;
        GLenum type = 0;
        REAL(glGetActiveAttrib)(program, i, length, nullptr, &size, &type, name.data());
        const GLint location = REAL(glGetAttribLocation)(program, name.c_str());
        if (location >= 0) {  // built-in inputs have none
            REAL(glBindAttribLocation)(chromaProgram, static_cast<GLuint>(location), name.c_str());
        }
    }
}

/// 0 when the driver does not link it, which it says on stderr: the luma program did link.
GLuint LinkChromaProgram(GLuint program, const std::string& source) {
    const GLuint vertexShader = ShaderOf(program, GL_VERTEX_SHADER);
    const char* text = source.c_str();
    const GLuint shader = REAL(glCreateShader)(GL_FRAGMENT_SHADER);
    REAL(glShaderSource)(shader, 1, &text, nullptr);
    REAL(glCompileShader)(shader);

    const GLuint chromaProgram = REAL(glCreateProgram)();
    REAL(glAttachShader)(chromaProgram, vertexShader);
    REAL(glAttachShader)(chromaProgram, shader);
    BindSameAttributes(program, chromaProgram);
    REAL(glLinkProgram)(chromaProgram);
    REAL(glDetachShader)(chromaProgram, vertexShader);
    REAL(glDetachShader)(chromaProgram, shader);
    REAL(glDeleteShader)(shader);
    if (Integer(REAL(glGetProgramiv), GL_LINK_STATUS, chromaProgram) == GL_TRUE) {
        return chromaProgram;
    }
    std::array<char, 1024> log{};
    REAL(glGetProgramInfoLog)(chromaProgram, static_cast<GLsizei>(log.size()), nullptr, log.data());
    ReportRefusal("glLinkProgram", log.data());
    REAL(glDeleteProgram)(chromaProgram);
    return 0;
}

/// The chroma plane takes the highest unit, which applications leave alone, and stays there.
void PlaceSampler(PlaneProgram& program, const std::string& name) {
    const ProgramScope scope;
    program.samplesImage = true;
    program.lumaSampler = REAL(glGetUniformLocation)(program.luma, name.c_str());
    const GLint chromaUnit = Integer(REAL(glGetIntegerv), GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS) - 1;
    program.chromaPlaneUnit = static_cast<GLuint>(chromaUnit);
    for (const GLuint reader : {program.luma, program.chroma}) {
        if (reader != 0) {
            UseProgram(reader);
            REAL(glUniform1i)(REAL(glGetUniformLocation)(reader, ChromaSampler), chromaUnit);
        }
    }
    if (program.chroma != 0) {
        program.chromaSampler = REAL(glGetUniformLocation)(program.chroma, name.c_str());
    }
}

}  // namespace

GLuint PlaneProgram::Unit() const {
    GLint unit = 0;
    if (lumaSampler >= 0) {
        REAL(glGetUniformiv)(luma, lumaSampler, &unit);
    }
    return static_cast<GLuint>(unit);
}

void PlanePrograms::SetSource(GLuint shader, GLsizei count, const GLchar* const* strings,
                              const GLint* lengths) {
    std::string source;
    for (GLsizei i = 0; i < count; ++i) {
        const bool hasLength = lengths != nullptr && lengths[i] >= 0;
        source += hasLength ? std::string(strings[i], static_cast<size_t>(lengths[i])) : strings[i];
    }
    TranslatedShader& translated = shaders_[shader];
    translated = TranslateYuvShader(source);
    const char* text = translated.text.c_str();
    REAL(glShaderSource)(shader, 1, &text, nullptr);
}

void PlanePrograms::Link(GLuint program) {
    REAL(glLinkProgram)(program);
    Forget(program);
    const auto found = shaders_.find(ShaderOf(program, GL_FRAGMENT_SHADER));
    if (found == shaders_.end() || Integer(REAL(glGetProgramiv), GL_LINK_STATUS, program) != GL_TRUE) {
        return;
    }
    const TranslatedShader& shader = found->second;
    if (shader.sampler.empty() && shader.chroma.empty()) {
        return;
    }
    PlaneProgram added;
    added.luma = program;
    if (!shader.chroma.empty()) {
        added.chroma = LinkChromaProgram(program, shader.chroma);
    }
    if (!shader.sampler.empty()) {
        PlaceSampler(added, shader.sampler);
    }
    programs_[program] = added;
}

void PlanePrograms::Delete(GLuint program) {
    Forget(program);
    REAL(glDeleteProgram)(program);
}

const PlaneProgram* PlanePrograms::InUse() const {
    const auto found = programs_.find(static_cast<GLuint>(Integer(REAL(glGetIntegerv), GL_CURRENT_PROGRAM)));
    return found == programs_.end() ? nullptr : &found->second;
}

void PlanePrograms::Forget(GLuint program) {
    REAL(glDeleteProgram)(programs_[program].chroma);
    programs_.erase(program);
}

}  // namespace desk
