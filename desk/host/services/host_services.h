#pragma once

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "desk/host/rules/contract.h"
#include "desk/host/rules/service.h"
#include "desk/host/rules/tag_registry.h"
#include "desk/host/services/allocation_counter.h"
#include "desk/host/services/file_store.h"
#include "desk/host/services/library_store.h"
#include "desk/host/services/log_sink.h"
#include "desk/host/services/metadata_store.h"
#include "desk/host/services/properties.h"
#include "host/lumnodeutils.h"

namespace desk {

/// What the host does for its nodes: the services table, the host's exported symbols and the state behind
/// them. Every service checks its caller and its arguments against the contract, asks the fault, then
/// serves. Services may be called from several threads; the public members are set up while none runs.
class HostServices {
public:
    HostServices(std::ostream* logStream, const std::filesystem::path& systemLibraryDir,
                 const std::filesystem::path& dumpDir);
    ~HostServices();
    HostServices(const HostServices&) = delete;
    HostServices& operator=(const HostServices&) = delete;

    /// The one set of services in the process, or null.
    static HostServices* Current();

    LogSink log;
    Contract contract;
    TagRegistry tags;
    MetadataStore metadata;
    Properties properties;
    FileStore files;
    LibraryStore libraries;
    AllocationCounter allocations;
    std::optional<LUMDateTime> clock;
    Fault fault;

    /// The table handed to the library.
    LumNodeInterface& Interface();

    // The table's services.
    uint32_t GetVendorTagBase(LumVendorTagBaseInfo* info);
    uint32_t SetMetadata(const LumMetadataInfo* info);
    uint32_t NotifyRequestDone(const LumRequestDoneInfo* info);
    uint32_t QueryRequestWindow(void* session, LumRequestWindowInfo* window);

    // The exported services; each as the function of the same name is declared for the nodes.
    uint32_t SetNodeInterface(LumNodeInterface* host, const char* nodeName, LumNodeInterface* copy,
                              uint32_t* vendorTagBase);
    void* GetMetaData(uint64_t requestId, uint32_t tagId, LumMetadataType type,
                      const LumNodeInterface* nodeInterface, void* session, uint32_t reserved);
    void GetAlignment(uint32_t width, uint32_t height, uint32_t plane, LumFormat format,
                      int32_t* strideAlignment, int32_t* scanlineAlignment);
    void GetDateTime(LUMDateTime* dateTime);
    FILE* FOpen(const char* path, const char* mode);
    int32_t FClose(FILE* file);
    size_t FWrite(const void* buffer, size_t size, size_t count, FILE* file);
    __attribute__((format(printf, 4, 0))) int32_t VSNPrintF(char* buffer, size_t size, const char* format,
                                                            va_list arguments);
    void* LibMapFullName(const char* fullPath);
    void* LibGetAddr(void* library, const char* symbol);
    uint32_t LibUnmap(void* library);
    int32_t SetGrallocMetaData(const native_handle* handle, uint32_t item, uint32_t size, const void* data);
    int PropertyGet(const char* key, char* value, const char* fallback);
    /// `record` with the head filled; the message is formatted here.
    __attribute__((format(printf, 3, 0))) void Log(LogRecord record, const char* format, va_list arguments);

    /// Reports a call of a service that has an object's address or a text among its arguments, and null
    /// there. Returns whether none is; the service that is not called so answers with its failure.
    bool RequireArguments(const Service& service, std::initializer_list<const void*> arguments);

    // The library's allocations.
    int PosixMemalign(void** block, size_t alignment, size_t size);
    void* Malloc(size_t size);
    void Free(void* block);

private:
    /// Reports a call out of its phase.
    void RequirePhase(const Service& service, std::string_view subject);
    /// The same, and whether the fault makes the call fail, and with what.
    bool Fails(const Service& service, std::string_view subject, uint32_t& result);
    /// Whether the record can be served; `tag` is the published one, null when it cannot be told.
    bool CheckPublication(const LumMetadataInfo& info, const Tag* tag);
    /// Reports a tag used in a phase or by a variant that it is not for; `does` is the verb.
    void RequireUse(const Service& service, const Tag& tag, unsigned tagPhases, const char* does);
    bool RequireSession(const char* service, const void* session);

    LumNodeInterface interface_ = {};
};

}  // namespace desk
