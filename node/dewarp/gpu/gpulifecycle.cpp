#include <cstdlib>
#include <cstring>

#include "host/lumresult.h"
#include "node/dewarp/dewarpdump.h"
#include "node/dewarp/gpu/gpuopengl.h"
#include "node/dewarp/gpu/gpushaders.h"
#include "utils/checked.h"
#include "utils/orbamemory.h"

GPUOpenGL::GPUOpenGL(DewarpStabilizationType stabilizationType)
    : m_inputFormat(0),
      m_outputFormat(0),
      m_stabilizationType(stabilizationType),
      m_RequestId(0),
      m_pTexDumpFile(nullptr),
      m_pVertDumpFile(nullptr),
      m_pVertexShaderSource(DewarpVertexShader),
      m_pFragmentShaderSource(DewarpFragmentShader) {
    ResetFunctionPointer();
}

uint32_t GPUOpenGL::Initialize() {
    SetDefaults();
    const uint32_t status = BringUp();
    const bool isDumpEnabled = IsDewarpDumpEnabled();
    if (status == LumResultSuccess && isDumpEnabled) {
        OpenMeshDumps();
    }
    return status;
}

void GPUOpenGL::SetDefaults() {
    constexpr uint32_t usageTexture = 0x100;  // GRALLOC_USAGE_HW_TEXTURE
    constexpr uint32_t usageRender = 0x200;   // GRALLOC_USAGE_HW_RENDER
    m_reservedFlags = 0x400008;
    m_bufferUsage = usageTexture | usageRender;
    m_program = 0;
    m_posId = 0;
    m_texId = 0;
    m_hVertexBuffer = 0;
    m_pVertices = nullptr;
    m_pTexCoordinates = nullptr;
    m_pIndices = nullptr;
    m_hIndexBuffer = 0;
    m_eglConfigAttrib = {1920, 1080, 8, 8, 8, 8, 32, 24, 8, 0, 0};
    m_nNumCellsX = 32;
    m_nNumCellsY = 24;
    m_nNumVerticesX = Orba::CheckedAdd(m_nNumCellsX, 1);
    m_nNumVerticesY = Orba::CheckedAdd(m_nNumCellsY, 1);
    m_nNumVertices = static_cast<uint32_t>(Orba::CheckedMul(m_nNumVerticesX, m_nNumVerticesY));
}

uint32_t GPUOpenGL::BringUp() {
    constexpr const char* operation = "Initialize";
    uint32_t status = InitializeFuncPtrs();
    if (status != LumResultSuccess) {
        return status;
    }
    m_eglDisplay = m_pfneglgetdisplay(EGL_DEFAULT_DISPLAY);
    m_pfneglinitialize(m_eglDisplay, &m_eglMajorVersion, &m_eglMinorVersion);
    status = CreateContext(m_eglDisplay, EGL_NO_CONTEXT, &m_eglSurface, &m_eglContext);
    if (status != LumResultSuccess) {
        return status;
    }
    if (m_pfneglmakecurrent(m_eglDisplay, m_eglSurface, m_eglSurface, m_eglContext) == EGL_FALSE) {
        // The code is fetched per sink: with both on, the second sink reads what the first read left.
        DEWARP_ERROR_IN(operation, "[DEWARP_%d] eglMakeCurrent failed with error code: %x",
                        m_stabilizationType, static_cast<uint32_t>(m_pfneglgeterror()));
        return LumResultFailure;
    }
    status = LoadProgram(m_program);
    if (status != LumResultSuccess) {
        return status;
    }
    ConfigureProgram();
    m_pfneglmakecurrent(m_eglDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    // This probe alone decides a successful bring-up; those of ConfigureProgram only log.
    return CheckEglError("eglMakeCurrent");
}

void GPUOpenGL::ConfigureProgram() {
    m_pfngluseprogram(m_program);
    m_posId = m_pfnglgetattriblocation(m_program, "inPosition");
    m_texId = m_pfnglgetattriblocation(m_program, "inTexCoord");
    DEWARP_INFO_IN("Initialize", "[DEWARP_%d] posId %d texId %d", m_stabilizationType, m_posId, m_texId);
    // The program is not linked again, so this binds the locations in force; drivers are used to it.
    m_pfnglbindattriblocation(m_program, static_cast<GLuint>(m_posId), "inPosition");
    CheckglError("glBindAttribLocation");
    m_pfnglbindattriblocation(m_program, static_cast<GLuint>(m_texId), "inTexCoord");
    CheckglError("glBindAttribLocation");
    EnableTextureUnit(m_program, "tex", GL_TEXTURE0);
}

void GPUOpenGL::OpenMeshDumps() {
    constexpr const char* operation = "Initialize";
    LUMDateTime now = {};
    LumNodeUtils::GetDateTime(&now);
    char path[DewarpPathSize];
    m_pTexDumpFile =
        OpenDewarpDump("%s%sWarp%d_Tex_%04d%02d%02d_%02d%02d%02d.txt", m_stabilizationType, now, path);
    if (m_pTexDumpFile == nullptr) {
        DEWARP_ERROR_IN(operation, "[DEWARP_%d] Can't open %s for Tex output dump !", m_stabilizationType,
                        path);
    }
    m_pVertDumpFile =
        OpenDewarpDump("%s%sWarp%d_Vert_%04d%02d%02d_%02d%02d%02d.txt", m_stabilizationType, now, path);
    if (m_pVertDumpFile == nullptr) {
        DEWARP_ERROR_IN(operation, "[DEWARP_%d] Can't open %s for Vertices output dump !",
                        m_stabilizationType, path);
    }
}

template <typename T>
void GPUOpenGL::ReleaseArrays(T release) {
    if (m_pVertices != nullptr) {
        release(m_pVertices);
        m_pVertices = nullptr;
    }
    if (m_pTexCoordinates != nullptr) {
        release(m_pTexCoordinates);
        m_pTexCoordinates = nullptr;
    }
    if (m_pIndices != nullptr) {
        release(m_pIndices);
        m_pIndices = nullptr;
    }
}

uint32_t GPUOpenGL::Uninitialize() {
    uint32_t result = LumResultSuccess;
    ReleaseArrays([](void* p) { std::free(p); });
    m_pfneglmakecurrent(m_eglDisplay, m_eglSurface, m_eglSurface, m_eglContext);
    m_pfngldisablevertexattribarray(static_cast<GLuint>(m_posId));
    m_pfngldisablevertexattribarray(static_cast<GLuint>(m_texId));
    CheckglError("glDisableVertexAttribArray");
    m_pfngluseprogram(0);
    m_pfngldeleteprogram(m_program);
    CheckglError("m_pfngldeleteprogram");
    FlushBufferMaps();
    m_posId = 0;
    m_texId = 0;
    m_hVertexBuffer = 0;
    m_pfngldeletebuffers(1, &m_hIndexBuffer);
    m_hIndexBuffer = 0;
    // Nothing is left to release the second time; arrays of the library's own allocator would be.
    ReleaseArrays([](void* p) { OrbaFree(p, 0, nullptr, 0); });
    if (m_eglContext != nullptr) {
        // Still current here: EGL puts its end off until the context is released below.
        m_pfnegldestroycontext(m_eglDisplay, m_eglContext);
        m_eglContext = nullptr;
    }
    if (m_eglSurface != nullptr) {
        m_pfnegldestroysurface(m_eglDisplay, m_eglSurface);
        m_eglSurface = nullptr;
    }
    if (m_eglDisplay != nullptr) {
        m_pfneglmakecurrent(m_eglDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        m_pfneglterminate(m_eglDisplay);
        m_eglDisplay = nullptr;
    }
    for (void** phLibrary : {&m_hGLESv2Lib, &m_hEGLLib}) {
        if (*phLibrary != nullptr) {
            result = LumNodeUtils::LibUnmap(*phLibrary);
            *phLibrary = nullptr;
        }
    }
    for (FILE** ppFile : {&m_pTexDumpFile, &m_pVertDumpFile}) {
        if (!CloseDewarpDump(*ppFile)) {
            DEWARP_ERROR("[DEWARP_%d] Warp dump file close failed", m_stabilizationType);
        }
    }
    ResetFunctionPointer();
    return result;
}
