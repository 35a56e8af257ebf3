#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "desk/abi/gl_counters.h"
#include "desk/abi/gl_errors.h"
#include "desk/host/rules/contract.h"

namespace desk {

/// Where the libraries come from that nodes map by their device path.
class LibraryProvider {
public:
    virtual ~LibraryProvider() = default;
    /// Null when there is no such library. The same handle may be returned more than once.
    virtual void* Map(const std::string& devicePath) = 0;
    /// Null when the library has no such symbol.
    virtual void* Symbol(void* library, const char* symbol) = 0;
    /// False when the library could not be unmapped.
    virtual bool Unmap(void* library) = 0;
};

/// The workstation's own: /system/lib64 stands for a folder.
class SystemLibraries : public LibraryProvider {
public:
    /// The device's folder.
    static constexpr const char* DeviceDir = "/system/lib64";

    explicit SystemLibraries(std::filesystem::path directory);

    void* Map(const std::string& devicePath) override;
    void* Symbol(void* library, const char* symbol) override;
    bool Unmap(void* library) override;

private:
    std::filesystem::path directory_;
};

/// The libraries that nodes have mapped. Thread safe.
class LibraryStore {
public:
    /// What the driver under the desk's GL libraries reports as an error becomes a finding of the contract,
    /// which must outlive the store.
    LibraryStore(const std::filesystem::path& systemLibraryDir, Contract& contract);
    ~LibraryStore();
    LibraryStore(const LibraryStore&) = delete;
    LibraryStore& operator=(const LibraryStore&) = delete;

    /// Null for the system's. Must outlive its use; set while nothing is mapped.
    void SetProvider(LibraryProvider* provider);

    void* Map(const std::string& devicePath);
    bool IsMapped(void* library) const;
    void* Symbol(void* library, const char* symbol);
    bool Unmap(void* library);
    /// Mappings made and not undone.
    size_t MappedCount() const;
    void UnmapAll();

    /// What the mapped GL libraries count, of the process and of the calling thread; empty when they are
    /// not the desk's or none was ever mapped.
    std::optional<DeskGlCounters> GlCounters() const;
    /// What they had counted when they were first mapped; zero before that.
    DeskGlCounters GlBaseline() const;

private:
    using CounterFunction = void (*)(DeskGlCounters*);
    using SinkFunction = void (*)(DeskGlErrorSink, void*);

    /// Looks up the desk's own functions, which other GL libraries lack, and makes itself the sink.
    void ConnectGl(void* library);

    Contract& contract_;
    SystemLibraries system_;
    LibraryProvider* provider_ = &system_;
    mutable std::mutex mutex_;
    std::map<void*, unsigned> mappings_;
    DeskGlCounters glBaseline_ = {};
    // Both stay valid: the desk's EGL never leaves the process.
    CounterFunction glCounters_ = nullptr;
    SinkFunction setErrorSink_ = nullptr;
};

}  // namespace desk
