#include <cstdlib>

#include "host/lumresult.h"
#include "node/dewarp/gpu/gpuopengl.h"
#include "utils/checked.h"

namespace {

/// Fetches the driver's log of a shader or a program and hands it to `report`; an empty log is not reported.
template <typename GetParameter, typename GetLog, typename Report>
void ReportInfoLog(GLuint name, GetParameter getParameter, GetLog getLog, Report report) {
    GLint length = 0;
    getParameter(name, GL_INFO_LOG_LENGTH, &length);
    if (length <= 0) {
        return;
    }
    auto* pLog = static_cast<char*>(std::malloc(static_cast<size_t>(length)));
    if (pLog != nullptr) {
        pLog[0] = '\0';
        getLog(name, length, nullptr, pLog);
        report(pLog);
        std::free(pLog);
    }
}

}  // namespace

uint32_t GPUOpenGL::CreateShader(unsigned int& shader, unsigned int shaderType, char const* pSource) {
    constexpr const char* operation = "CreateShader";
    shader = m_pfnglcreateshader(shaderType);
    m_pfnglshadersource(shader, 1, &pSource, nullptr);
    m_pfnglcompileshader(shader);
    GLint status = 0;
    m_pfnglgetshaderiv(shader, GL_COMPILE_STATUS, &status);
    if (status == 1) {
        return LumResultSuccess;
    }
    DEWARP_ERROR("[DEWARP_%d] Shader compilation status: %d", m_stabilizationType, status);
    ReportInfoLog(shader, m_pfnglgetshaderiv, m_pfnglgetshaderinfolog, [this](const char* pLog) {
        DEWARP_ERROR_IN(operation, "[DEWARP_%d] Shader compilation failure [%s]", m_stabilizationType, pLog);
    });
    m_pfngldeleteshader(shader);
    return LumResultFailure;
}

uint32_t GPUOpenGL::CreateProgram(unsigned int& program, unsigned int vertexShader,
                                  unsigned int fragmentShader) {
    constexpr const char* operation = "CreateProgram";
    program = m_pfnglcreateprogram();
    m_pfnglattachshader(program, vertexShader);
    m_pfnglattachshader(program, fragmentShader);
    CheckglError("Attach shaders");
    m_pfngllinkprogram(program);
    GLint status = 0;
    m_pfnglgetprogramiv(program, GL_LINK_STATUS, &status);
    CheckglError("Link program");
    if (status == 1) {
        m_pfngldetachshader(program, vertexShader);
        m_pfngldetachshader(program, fragmentShader);
        return LumResultSuccess;
    }
    DEWARP_ERROR("[DEWARP_%d] Shader link status %d", m_stabilizationType, status);
    ReportInfoLog(program, m_pfnglgetprogramiv, m_pfnglgetprograminfolog, [this](const char* pLog) {
        DEWARP_ERROR_IN(operation, "[DEWARP_%d] Shader link status error [%s]", m_stabilizationType, pLog);
    });
    m_pfngldeleteprogram(program);
    return LumResultFailure;
}

uint32_t GPUOpenGL::LoadProgram(unsigned int& program) {
    GLuint vertexShader = 0;
    GLuint fragmentShader = 0;
    uint32_t result = CreateShader(vertexShader, GL_VERTEX_SHADER, m_pVertexShaderSource);
    if (result != LumResultSuccess) {
        DEWARP_ERROR("[DEWARP_%d] CreateShader vertexShader failed", m_stabilizationType);
        return result;
    }
    result = CreateShader(fragmentShader, GL_FRAGMENT_SHADER, m_pFragmentShaderSource);
    if (result != LumResultSuccess) {
        DEWARP_ERROR("[DEWARP_%d] CreateShader fragmentShader failed", m_stabilizationType);
        return result;
    }
    result = CreateProgram(program, vertexShader, fragmentShader);
    if (result != LumResultSuccess) {
        DEWARP_ERROR("[DEWARP_%d] CreateProgram program failed", m_stabilizationType);
        return result;
    }
    m_pfngldeleteshader(vertexShader);
    m_pfngldeleteshader(fragmentShader);
    m_pfnglfinish();
    return LumResultSuccess;
}

void GPUOpenGL::EnableTextureUnit(unsigned int program, char const* pName, int textureUnit) {
    const GLint location = m_pfnglgetuniformlocation(program, pName);
    m_pfnglactivetexture(static_cast<GLenum>(textureUnit));
    m_pfngluniform1i(location, Orba::CheckedSub(textureUnit, GL_TEXTURE0));
}
