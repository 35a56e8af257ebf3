#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "desk/gl/desk_gl_counters.h"

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
    explicit LibraryStore(const std::filesystem::path& systemLibraryDir);

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

    SystemLibraries system_;
    LibraryProvider* provider_ = &system_;
    mutable std::mutex mutex_;
    std::map<void*, unsigned> mappings_;
    DeskGlCounters glBaseline_ = {};
    CounterFunction glCounters_ = nullptr;  // stays valid: the desk's EGL never leaves the process
};

}  // namespace desk
