#include "desk/host/services/libraries.h"

#include <dlfcn.h>

#include "desk/host/services/host_state.h"

namespace desk {

void* LibraryProvider::Map(const std::string& devicePath) {
    const std::filesystem::path path(devicePath);
    const bool isDevices = path.parent_path() == DeviceDir;
    return isDevices ? ::dlopen((folder_ / path.filename()).c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
}

void* LibraryProvider::Symbol(void* library, const char* symbol) {
    return ::dlsym(library, symbol);
}

bool LibraryProvider::Unmap(void* library) {
    return ::dlclose(library) == 0;
}

Libraries::Libraries(const std::filesystem::path& systemLibraryDir, Contract& contract)
    : contract_(contract), system_(systemLibraryDir) {
    SetProvider(nullptr);
}

Libraries::~Libraries() {
    mapped_.With([](const Mapped& mapped) {
        for (void* library : mapped.mappings) {
            mapped.provider->Unmap(library);
        }
    });
    SetProvider(nullptr);
}

void Libraries::SetProvider(LibraryProvider* provider) {
    mapped_.With([&](Mapped& mapped) {
        if (mapped.setErrorSink != nullptr) {
            mapped.setErrorSink(nullptr, nullptr);
        }
        mapped = {};
        mapped.provider = provider != nullptr ? provider : &system_;
    });
}

void* Libraries::Map(const std::string& devicePath) {
    return mapped_.With([&](Mapped& mapped) {
        void* library = mapped.provider->Map(devicePath);
        if (library == nullptr) {
            return library;
        }
        mapped.mappings.insert(library);
        const auto find = [&](auto& function, const char* name) {
            function =
                reinterpret_cast<std::decay_t<decltype(function)>>(mapped.provider->Symbol(library, name));
            return function != nullptr;
        };
        if (mapped.glCounters == nullptr && find(mapped.glCounters, "desk_gl_counters")) {
            mapped.glCounters(&mapped.glBaseline);
        }
        if (mapped.setErrorSink == nullptr && find(mapped.setErrorSink, "desk_gl_set_error_sink")) {
            const auto report = [](void* contract, const char* text) {
                static_cast<Contract*>(contract)->Require(false, "makes the GL driver report an error: {}",
                                                          text);
            };
            mapped.setErrorSink(report, &contract_);
        }
        return library;
    });
}

void* Libraries::Symbol(void* library, const char* symbol) {
    return mapped_.With([&](const Mapped& mapped) { return mapped.provider->Symbol(library, symbol); });
}

bool Libraries::Unmap(void* library) {
    return mapped_.With([&](Mapped& mapped) {
        mapped.mappings.extract(library);
        return mapped.provider->Unmap(library);
    });
}

bool Libraries::IsMapped(void* library) const {
    return mapped_.With([=](const Mapped& mapped) { return mapped.mappings.count(library) != 0; });
}

size_t Libraries::Count() const {
    return mapped_.With([](const Mapped& mapped) { return mapped.mappings.size(); });
}

std::optional<DeskGlCounters> Libraries::GlCounters() const {
    const auto count = mapped_.With([](const Mapped& mapped) { return mapped.glCounters; });
    if (count == nullptr) {
        return std::nullopt;
    }
    DeskGlCounters counters = {};
    count(&counters);
    return counters;
}

DeskGlCounters Libraries::GlBaseline() const {
    return mapped_.With([](const Mapped& mapped) { return mapped.glBaseline; });
}

}  // namespace desk

namespace LumNodeUtils {

using namespace desk;

void* LibMapFullName(const char* fullPath) {
    const ServiceCall call(service::LibMapFullName, TextOf(fullPath));
    return call.Needs({fullPath}) && !call.fails ? call->libraries.Map(fullPath) : nullptr;
}

void* LibGetAddr(void* library, const char* symbol) {
    const ServiceCall call(service::LibGetAddr, TextOf(symbol));
    const bool serves = call.Needs({library, symbol}) &&
                        call->contract.Require(call->libraries.IsMapped(library),
                                               "looks {} up in a library that is not mapped", symbol) &&
                        !call.fails;
    return serves ? call->libraries.Symbol(library, symbol) : nullptr;
}

uint32_t LibUnmap(void* library) {
    const ServiceCall call(service::LibUnmap);
    if (!call.Needs({library}) ||
        !call->contract.Require(call->libraries.IsMapped(library), "unmaps a library that is not mapped")) {
        return LumResultInvalidArgument;
    }
    const bool isUnmapped = call->libraries.Unmap(library);
    return call.fails ? call.result : (isUnmapped ? LumResultSuccess : LumResultFailure);
}

}  // namespace LumNodeUtils
