#include "desk/host/desk_host.h"

#include <dlfcn.h>
#include <fmt/core.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "desk/abi/gralloc_layout.h"
#include "desk/host/desk_node.h"
#include "desk/host/import_redirect.h"
#include "host/lumlog.h"

namespace desk {
namespace {

constexpr const char* DumpProperty = "persist.vendor.camera.enabledewarpdump";

// What the library's allocation imports are pointed at.
int NodePosixMemalign(void** block, size_t alignment, size_t size) {
    return HostServices::Current()->PosixMemalign(block, alignment, size);
}

void* NodeMalloc(size_t size) {
    return HostServices::Current()->Malloc(size);
}

void NodeFree(void* block) {
    // A library that stays loaded after its host frees what it holds when the process ends.
    if (HostServices* services = HostServices::Current()) {
        services->Free(block);
    } else {
        std::free(block);
    }
}

std::unique_ptr<HostServices> MakeServices(const HostOptions& options) {
    if (HostServices::Current() != nullptr) {
        throw std::logic_error("another DeskHost exists in this process; only one may at a time");
    }
    return std::make_unique<HostServices>(options.log, options.systemLibraryDir, options.dumpDir);
}

void* LoadLibrary(const std::filesystem::path& file) {
    void* library = ::dlopen(std::filesystem::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw std::runtime_error(
            fmt::format("the node library {} cannot be loaded: {}", file.string(), ::dlerror()));
    }
    return library;
}

/// Descriptors of this process that refer to gralloc buffers of the desk.
uint64_t CountBufferDescriptors() {
    uint64_t count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (!error && target.rfind("/memfd:desk-gralloc", 0) == 0) {
            ++count;
        }
    }
    return count;
}

}  // namespace

DeskHost::DeskHost(HostOptions options)
    : options_(std::move(options)),
      services_(MakeServices(options_)),
      library_(LoadLibrary(options_.nodeLibrary), &::dlclose) {
    SetLogLevels(options_.luxBits, options_.systemLog);
    const std::string name = options_.nodeLibrary.string();
    auto* entry = reinterpret_cast<NodeGate::Entry>(::dlsym(library_.get(), "LumNodeEntry"));
    if (entry == nullptr) {
        throw std::runtime_error(fmt::format("the node library {} has no LumNodeEntry", name));
    }
    RedirectImports(reinterpret_cast<const void*>(entry),
                    {{"posix_memalign", reinterpret_cast<void*>(&NodePosixMemalign)},
                     {"malloc", reinterpret_cast<void*>(&NodeMalloc)},
                     {"free", reinterpret_cast<void*>(&NodeFree)}});
    gate_ = std::make_unique<NodeGate>(*services_, entry);
    uint32_t result = Callbacks().SetNodeInterface(&services_->Interface());
    if (result != 0) {
        throw std::runtime_error(fmt::format("the node library {} does not take the host's services: {}",
                                             name, ResultText(result)));
    }
    LumNodeCapsInfo caps = {sizeof(caps), 0};
    result = Callbacks().GetCaps(&caps);
    constexpr uint32_t Wanted = LumNodeCapsDewarpRealTime | LumNodeCapsDewarpLookAhead;
    if (result != 0 || caps.nodeCapsMask != Wanted) {
        throw std::runtime_error(
            fmt::format("the node library {} reports the capabilities {} ({}); expected {}", name,
                        caps.nodeCapsMask, ResultText(result), Wanted));
    }
}

DeskHost::~DeskHost() {
    CheckTornDown();
    services_->files.CloseAll();
    services_->libraries.UnmapAll();
}

LumNodeCallbacks& DeskHost::Callbacks() {
    return gate_->Callbacks();
}

void DeskHost::Enter(LumNodeCallbacks* callbacks) {
    gate_->Enter(callbacks);
}

std::unique_ptr<DeskNode> DeskHost::CreateNode(Variant variant) {
    return std::make_unique<DeskNode>(*this, variant);
}

TagRegistry& DeskHost::Tags() {
    return services_->tags;
}

MetadataStore& DeskHost::Metadata() {
    return services_->metadata;
}

Properties& DeskHost::Props() {
    return services_->properties;
}

Contract& DeskHost::Findings() {
    return services_->contract;
}

NodeTable& DeskHost::Nodes() {
    return gate_->Nodes();
}

HostCounters DeskHost::Counters() const {
    HostCounters counters;
    counters.liveNodes = gate_->Nodes().Count();
    counters.liveAllocations = services_->allocations.Live();
    counters.totalAllocations = services_->allocations.Total();
    counters.openFiles = services_->files.OpenCount();
    counters.mappedLibraries = services_->libraries.MappedCount();
    counters.liveBuffers = GrallocBuffer::LiveCount();
    counters.gl = services_->libraries.GlCounters();
    return counters;
}

void DeskHost::SetLogLevels(uint32_t luxBits, bool systemLog) {
    g_enableLuxLogs = luxBits;
    g_enableSystemLog = systemLog ? 1 : 0;
}

void DeskHost::SetDumps(bool on) {
    if (on && !std::filesystem::is_directory(options_.dumpDir)) {
        throw std::runtime_error(fmt::format("dumps cannot be switched on: the folder \"{}\" does not exist",
                                             options_.dumpDir.string()));
    }
    Props().Set(DumpProperty, on ? "1" : "0");
}

void DeskHost::SetClock(std::optional<LUMDateTime> clock) {
    services_->clock = clock;
}

void DeskHost::SetLibraries(LibraryProvider* provider) {
    services_->libraries.SetProvider(provider);
}

void DeskHost::SetLogObserver(std::function<void(const LogRecord&)> observer) {
    services_->log.SetObserver(std::move(observer));
}

void DeskHost::SetFault(Fault fault) {
    services_->fault = std::move(fault);
}

void DeskHost::CheckTornDown() {
    const HostCounters now = Counters();
    const DeskGlCounters gl = now.gl.value_or(DeskGlCounters{});
    const DeskGlCounters before = services_->libraries.GlBaseline();
    const struct {
        const char* what;
        uint64_t count;
        uint64_t expected;
    } leftovers[] = {
        {"nodes", now.liveNodes, 0},
        {"allocated blocks", now.liveAllocations, 0},
        {"open files", now.openFiles, 0},
        {"mapped libraries", now.mappedLibraries, 0},
        {"GL images", gl.liveImages, before.liveImages},
        {"GL contexts", gl.liveContexts, before.liveContexts},
        {"initialised displays", gl.initialisedDisplays, before.initialisedDisplays},
        // GL drivers keep descriptors of their own for good, so only those of the desk's memory count.
        {"buffer descriptors", CountBufferDescriptors(), GrallocBuffer::LiveCount() * GrallocFdCount},
    };
    for (const auto& left : leftovers) {
        if (left.count != left.expected) {
            Findings().Report(fmt::format("after the last node is gone the process holds {} {}; expected {}",
                                          left.count, left.what, left.expected));
        }
    }
}

}  // namespace desk
