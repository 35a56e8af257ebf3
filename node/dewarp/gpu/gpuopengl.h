#pragma once

#include <cstdint>
#include <cstdio>

#include "host/lumimage.h"
#include "host/lumnodeutils.h"
#include "node/dewarp/dewarplog.h"
#include "node/dewarp/dewarpstabilizationtype.h"
#include "node/dewarp/gpu/bufmapinfo.h"
#include "node/dewarp/gpu/gpuapi.h"
#include "node/dewarp/gpu/gpuentrypoints.h"

/// The wanted EGL config and the size of the pbuffer surface. Alpha and stencil of 0 accept any.
struct EGLconfigAttrib {
    int32_t width;
    int32_t height;
    int32_t redSize;
    int32_t greenSize;
    int32_t blueSize;
    int32_t alphaSize;
    int32_t bufferSize;  ///< not compared
    int32_t depthSize;
    int32_t stencilSize;
    int32_t sampleBuffers;
    int32_t samples;
};

struct BufferImport;

/// The warp engine of one node: maps EGL and OpenGL ES at run time, owns an off-screen context and a warp
/// program, imports gralloc buffers and renders one frame per call.
///
/// Order of calls: construction, Initialize once, DewarpImage for every frame, Uninitialize once. The node
/// then releases the memory without running a destructor, and does not call Uninitialize after a failed
/// Initialize. Nothing here is locked: the node renders one frame at a time. The context is current on a
/// thread only inside one call.
class GPUOpenGL {
public:
    explicit GPUOpenGL(DewarpStabilizationType stabilizationType);

    /// Brings up libraries, display, context and program. 0, 1, or 15 when the entry points are missing.
    uint32_t Initialize();

    /// Releases everything, in a fixed order. The result of the last library's unmapping.
    uint32_t Uninitialize();

    /// Renders the first image of `pInput` into that of `pOutput`.
    /// @param pGrid     35 x 27 points {x, y} in input pixels about the input's centre, read in every mode
    /// @param gridMode  1 warps by the grid; any other value draws the identity
    /// @return 0 when the frame is complete in the output buffer (or its framebuffer was incomplete), 1 on
    /// failure
    int DewarpImage(unsigned long requestId, LumImageList* pOutput, LumImageList* pInput, float* pGrid,
                    int gridMode);

private:
    GPUOpenGL(const GPUOpenGL&) = delete;
    GPUOpenGL& operator=(const GPUOpenGL&) = delete;

    // gpuloader.cpp
    uint32_t InitializeFuncPtrs();
    uint32_t LoadGLESv2Lib();
    uint32_t LoadEGLLib();
    void ResetFunctionPointer();

    // gpucontext.cpp
    uint32_t CreateContext(void* pDisplay, void* pShareContext, void** ppSurface, void** ppContext);
    void* GetEglConfig(void* pDisplay, int const* pAttributes, EGLconfigAttrib* pWanted);
    bool IsConfigWanted(void* pDisplay, void* pConfig, const EGLconfigAttrib& wanted);
    uint32_t CheckglError(char const* pLabel);
    uint32_t CheckEglError(char const* pLabel);

    // gpuprogram.cpp
    uint32_t LoadProgram(unsigned int& program);
    uint32_t CreateShader(unsigned int& shader, unsigned int shaderType, char const* pSource);
    uint32_t CreateProgram(unsigned int& program, unsigned int vertexShader, unsigned int fragmentShader);
    void EnableTextureUnit(unsigned int program, char const* pName, int textureUnit);

    // gpulifecycle.cpp
    void SetDefaults();
    uint32_t BringUp();
    void ConfigureProgram();
    void OpenMeshDumps();
    template <typename T>
    void ReleaseArrays(T release);

    // gpumeshupload.cpp
    void GenerateIndices(unsigned short* pIndices, int cellsX, int cellsY);
    void AllocIndices(unsigned int* pBufferName, int triangles, unsigned short* pIndices);
    void UpdateVertexAndTextureCoordinates(float* pVertices, float* pTexCoordinates, const float* pGrid,
                                           int numVerticesX, int numVerticesY, int inImageWidth,
                                           int inImageHeight, int outImageWidth, int outImageHeight,
                                           int gridMode);
    void ConfigureVertexAndTextureCoordinates(float* pVertices, float* pTexCoordinates, int positionLocation,
                                              int texCoordLocation);
    void ConfigureIndices(unsigned int* pBufferName);

    // gpubuffercache.cpp
    uint32_t ConvertLumFormat(LumFormat format);
    uint32_t GetSourceTexture(LumImage* pImage, int width, int height, int stride, int scanline);
    uint32_t GetOutputFrameBuffer(LumImage* pImage, int width, int height, int stride, int scanline);
    int FlushBufferMaps();
    bool FindCached(BufferMap& map, const char* operation, const LumImage* pImage, bufMapInfo* pInfo);
    uint32_t ImportBuffer(const BufferImport& import, LumImage* pImage, int width, int height, int stride,
                          int scanline, uint32_t format, bufMapInfo* pInfo);
    uint32_t WriteGrallocMetadata(const char* operation, native_handle* pHandle, int stride, int scanline);
    uint32_t BindSourceTexture(bufMapInfo* pInfo);
    uint32_t BindOutputFrameBuffer(bufMapInfo* pInfo);
    void ReleaseBuffer(const char* operation, const bufMapInfo& info);
    bool StoreImported(BufferMap& map, const char* operation, LumImage* pImage, bufMapInfo* pInfo);

    // gpuframe.cpp
    bool PrepareMesh();
    void Draw(GLuint sourceTexture, GLuint frameBuffer, int outWidth, int outHeight);
    void WriteMeshDumps();

    // The entry points come first, OpenGL ES before EGL.
#define DEWARP_MEMBER(member, symbol, ...) decltype(&::symbol) member = nullptr;
    DEWARP_GLES_ENTRIES(DEWARP_MEMBER)
    DEWARP_EGL_ENTRIES(DEWARP_MEMBER)
#undef DEWARP_MEMBER

    EGLContext m_eglContext = nullptr;
    EGLDisplay m_eglDisplay = nullptr;
    EGLSurface m_eglSurface = nullptr;
    int32_t m_eglMajorVersion = 0;
    int32_t m_eglMinorVersion = 0;
    EGLConfig m_eglConfig = nullptr;
    uint32_t m_program = 0;
    int32_t m_posId = 0;
    int32_t m_texId = 0;
    uint32_t m_hVertexBuffer = 0;  ///< a slot that no operation creates or reads
    uint32_t m_hIndexBuffer = 0;
    EGLconfigAttrib m_eglConfigAttrib = {};
    float* m_pVertices = nullptr;
    float* m_pTexCoordinates = nullptr;
    unsigned short* m_pIndices = nullptr;
    uint32_t m_reservedFlags = 0;  ///< set and never read
    uint32_t m_bufferUsage = 0;    ///< gralloc usage of every imported buffer
    uint32_t m_inputFormat;        ///< GL-side format codes, fixed by the first frame; 0 before it
    uint32_t m_outputFormat;
    int32_t m_nNumCellsX = 0;
    int32_t m_nNumCellsY = 0;
    int32_t m_nNumVerticesX = 0;
    int32_t m_nNumVerticesY = 0;
    uint32_t m_nNumVertices = 0;
    BufferMap m_inputBufferMap;
    BufferMap m_outputBufferMap;
    void* m_hGLESv2Lib = nullptr;
    void* m_hEGLLib = nullptr;
    DewarpStabilizationType m_stabilizationType;
    uint64_t m_RequestId;
    FILE* m_pTexDumpFile;
    FILE* m_pVertDumpFile;
    char const* m_pVertexShaderSource;
    char const* m_pFragmentShaderSource;
};
