#include "desk/host/desk_host.h"

#include <dlfcn.h>
#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "desk/abi/gralloc_layout.h"
#include "desk/host/desk_node.h"
#include "host/lumlog.h"

namespace desk {
namespace {

constexpr const char* DumpProperty = "persist.vendor.camera.enabledewarpdump";

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
    using Descriptors = std::filesystem::directory_iterator;
    const auto isBuffer = [](const auto& entry) {
        std::error_code gone;  // as the iterator's own is
        return std::filesystem::read_symlink(entry.path(), gone).string().rfind("/memfd:desk-gralloc", 0) ==
               0;
    };
    return static_cast<uint64_t>(std::count_if(Descriptors("/proc/self/fd"), Descriptors(), isBuffer));
}

}  // namespace

DeskHost::DeskHost(HostOptions given)
    : HostState(std::move(given)), library_(LoadLibrary(options.nodeLibrary), &::dlclose) {
    SetLogLevels(options.luxBits, false);
    const std::string name = options.nodeLibrary.string();
    auto* entry = reinterpret_cast<NodeGate::Entry>(::dlsym(library_.get(), "LumNodeEntry"));
    if (entry == nullptr) {
        throw std::runtime_error(fmt::format("the node library {} has no LumNodeEntry", name));
    }
    CountAllocations(reinterpret_cast<const void*>(entry));
    const auto contextIsCurrent = [this] {
        return libraries.GlCounters().value_or(DeskGlCounters{}).contextCurrent != 0;
    };
    gate = std::make_unique<NodeGate>(contract, tags, contextIsCurrent, entry);
    uint32_t result = gate->SetNodeInterface(&table);
    if (result != 0) {
        throw std::runtime_error(fmt::format("the node library {} does not take the host's services: {}",
                                             name, ResultText(result)));
    }
    LumNodeCapsInfo caps = {sizeof(caps), 0};
    result = gate->GetCaps(&caps);
    constexpr uint32_t Wanted = LumNodeCapsDewarpRealTime | LumNodeCapsDewarpLookAhead;
    if (result != 0 || caps.nodeCapsMask != Wanted) {
        throw std::runtime_error(
            fmt::format("the node library {} reports the capabilities {} ({}); expected {}", name,
                        caps.nodeCapsMask, ResultText(result), Wanted));
    }
}

DeskHost::~DeskHost() {
    CheckTornDown();
}

std::unique_ptr<DeskNode> DeskHost::CreateNode(Variant variant) {
    return std::make_unique<DeskNode>(*this, variant);
}

HostCounters DeskHost::Counters() const {
    HostCounters counters;
    counters.liveNodes = gate->LiveNodes();
    memory.With([&](const Blocks& blocks) {
        counters.liveAllocations = blocks.live.size();
        counters.totalAllocations = blocks.total;
    });
    counters.openFiles = openFiles.With([](const auto& files) { return files.size(); });
    counters.mappedLibraries = libraries.Count();
    counters.gl = libraries.GlCounters();
    return counters;
}

void DeskHost::SetLogLevels(uint32_t luxBits, bool systemLog) {
    g_enableLuxLogs = luxBits;
    g_enableSystemLog = systemLog ? 1 : 0;
}

void DeskHost::SetDumps(bool on) {
    if (on && !std::filesystem::is_directory(options.dumpDir)) {
        throw std::runtime_error(fmt::format("dumps cannot be switched on: the folder \"{}\" does not exist",
                                             options.dumpDir.string()));
    }
    properties.With([on](auto& all) { all[DumpProperty] = on ? "1" : "0"; });
}

void DeskHost::CheckTornDown() {
    const HostCounters now = Counters();
    const DeskGlCounters gl = now.gl.value_or(DeskGlCounters{});
    const DeskGlCounters before = libraries.GlBaseline();
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
            contract.Report(fmt::format("after the last node is gone the process holds {} {}; expected {}",
                                        left.count, left.what, left.expected));
        }
    }
}

}  // namespace desk
