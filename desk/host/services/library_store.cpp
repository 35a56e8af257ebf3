#include "desk/host/services/library_store.h"

#include <dlfcn.h>

#include <utility>

namespace desk {

SystemLibraries::SystemLibraries(std::filesystem::path directory) : directory_(std::move(directory)) {}

void* SystemLibraries::Map(const std::string& devicePath) {
    const std::filesystem::path path(devicePath);
    if (path.parent_path() != DeviceDir) {
        return nullptr;
    }
    return ::dlopen((directory_ / path.filename()).c_str(), RTLD_NOW | RTLD_LOCAL);
}

void* SystemLibraries::Symbol(void* library, const char* symbol) {
    return ::dlsym(library, symbol);
}

bool SystemLibraries::Unmap(void* library) {
    return ::dlclose(library) == 0;
}

namespace {

void ReportGlError(void* contract, const char* text) {
    static_cast<Contract*>(contract)->Require(false, "makes the GL driver report an error: {}", text);
}

}  // namespace

LibraryStore::LibraryStore(const std::filesystem::path& systemLibraryDir, Contract& contract)
    : contract_(contract), system_(systemLibraryDir) {}

LibraryStore::~LibraryStore() {
    if (setErrorSink_ != nullptr) {
        setErrorSink_(nullptr, nullptr);
    }
}

void LibraryStore::SetProvider(LibraryProvider* provider) {
    const std::lock_guard<std::mutex> lock(mutex_);
    provider_ = provider != nullptr ? provider : &system_;
    if (setErrorSink_ != nullptr) {
        setErrorSink_(nullptr, nullptr);
    }
    setErrorSink_ = nullptr;
    glCounters_ = nullptr;
    glBaseline_ = {};
}

void* LibraryStore::Map(const std::string& devicePath) {
    const std::lock_guard<std::mutex> lock(mutex_);
    void* library = provider_->Map(devicePath);
    if (library != nullptr) {
        ++mappings_[library];
        if (glCounters_ == nullptr) {
            ConnectGl(library);
        }
    }
    return library;
}

void LibraryStore::ConnectGl(void* library) {
    glCounters_ = reinterpret_cast<CounterFunction>(provider_->Symbol(library, "desk_gl_counters"));
    setErrorSink_ = reinterpret_cast<SinkFunction>(provider_->Symbol(library, "desk_gl_set_error_sink"));
    if (glCounters_ != nullptr) {
        glCounters_(&glBaseline_);
    }
    if (setErrorSink_ != nullptr) {
        setErrorSink_(&ReportGlError, &contract_);
    }
}

bool LibraryStore::IsMapped(void* library) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return mappings_.count(library) != 0;
}

void* LibraryStore::Symbol(void* library, const char* symbol) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return mappings_.count(library) != 0 ? provider_->Symbol(library, symbol) : nullptr;
}

bool LibraryStore::Unmap(void* library) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = mappings_.find(library);
    if (found == mappings_.end()) {
        return false;
    }
    if (--found->second == 0) {
        mappings_.erase(found);
    }
    return provider_->Unmap(library);
}

size_t LibraryStore::MappedCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    size_t count = 0;
    for (const auto& [library, mappings] : mappings_) {
        count += mappings;
    }
    return count;
}

void LibraryStore::UnmapAll() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [library, mappings] : mappings_) {
        for (unsigned i = 0; i < mappings; ++i) {
            provider_->Unmap(library);
        }
    }
    mappings_.clear();
}

DeskGlCounters LibraryStore::GlBaseline() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return glBaseline_;
}

std::optional<DeskGlCounters> LibraryStore::GlCounters() const {
    CounterFunction function = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        function = glCounters_;
    }
    if (function == nullptr) {
        return std::nullopt;
    }
    DeskGlCounters counters = {};
    function(&counters);
    return counters;
}

}  // namespace desk
