#include <cstdlib>

#include "host/lumresult.h"
#include "node/dewarp/gpu/gpuopengl.h"
#include "utils/checked.h"

namespace {

constexpr EGLint g_eglConfigAttribs[] = {EGL_RED_SIZE,
                                         8,
                                         EGL_GREEN_SIZE,
                                         8,
                                         EGL_BLUE_SIZE,
                                         8,
                                         EGL_ALPHA_SIZE,
                                         8,
                                         EGL_DEPTH_SIZE,
                                         24,
                                         EGL_STENCIL_SIZE,
                                         8,
                                         EGL_SURFACE_TYPE,
                                         EGL_PBUFFER_BIT,
                                         EGL_SAMPLE_BUFFERS,
                                         0,
                                         EGL_SAMPLES,
                                         0,
                                         EGL_NONE};

// The shaders are written for version 3; the platform's EGL gives its newest context for this request.
constexpr EGLint g_eglContextAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};

// Shared by all engines, which all write the same size into it. Atomic stores keep engines that come up
// on several threads at once from racing; EGL reads the plain values.
EGLint g_eglPbufferAttribs[] = {EGL_WIDTH, 0, EGL_HEIGHT, 0, EGL_NONE};

void StorePbufferAttrib(size_t position, EGLint value) {
    __atomic_store_n(&g_eglPbufferAttribs[position], value, __ATOMIC_RELAXED);
}

}  // namespace

uint32_t GPUOpenGL::CreateContext(void* pDisplay, void* pShareContext, void** ppSurface, void** ppContext) {
    StorePbufferAttrib(1, m_eglConfigAttrib.width);
    StorePbufferAttrib(3, m_eglConfigAttrib.height);
    m_pfneglbindapi(EGL_OPENGL_ES_API);
    const char* pVendor = m_pfneglquerystring(pDisplay, EGL_VENDOR);
    DEWARP_INFO("[DEWARP_%d] EGL Vendor: %s EGL Version:%d.%d", m_stabilizationType, pVendor,
                m_eglMajorVersion, m_eglMinorVersion);
    m_eglConfig = GetEglConfig(pDisplay, g_eglConfigAttribs, &m_eglConfigAttrib);
    *ppContext = m_pfneglcreatecontext(pDisplay, m_eglConfig, pShareContext, g_eglContextAttribs);
    if (*ppContext == nullptr) {
        DEWARP_ERROR("[DEWARP_%d] Unable to create EGL pContext", m_stabilizationType);
        return LumResultFailure;
    }
    *ppSurface = m_pfneglcreatepbuffersurface(pDisplay, m_eglConfig, g_eglPbufferAttribs);
    if (*ppSurface == nullptr) {
        DEWARP_ERROR("[DEWARP_%d] Unable to create EGL pSurface", m_stabilizationType);
        return LumResultFailure;
    }
    DEWARP_INFO("[DEWARP_%d] EglDisplay %p, EglSurface %p, EglContext %p", m_stabilizationType, pDisplay,
                *ppSurface, *ppContext);
    return LumResultSuccess;
}

void* GPUOpenGL::GetEglConfig(void* pDisplay, int const* pAttributes, EGLconfigAttrib* pWanted) {
    EGLint available = 0;
    m_pfneglchooseconfig(pDisplay, pAttributes, nullptr, 0, &available);
    const size_t capacity = (available > 0) ? static_cast<size_t>(available) : 0;
    auto* pConfigs = static_cast<EGLConfig*>(std::malloc(Orba::CheckedMul(capacity, sizeof(EGLConfig))));
    if (pConfigs == nullptr) {
        return nullptr;
    }
    EGLint count = 0;
    m_pfneglchooseconfig(pDisplay, pAttributes, pConfigs, available, &count);
    EGLConfig chosen = nullptr;
    // A driver may report more the second time than there is room for.
    for (EGLint i = 0; i < count && i < available && chosen == nullptr; ++i) {
        if (IsConfigWanted(pDisplay, pConfigs[i], *pWanted)) {
            chosen = pConfigs[i];
        }
    }
    std::free(pConfigs);
    return chosen;
}

bool GPUOpenGL::IsConfigWanted(void* pDisplay, void* pConfig, const EGLconfigAttrib& wanted) {
    const struct {
        EGLint attribute;
        EGLint wanted;
        bool isAnyWhenZero;
    } rows[] = {
        {EGL_RED_SIZE, wanted.redSize, false},
        {EGL_GREEN_SIZE, wanted.greenSize, false},
        {EGL_BLUE_SIZE, wanted.blueSize, false},
        {EGL_ALPHA_SIZE, wanted.alphaSize, true},
        {EGL_DEPTH_SIZE, wanted.depthSize, false},
        {EGL_STENCIL_SIZE, wanted.stencilSize, true},
        {EGL_SAMPLE_BUFFERS, wanted.sampleBuffers, false},
        {EGL_SAMPLES, wanted.samples, false},
    };
    bool isWanted = true;
    for (const auto& row : rows) {
        EGLint value = 0;
        m_pfneglgetconfigattrib(pDisplay, pConfig, row.attribute, &value);
        isWanted = isWanted && (value == row.wanted || (row.isAnyWhenZero && row.wanted == 0));
    }
    return isWanted;
}

uint32_t GPUOpenGL::CheckglError(char const* pLabel) {
    const GLenum error = m_pfnglgeterror();
    if (error == GL_NO_ERROR) {
        return LumResultSuccess;
    }
    DEWARP_ERROR("[DEWARP_%d] after %s() glError (0x%x)", m_stabilizationType, pLabel, error);
    return LumResultFailure;
}

uint32_t GPUOpenGL::CheckEglError(char const* pLabel) {
    const EGLint error = m_pfneglgeterror();
    if (error == EGL_SUCCESS) {
        return LumResultSuccess;
    }
    DEWARP_ERROR("[DEWARP_%d] after %s() eglError (0x%x)", m_stabilizationType, pLabel,
                 static_cast<uint32_t>(error));
    return LumResultFailure;
}
