#include <cstring>

#include "host/lumresult.h"
#include "node/dewarp/gpu/gpuopengl.h"

namespace {

const char* const g_pGLESv2LibName = "libGLESv2";
const char* const g_pEGLLibName = "libEGL";
constexpr const char* LibraryExtension = "so";
constexpr size_t LibraryPathSize = 4096;

/// One entry point: what to look up, and the member that takes its address.
struct EntryPoint {
    const char* symbol;
    void* pMember;
    bool isRequired;
};

/// Formats the library's full path into `path`, maps the library and fills every member, a missing symbol
/// with null. True when the library is there and has every required symbol.
template <size_t Count>
bool LoadLibrary(const char* operation, const char* libraryName, const DewarpLogText& failure,
                 DewarpStabilizationType type, char (&path)[LibraryPathSize], void** phLibrary,
                 const EntryPoint (&entryPoints)[Count]) {
    std::memset(path, 0, sizeof(path));
    LumNodeUtils::SNPrintF(path, sizeof(path), "%s%s%s.%s", "/system/lib64", "/", libraryName,
                           LibraryExtension);
    *phLibrary = LumNodeUtils::LibMapFullName(path);
    if (*phLibrary == nullptr) {
        DEWARP_ERROR_CHOSEN(operation, failure, type, path);
        return false;
    }
    bool isComplete = true;
    for (const EntryPoint& entryPoint : entryPoints) {
        void* pAddress = LumNodeUtils::LibGetAddr(*phLibrary, entryPoint.symbol);
        std::memcpy(entryPoint.pMember, &pAddress, sizeof(pAddress));
        isComplete = isComplete && (!entryPoint.isRequired || pAddress != nullptr);
    }
    return isComplete;
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
#define DEWARP_ENTRY_POINT(member, symbol, isRequired, isReset) {#symbol, &(member), isRequired},
    const EntryPoint entryPoints[] = {DEWARP_GLES_ENTRIES(DEWARP_ENTRY_POINT)};
#undef DEWARP_ENTRY_POINT
    char path[LibraryPathSize];
    if (LoadLibrary(__func__, g_pGLESv2LibName,
                    DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to load OpenGL library Path[%s]"),
                    m_stabilizationType, path, &m_hGLESv2Lib, entryPoints)) {
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
#define DEWARP_ENTRY_POINT(member, symbol) {#symbol, &(member), true},
    const EntryPoint entryPoints[] = {DEWARP_EGL_ENTRIES(DEWARP_ENTRY_POINT)};
#undef DEWARP_ENTRY_POINT
    char path[LibraryPathSize];
    if (LoadLibrary(__func__, g_pEGLLibName,
                    DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to load EGL library Path[%s]"), m_stabilizationType,
                    path, &m_hEGLLib, entryPoints)) {
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
