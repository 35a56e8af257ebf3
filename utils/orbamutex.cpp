#include "utils/orbamutex.h"

#include "utils/orbamemory.h"
#include "utils/orbaosutils.h"
#include "utils/orbatrace.h"

uint64_t g_traceEnableMask = 0;

namespace Orba {

namespace {

constexpr size_t TraceTextSize = 512;

bool IsMutexTraced() {
    return (g_traceEnableMask & OrbaTraceMutex) != 0;
}

}  // namespace

Mutex* Mutex::Create(const char* mutexName) {
    Mutex* pMutex = new (0, 0, nullptr, 0) Mutex;
    if (pMutex == nullptr) {
        return nullptr;
    }
    if (pMutex->Initialize(mutexName) != 0) {
        ::operator delete(pMutex);
        return nullptr;
    }
    return pMutex;
}

uint32_t Mutex::Initialize(const char* mutexName) {
    valid = 0;
    OsUtils::StrLCpy(name, mutexName, MaxName);
    pthread_mutexattr_t attribute;
    if (pthread_mutexattr_init(&attribute) != 0) {
        return 1;
    }
    const bool isMade = pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE) == 0 &&
                        pthread_mutex_init(&mutex, &attribute) == 0;
    if (isMade) {
        if (IsMutexTraced()) {
            char text[TraceTextSize] = {};
            OsUtils::SNPrintF(text, sizeof(text), "Mutex Init");
            atrace_begin(OrbaTraceTag, text);
            atrace_end(OrbaTraceTag);
        }
        valid = 1;
    }
    pthread_mutexattr_destroy(&attribute);
    return isMade ? 0U : 1U;
}

void Mutex::Destroy() {
    if (valid == 1) {
        pthread_mutex_destroy(&mutex);
    }
    ::operator delete(this);
}

void Mutex::Lock() {
    const bool isTraced = IsMutexTraced();
    if (isTraced) {
        char text[TraceTextSize] = {};
        OsUtils::SNPrintF(text, sizeof(text), "%s: Mutex::Lock", name);
        atrace_begin(OrbaTraceTag, text);
    }
    pthread_mutex_lock(&mutex);
    if (isTraced) {
        char text[TraceTextSize] = {};
        OsUtils::SNPrintF(text, sizeof(text), "%s: Mutex Held", name);
        atrace_async_begin(OrbaTraceTag, text, TraceCookie());
        atrace_end(OrbaTraceTag);
    }
}

void Mutex::Unlock() {
    pthread_mutex_unlock(&mutex);
    if (IsMutexTraced()) {
        char text[TraceTextSize] = {};
        OsUtils::SNPrintF(text, sizeof(text), "%s: Mutex Held", name);
        atrace_async_end(OrbaTraceTag, text, TraceCookie());
    }
}

void* Mutex::GetNativeHandle() {
    return (valid == 1) ? &mutex : nullptr;
}

int32_t Mutex::TraceCookie() {
    return static_cast<int32_t>(static_cast<uint32_t>(Utils::VoidPtrToUINT64(GetNativeHandle())));
}

}  // namespace Orba
