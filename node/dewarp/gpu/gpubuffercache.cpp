#include "host/grallocmetadata.h"
#include "host/lumresult.h"
#include "node/dewarp/gpu/gpuopengl.h"
#include "node/dewarp/gpu/nativebuffer.h"

/// In what the import of an input and of an output buffer differ by name and by text.
struct BufferImport {
    const char* operation;
    DewarpLogText bufferFailed;
    DewarpLogText imageFailed;
};

namespace {

constexpr BufferImport g_inputImport = {
    "GetSourceTexture",
    DEWARP_ERROR_TEXT(
        "[DEWARP_%d] GraphicBuffer Creation Failed, pNativeHandle %p (Check if buf is EGL or not)"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Invalid Gralloc Handle %p is used (Check if buf is EGL or not)"),
};

constexpr BufferImport g_outputImport = {
    "GetOutputFrameBuffer",
    DEWARP_ERROR_TEXT("[DEWARP_%d] GraphicBuffer Creation Failed handle %p (Check if buf is EGL or not)"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Invalid Gralloc Buffer handle %p is used (Check if buf is EGL or not)"),
};

}  // namespace

uint32_t GPUOpenGL::ConvertLumFormat(LumFormat format) {
    constexpr uint32_t nv12 = 265;
    uint32_t converted = nv12;
    switch (static_cast<uint32_t>(format)) {
        case 3:
            converted = nv12;
            break;
        case 4:
            converted = 275;
            break;
        case 13:
            converted = 2141391878;
            break;
        default:
            DEWARP_ERROR("[DEWARP_%d] Unsupported Lum Format for OpenGL: %d, falling back to NV12",
                         m_stabilizationType, format);
            break;
    }
    DEWARP_INFO("[DEWARP_%d] Convert Lum format: %d -> %d", m_stabilizationType, format, converted);
    return converted;
}

uint32_t GPUOpenGL::GetSourceTexture(LumImage* pImage, int width, int height, int stride, int scanline) {
    bufMapInfo info;
    if (FindCached(m_inputBufferMap, __func__, pImage, &info)) {
        DEWARP_VERBOSE("[DEWARP_%d] m_RequestId %ld Inserted fd %d hColorTexture %d", m_stabilizationType,
                       m_RequestId, pImage->fd, info.hColorTexture);
        return info.hColorTexture;
    }
    info.isInput = 1;
    uint32_t status =
        ImportBuffer(g_inputImport, pImage, width, height, stride, scanline, m_inputFormat, &info);
    if (status == LumResultSuccess) {
        status = BindSourceTexture(&info);
    }
    if (status == LumResultSuccess && StoreImported(m_inputBufferMap, __func__, pImage, &info)) {
        DEWARP_INFO(
            "[DEWARP_%d] Req %ld width[%d] height[%d] stride[%d] scanline[%d] fd(%d) pAddr(%p) native "
            "handle(%p) "
            "tex(%d)",
            m_stabilizationType, m_RequestId, width, height, stride, scanline, pImage->fd, pImage->pAddr,
            static_cast<void*>(pImage->pNativeHandle), info.hColorTexture);
    }
    return info.hColorTexture;
}

uint32_t GPUOpenGL::GetOutputFrameBuffer(LumImage* pImage, int width, int height, int stride, int scanline) {
    bufMapInfo info;
    if (FindCached(m_outputBufferMap, __func__, pImage, &info)) {
        DEWARP_VERBOSE("[DEWARP_%d] RequestId %ld Inserted fd %d fbo %d mapInfo.hEGLImage %p",
                       m_stabilizationType, m_RequestId, pImage->fd, info.fbo, info.hEGLImage);
        return info.fbo;
    }
    uint32_t status =
        ImportBuffer(g_outputImport, pImage, width, height, stride, scanline, m_outputFormat, &info);
    if (status == LumResultSuccess) {
        status = BindOutputFrameBuffer(&info);
    }
    info.fd = pImage->fd;
    if (status == LumResultSuccess && StoreImported(m_outputBufferMap, __func__, pImage, &info)) {
        DEWARP_INFO(
            "[DEWARP_%d] Req %ld width[%d] height[%d] stride[%d] scanline[%d] fd(%d) pAddr(%p) native(%p) "
            "fbo(%d) "
            "hEGLImage(%p)",
            m_stabilizationType, m_RequestId, width, height, stride, scanline, pImage->fd, pImage->pAddr,
            static_cast<void*>(pImage->pNativeHandle), info.fbo, info.hEGLImage);
    }
    return info.fbo;
}

bool GPUOpenGL::FindCached(BufferMap& map, const char* operation, const LumImage* pImage, bufMapInfo* pInfo) {
    const BufferMap::iterator entry = map.find(pImage->fd);
    if (entry == map.end()) {
        return false;
    }
    if (entry->second.pAddr == pImage->pAddr) {
        *pInfo = entry->second;
        return true;
    }
    ReleaseBuffer(operation, entry->second);
    map.erase(entry);
    return false;
}

uint32_t GPUOpenGL::ImportBuffer(const BufferImport& import, LumImage* pImage, int width, int height,
                                 int stride, int scanline, uint32_t format, bufMapInfo* pInfo) {
    native_handle* pHandle = pImage->pNativeHandle;
    uint32_t status = WriteGrallocMetadata(import.operation, pHandle, stride, scanline);
    // Made whatever the metadata's result; after a failure EGL never sees it, and it stays unreleased.
    pInfo->pNativeBuffer = new (0, 0, nullptr, 0) NativeBuffer(
        width, height, stride, static_cast<int>(format), static_cast<int>(m_bufferUsage), pHandle);
    if (pInfo->pNativeBuffer == nullptr) {
        DEWARP_ERROR_CHOSEN(import.operation, import.bufferFailed, m_stabilizationType,
                            static_cast<void*>(pHandle));
        status = LumResultNoMemory;
    }
    if (status != LumResultSuccess) {
        return status;
    }
    const EGLint attributes[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
    pInfo->hEGLImage =
        m_pfneglcreateimagekhr(m_pfneglgetcurrentdisplay(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                               static_cast<ANativeWindowBuffer*>(pInfo->pNativeBuffer), attributes);
    if (pInfo->hEGLImage == nullptr) {
        CheckEglError("EGLImage creation");
        DEWARP_ERROR_CHOSEN(import.operation, import.imageFailed, m_stabilizationType,
                            static_cast<void*>(pHandle));
        return LumResultFailure;
    }
    return LumResultSuccess;
}

uint32_t GPUOpenGL::WriteGrallocMetadata(const char* operation, native_handle* pHandle, int stride,
                                         int scanline) {
    const Orba::Gralloc::BufferGeometry geometry = {stride, scanline};
    int32_t result = Orba::Gralloc::SetGrallocMetaData(pHandle, Orba::Gralloc::MetadataBufferGeometry,
                                                       sizeof(geometry), &geometry);
    if (result != 0) {
        DEWARP_ERROR_IN(operation, "[DEWARP_%d] SetGrallocMetaData(UPDATE_BUFFER_GEOMETRY) failed %d",
                        m_stabilizationType, result);
    }
    Orba::Gralloc::ColorMetadata color = {};
    color.primaries = 6;
    color.range = 1;
    result = Orba::Gralloc::SetGrallocMetaData(pHandle, Orba::Gralloc::MetadataColor, sizeof(color), &color);
    if (result != 0) {
        DEWARP_ERROR_IN(operation,
                        "[DEWARP_%d] SetGrallocMetaData(COLOR_METADATA) failed %d, handle %p (Check if buf "
                        "is EGL or not)",
                        m_stabilizationType, result, static_cast<void*>(pHandle));
    }
    return static_cast<uint32_t>(result);
}

uint32_t GPUOpenGL::BindSourceTexture(bufMapInfo* pInfo) {
    m_pfnglgentextures(1, &pInfo->hColorTexture);
    if (CheckglError("glGenTextures") != LumResultSuccess) {
        return LumResultFailure;
    }
    m_pfnglbindtexture(GL_TEXTURE_EXTERNAL_OES, pInfo->hColorTexture);
    CheckglError("glBindTexture");
    m_pfngleglImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, pInfo->hEGLImage);
    CheckEglError("glEGLImageTargetTexture2DOES");
    CheckglError("glEGLImageTargetTexture2DOES");
    m_pfngltexparameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    m_pfngltexparameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    CheckglError("glTexParameteri");
    return LumResultSuccess;
}

uint32_t GPUOpenGL::BindOutputFrameBuffer(bufMapInfo* pInfo) {
    m_pfnglgenframebuffers(1, &pInfo->fbo);
    if (CheckglError("glGenFramebuffers") != LumResultSuccess) {
        DEWARP_ERROR_IN(g_outputImport.operation, "[DEWARP_%d] m_pfnglgenframebuffers failed",
                        m_stabilizationType);
        return LumResultFailure;
    }
    m_pfnglbindframebuffer(GL_FRAMEBUFFER, pInfo->fbo);
    CheckglError("glBindFramebuffer");
    m_pfnglgenrenderbuffers(1, &pInfo->hRenderBuffer);
    CheckglError("glGenRenderbuffers");
    m_pfnglbindrenderbuffer(GL_RENDERBUFFER, pInfo->hRenderBuffer);
    CheckglError("glBindRenderbuffer");
    if (m_pfngleglImageTargetRenderbufferStorageOES != nullptr) {
        // Optional when the library was loaded; without it the framebuffer stays incomplete and says so.
        m_pfngleglImageTargetRenderbufferStorageOES(GL_RENDERBUFFER, pInfo->hEGLImage);
    }
    CheckglError("glEGLImageTargetRenderbufferStorageOES");
    CheckEglError("glEGLImageTargetRenderbufferStorageOES");
    m_pfnglframebufferrenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER,
                                   pInfo->hRenderBuffer);
    CheckglError("glFramebufferRenderbuffer");
    m_pfnglbindframebuffer(GL_FRAMEBUFFER, 0);
    CheckglError("glBindFramebuffer");
    m_pfnglbindrenderbuffer(GL_RENDERBUFFER, 0);
    CheckglError("glBindRenderbuffer");
    return LumResultSuccess;
}

bool GPUOpenGL::StoreImported(BufferMap& map, const char* operation, LumImage* pImage, bufMapInfo* pInfo) {
    pInfo->pAddr = pImage->pAddr;
    if (map.Store(pImage->fd, *pInfo)) {
        return true;
    }
    // Without a record nobody could release the import later: the frame fails, and nothing is lost.
    ReleaseBuffer(operation, *pInfo);
    *pInfo = {};
    return false;
}

void GPUOpenGL::ReleaseBuffer(const char* operation, const bufMapInfo& info) {
    DEWARP_VERBOSE_IN(operation, "[DEWARP_%d] Flushing element for idx %d ", m_stabilizationType, info.fd);
    if (info.isInput != 0) {
        m_pfngldeletetextures(1, &info.hColorTexture);
    } else {
        m_pfngldeleteframebuffers(1, &info.fbo);
        m_pfngldeleterenderbuffers(1, &info.hRenderBuffer);
    }
    if (info.hEGLImage != nullptr) {
        m_pfneglDestroyImageKHR(m_pfneglgetcurrentdisplay(), info.hEGLImage);
        CheckEglError("Destroy image");
    }
}

int GPUOpenGL::FlushBufferMaps() {
    for (BufferMap* pMap : {&m_inputBufferMap, &m_outputBufferMap}) {
        for (BufferMap::iterator entry = pMap->begin(); entry != pMap->end(); entry = pMap->erase(entry)) {
            ReleaseBuffer(__func__, entry->second);
        }
    }
    DEWARP_VERBOSE("[DEWARP_%d] Flushing of BufferMap Done", m_stabilizationType);
    return 0;
}
