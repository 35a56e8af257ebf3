#include <cstdlib>

#include "node/dewarp/gpu/gpudumps.h"
#include "node/dewarp/gpu/gpuopengl.h"
#include "utils/checked.h"

namespace {

constexpr int FrameDone = 0;
constexpr int FrameFailed = 1;

}  // namespace

int GPUOpenGL::DewarpImage(unsigned long requestId, LumImageList* pOutput, LumImageList* pInput, float* pGrid,
                           int gridMode) {
    const int inWidth = static_cast<int>(pInput->width);
    const int inHeight = static_cast<int>(pInput->height);
    const int outWidth = static_cast<int>(pOutput->width);
    const int outHeight = static_cast<int>(pOutput->height);
    m_RequestId = requestId;
    if (m_inputFormat == 0 || m_outputFormat == 0) {
        m_inputFormat = ConvertLumFormat(pInput->format);
        m_outputFormat = ConvertLumFormat(pOutput->format);
        DEWARP_INFO("[DEWARP_%d] Input buffer format %d Output buffer format %d", m_stabilizationType,
                    m_inputFormat, m_outputFormat);
    }
    DEWARP_VERBOSE("[DEWARP_%d] EglDisplay %p, EglSurface %p, EglContext %p", m_stabilizationType,
                   m_eglDisplay, m_eglSurface, m_eglContext);
    m_pfneglmakecurrent(m_eglDisplay, m_eglSurface, m_eglSurface, m_eglContext);
    CheckEglError("eglMakeCurrent");
    m_pfngluseprogram(m_program);
    CheckglError("glUseProgram");
    EnableTextureUnit(m_program, "tex", GL_TEXTURE0);
    m_pfnglviewport(0, 0, outWidth, outHeight);
    if (!PrepareMesh()) {
        return FrameFailed;
    }
    DEWARP_VERBOSE("[DEWARP_%d] m_nNumVerticesX %d m_nNumVerticesY %d tex %dx%d out %dx%d",
                   m_stabilizationType, m_nNumVerticesX, m_nNumVerticesY, inWidth, inHeight, outWidth,
                   outHeight);
    UpdateVertexAndTextureCoordinates(m_pVertices, m_pTexCoordinates, pGrid, m_nNumVerticesX, m_nNumVerticesY,
                                      inWidth, inHeight, outWidth, outHeight, gridMode);
    WriteMeshDumps();
    ConfigureVertexAndTextureCoordinates(m_pVertices, m_pTexCoordinates, m_posId, m_texId);
    ConfigureIndices(&m_hIndexBuffer);

    const GLuint sourceTexture =
        GetSourceTexture(&pInput->firstImage, inWidth, inHeight, static_cast<int>(pInput->stride),
                         static_cast<int>(pInput->scanline));
    const GLuint frameBuffer =
        GetOutputFrameBuffer(&pOutput->firstImage, outWidth, outHeight, static_cast<int>(pOutput->stride),
                             static_cast<int>(pOutput->scanline));
    if (sourceTexture == 0 || frameBuffer == 0) {
        return FrameFailed;
    }
    Draw(sourceTexture, frameBuffer, outWidth, outHeight);
    m_pfneglmakecurrent(m_eglDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    CheckEglError("eglMakeCurrent");
    DEWARP_VERBOSE("[DEWARP_%d] : X ret", m_stabilizationType);
    return FrameDone;
}

bool GPUOpenGL::PrepareMesh() {
    constexpr const char* operation = "DewarpImage";
    if (m_pVertices == nullptr || m_pTexCoordinates == nullptr) {
        const size_t bytes = Orba::CheckedMul<size_t>(Orba::CheckedMul(m_nNumVertices, 2U), sizeof(float));
        for (float** ppArray : {&m_pVertices, &m_pTexCoordinates}) {
            std::free(*ppArray);
            *ppArray = static_cast<float*>(std::malloc(bytes));
        }
        if (m_pVertices == nullptr || m_pTexCoordinates == nullptr) {
            DEWARP_ERROR_IN(operation, "[DEWARP_%d] m_pVertices or m_pTexCoordinates is null!",
                            m_stabilizationType);
            return false;
        }
    }
    if (m_pIndices == nullptr) {
        const int triangles = Orba::CheckedMul(Orba::CheckedMul(m_nNumCellsX, m_nNumCellsY), 2);
        const auto indices = static_cast<size_t>(Orba::CheckedMul(triangles, 3));
        m_pIndices =
            static_cast<unsigned short*>(std::malloc(Orba::CheckedMul(indices, sizeof(unsigned short))));
        if (m_pIndices == nullptr) {
            DEWARP_ERROR_IN(operation, "[DEWARP_%d] m_pIndices is null!", m_stabilizationType);
            return false;
        }
        GenerateIndices(m_pIndices, m_nNumCellsX, m_nNumCellsY);
        DEWARP_VERBOSE_IN(operation, "[DEWARP_%d] index %d %d %d %d %d %d", m_stabilizationType,
                          m_pIndices[0], m_pIndices[1], m_pIndices[2], m_pIndices[3], m_pIndices[4],
                          m_pIndices[5]);
        AllocIndices(&m_hIndexBuffer, triangles, m_pIndices);
    }
    return true;
}

void GPUOpenGL::WriteMeshDumps() {
    const auto count = static_cast<unsigned int>(Orba::CheckedMul(m_nNumVerticesX, m_nNumVerticesY));
    if (m_pTexDumpFile != nullptr) {
        WriteVerticesAndTexCoordinatesToFile(m_pTexDumpFile, m_pTexCoordinates, count, m_RequestId);
    }
    if (m_pVertDumpFile != nullptr) {
        WriteVerticesAndTexCoordinatesToFile(m_pVertDumpFile, m_pVertices, count, m_RequestId);
    }
}

void GPUOpenGL::Draw(GLuint sourceTexture, GLuint frameBuffer, int outWidth, int outHeight) {
    constexpr const char* operation = "DewarpImage";
    DEWARP_VERBOSE_IN(operation, "[DEWARP_%d] sourceTexture %d frameBuffer %d", m_stabilizationType,
                      sourceTexture, frameBuffer);
    m_pfnglbindtexture(GL_TEXTURE_EXTERNAL_OES, sourceTexture);
    CheckglError("glBindTexture");
    m_pfnglbindframebuffer(GL_DRAW_FRAMEBUFFER, frameBuffer);
    CheckglError("glBindFramebuffer");
    // The scissor test is never enabled; the box only records the output's extent.
    m_pfnglscissor(0, 0, outWidth, outHeight);
    CheckglError("glScissor");
    const GLenum status = m_pfnglcheckframebufferstatus(GL_DRAW_FRAMEBUFFER);
    if (status == GL_FRAMEBUFFER_COMPLETE) {
        m_pfnglClearColor(0.0F, 0.0F, 0.0F, 0.0F);
        CheckglError("glClearColor");
        m_pfnglClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        CheckglError("glClear");
        const int indices =
            Orba::CheckedMul(Orba::CheckedMul(Orba::CheckedMul(m_nNumCellsX, m_nNumCellsY), 2), 3);
        m_pfngldrawelements(GL_TRIANGLES, indices, GL_UNSIGNED_SHORT, nullptr);
        CheckglError("glDrawElements");
    } else {
        // The frame still ends normally: the host is told of an incomplete target by the log alone.
        DEWARP_ERROR_IN(operation, "[DEWARP_%d] GL output FrameBuffer Error : (0x%x)", m_stabilizationType,
                        status);
    }
    if (m_pfnglflush != nullptr) {
        m_pfnglflush();
    }
    m_pfnglfinish();
    m_pfnglbindtexture(GL_TEXTURE_EXTERNAL_OES, 0);
    CheckglError("glBindTexture");
    m_pfnglbindframebuffer(GL_DRAW_FRAMEBUFFER, 0);
    CheckglError("glBindFramebuffer");
}
