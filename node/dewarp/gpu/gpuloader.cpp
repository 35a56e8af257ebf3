#include <cstring>

#include "host/lumresult.h"
#include "node/dewarp/gpu/gpuopengl.h"

namespace {

const char* const g_pGLESv2LibName = "libGLESv2";
const char* const g_pEGLLibName = "libEGL";
constexpr const char* LibraryExtension = "so";
constexpr size_t LibraryPathSize = 4096;

/// Formats the library's full path into `path` and maps it; null when that fails.
void* MapLibrary(const char* operation, const char* libraryName, const DewarpLogText& failure,
                 DewarpStabilizationType type, char (&path)[LibraryPathSize]) {
    std::memset(path, 0, sizeof(path));
    LumNodeUtils::SNPrintF(path, sizeof(path), "%s%s%s.%s", "/system/lib64", "/", libraryName,
                           LibraryExtension);
    void* hLibrary = LumNodeUtils::LibMapFullName(path);
    if (hLibrary == nullptr) {
        DEWARP_ERROR_CHOSEN(operation, failure, type, path);
    }
    return hLibrary;
}

template <typename T>
void Lookup(void* hLibrary, const char* symbol, T& member) {
    member = reinterpret_cast<T>(LumNodeUtils::LibGetAddr(hLibrary, symbol));
}

}  // namespace

// The rows of a failure message: the names in its format, the pointers in its arguments.
#define DEWARP_BLANK_NAME(member) " " #member "[%p]"
#define DEWARP_COMMA_NAME(member) ", " #member "[%p]"
#define DEWARP_POINTER(member) , reinterpret_cast<void*>(member)

uint32_t GPUOpenGL::InitializeFuncPtrs() {
    if (LoadGLESv2Lib() != LumResultSuccess || LoadEGLLib() != LumResultSuccess) {
        return LumResultEntryPointFailure;
    }
    return LumResultSuccess;
}

uint32_t GPUOpenGL::LoadGLESv2Lib() {
    char path[LibraryPathSize];
    m_hGLESv2Lib = MapLibrary(__func__, g_pGLESv2LibName,
                              DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to load OpenGL library Path[%s]"),
                              m_stabilizationType, path);
    bool isComplete = m_hGLESv2Lib != nullptr;
    if (isComplete) {
#define DEWARP_LOOKUP(member, symbol, isRequired, isReset) \
    Lookup(m_hGLESv2Lib, #symbol, member);                 \
    isComplete = isComplete && (!(isRequired) || member != nullptr);
        DEWARP_GLES_ENTRIES(DEWARP_LOOKUP)
#undef DEWARP_LOOKUP
    }
    if (isComplete) {
        return LumResultSuccess;
    }
    // The path is followed by name and extension once more: log readers know the line by that.
    DEWARP_ERROR(
        "[DEWARP_%d] Error Initializing one or more function pointers in Library: "
        "%s%s.%s" DEWARP_GLES_PRINTED(DEWARP_BLANK_NAME),
        m_stabilizationType, path, g_pGLESv2LibName, LibraryExtension DEWARP_GLES_PRINTED(DEWARP_POINTER));
    return LumResultLibraryFailure;
}

uint32_t GPUOpenGL::LoadEGLLib() {
    char path[LibraryPathSize];
    m_hEGLLib = MapLibrary(__func__, g_pEGLLibName,
                           DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to load EGL library Path[%s]"),
                           m_stabilizationType, path);
    bool isComplete = m_hEGLLib != nullptr;
    if (isComplete) {
#define DEWARP_LOOKUP(member, symbol)   \
    Lookup(m_hEGLLib, #symbol, member); \
    isComplete = isComplete && member != nullptr;
        DEWARP_EGL_ENTRIES(DEWARP_LOOKUP)
#undef DEWARP_LOOKUP
    }
    if (isComplete) {
        return LumResultSuccess;
    }
    DEWARP_ERROR(
        "[DEWARP_%d] Error Initializing one or more function pointers in Library: %s%s.%s" DEWARP_EGL_PRINTED(
            DEWARP_BLANK_NAME, DEWARP_COMMA_NAME),
        m_stabilizationType, path, g_pEGLLibName,
        LibraryExtension DEWARP_EGL_PRINTED(DEWARP_POINTER, DEWARP_POINTER));
    return LumResultLibraryFailure;
}

#undef DEWARP_BLANK_NAME
#undef DEWARP_COMMA_NAME
#undef DEWARP_POINTER

void GPUOpenGL::ResetFunctionPointer() {
#define DEWARP_RESET(member, symbol) member = nullptr;
    DEWARP_EGL_ENTRIES(DEWARP_RESET)
#undef DEWARP_RESET
#define DEWARP_RESET(member, symbol, isRequired, isReset) \
    if (isReset) {                                        \
        member = nullptr;                                 \
    }
    DEWARP_GLES_ENTRIES(DEWARP_RESET)
#undef DEWARP_RESET
}
