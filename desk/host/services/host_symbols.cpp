// What the host process exports to the libraries that it loads. Everything forwards to the one host of the
// process; without a host nothing succeeds.

#include "desk/host/services/host_services.h"
#include "host/grallocmetadata.h"
#include "host/lumlog.h"
#include "host/lumnodeutils.h"
#include "host/lumresult.h"
#include "platform/properties.h"

using desk::HostServices;

uint32_t g_enableLuxLogs = 0;
uint32_t g_enableSystemLog = 0;

namespace {

/// Calls a service of the current host; `otherwise` when there is none.
template <typename Result, typename Call>
Result Forward(Result otherwise, Call&& call) {
    HostServices* services = HostServices::Current();
    return services != nullptr ? call(*services) : otherwise;
}

}  // namespace

void LumLog::LogSystem(const char* levelWord, const char* levelLetter, const char* fileName,
                       const char* functionName, int32_t line, const char* format, ...) {
    HostServices* services = HostServices::Current();
    if (services == nullptr ||
        !services->RequireArguments(desk::service::LogSystem,
                                    {levelWord, levelLetter, fileName, functionName, format})) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    services->Log({levelWord, levelLetter, fileName, functionName, line, {}, {}}, format, arguments);
    va_end(arguments);
}

namespace LumNodeUtils {

uint32_t SetNodeInterface(LumNodeInterface* host, const char* nodeName, LumNodeInterface* copy,
                          uint32_t* vendorTagBase) {
    return Forward<uint32_t>(LumResultFailure, [&](HostServices& services) {
        return services.SetNodeInterface(host, nodeName, copy, vendorTagBase);
    });
}

void* GetMetaData(uint64_t requestId, uint32_t tagId, LumMetadataType type, LumNodeInterface* nodeInterface,
                  void* session, uint32_t reserved) {
    return Forward<void*>(nullptr, [&](HostServices& services) {
        return services.GetMetaData(requestId, tagId, type, nodeInterface, session, reserved);
    });
}

void GetAlignment(uint32_t width, uint32_t height, uint32_t plane, LumFormat format, int32_t* strideAlignment,
                  int32_t* scanlineAlignment) {
    if (HostServices* services = HostServices::Current()) {
        services->GetAlignment(width, height, plane, format, strideAlignment, scanlineAlignment);
    }
}

void GetDateTime(LUMDateTime* dateTime) {
    if (HostServices* services = HostServices::Current()) {
        services->GetDateTime(dateTime);
    }
}

FILE* FOpen(const char* path, const char* mode) {
    return Forward<FILE*>(nullptr, [&](HostServices& services) { return services.FOpen(path, mode); });
}

int32_t FClose(FILE* file) {
    return Forward<int32_t>(EOF, [&](HostServices& services) { return services.FClose(file); });
}

size_t FWrite(const void* buffer, size_t size, size_t count, FILE* file) {
    return Forward<size_t>(
        0, [&](HostServices& services) { return services.FWrite(buffer, size, count, file); });
}

int32_t VSNPrintF(char* buffer, size_t size, const char* format, va_list arguments) {
    HostServices* services = HostServices::Current();
    return services != nullptr ? services->VSNPrintF(buffer, size, format, arguments) : -1;
}

void* LibMapFullName(const char* fullPath) {
    return Forward<void*>(nullptr, [&](HostServices& services) { return services.LibMapFullName(fullPath); });
}

void* LibGetAddr(void* library, const char* symbol) {
    return Forward<void*>(nullptr,
                          [&](HostServices& services) { return services.LibGetAddr(library, symbol); });
}

uint32_t LibUnmap(void* library) {
    return Forward<uint32_t>(LumResultFailure,
                             [&](HostServices& services) { return services.LibUnmap(library); });
}

}  // namespace LumNodeUtils

int32_t Orba::Gralloc::SetGrallocMetaData(const native_handle* handle, uint32_t metadataType, uint32_t size,
                                          const void* data) {
    return Forward<int32_t>(LumResultFailure, [&](HostServices& services) {
        return services.SetGrallocMetaData(handle, metadataType, size, data);
    });
}

int property_get(const char* key, char* value, const char* fallback) {
    HostServices* services = HostServices::Current();
    if (services == nullptr) {
        value[0] = '\0';
        return 0;
    }
    return services->PropertyGet(key, value, fallback);
}
