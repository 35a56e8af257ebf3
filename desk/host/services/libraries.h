#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "desk/abi/gl_reports.h"
#include "desk/base/guarded.h"
#include "desk/host/rules/contract.h"

namespace desk {

/// Where the libraries come from that nodes map by their device path: a folder that stands for the device's,
/// unless a class of its own has others.
class LibraryProvider {
public:
    static constexpr const char* DeviceDir = "/system/lib64";

    explicit LibraryProvider(std::filesystem::path folder = {}) : folder_(std::move(folder)) {}
    virtual ~LibraryProvider() = default;
    /// Null when there is no such library. The same handle may be returned more than once.
    virtual void* Map(const std::string& devicePath);
    /// Null when the library has no such symbol.
    virtual void* Symbol(void* library, const char* symbol);
    /// False when the library could not be unmapped.
    virtual bool Unmap(void* library);

private:
    const std::filesystem::path folder_;
};

/// The libraries that nodes have mapped. Thread safe.
class Libraries {
public:
    /// What the driver under the desk's GL libraries reports as an error becomes a finding of the contract,
    /// which must outlive the libraries.
    Libraries(const std::filesystem::path& systemLibraryDir, Contract& contract);
    /// Unmaps what is still mapped.
    ~Libraries();

    /// Null for the workstation's own. Must outlive its use; set while nothing is mapped.
    void SetProvider(LibraryProvider* provider);

    // As the provider's, the latter two of a library that is mapped.
    void* Map(const std::string& devicePath);
    void* Symbol(void* library, const char* symbol);
    bool Unmap(void* library);
    bool IsMapped(void* library) const;
    /// Mappings made and not undone.
    size_t Count() const;

    /// What the mapped GL libraries count, of the process and of the calling thread; empty when they are
    /// not the desk's or none was ever mapped.
    std::optional<DeskGlCounters> GlCounters() const;
    /// What they had counted when they were first mapped; zero before that.
    DeskGlCounters GlBaseline() const;

private:
    struct Mapped {
        LibraryProvider* provider = nullptr;
        std::multiset<void*> mappings;  // a library as often as it is mapped
        // The desk's own functions, which other GL libraries lack. They stay valid: its EGL never leaves the
        // process.
        decltype(&desk_gl_counters) glCounters = nullptr;
        decltype(&desk_gl_set_error_sink) setErrorSink = nullptr;
        DeskGlCounters glBaseline = {};
    };

    Contract& contract_;
    LibraryProvider system_;
    Guarded<Mapped> mapped_;
};

}  // namespace desk
