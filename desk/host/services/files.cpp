#include "desk/host/services/files.h"

#include <utility>

#include "desk/host/services/service_call.h"

namespace desk {

Files::Files(std::filesystem::path folder) : folder_(std::move(folder)) {}

Files::~Files() {
    open_.With([](const auto& open) {
        for (FILE* file : open) {
            static_cast<void>(std::fclose(file));
        }
    });
}

FILE* Files::Open(const std::filesystem::path& name, const char* mode) {
    FILE* file = std::fopen((folder_ / name).c_str(), mode);
    if (file != nullptr) {
        open_.With([&](auto& open) { open.insert(file); });
    }
    return file;
}

bool Files::IsOpen(FILE* file) const {
    return open_.With([&](const auto& open) { return open.count(file) != 0; });
}

int Files::Close(FILE* file) {
    const bool wasOpen = open_.With([&](auto& open) { return open.erase(file) != 0; });
    return wasOpen ? std::fclose(file) : EOF;
}

size_t Files::Count() const {
    return open_.With([](const auto& open) { return open.size(); });
}

}  // namespace desk

namespace LumNodeUtils {

using namespace desk;

FILE* FOpen(const char* path, const char* mode) {
    const ServiceCall call(service::FOpen, TextOf(path));
    if (!call.Needs({path, mode})) {
        return nullptr;
    }
    call->contract.Require(std::string_view(mode) == "a", "opens {} with the mode \"{}\"; expected \"a\"",
                           path, mode);
    const std::filesystem::path file(path);
    const bool isPlaced = call->contract.Require(
        file.parent_path() == Files::DeviceDir, "opens {}, which does not lie in {}", path, Files::DeviceDir);
    return call.fails || !isPlaced ? nullptr : call->files.Open(file.filename(), mode);
}

int32_t FClose(FILE* file) {
    const ServiceCall call(service::FClose);
    if (!call.Needs({file}) ||
        !call->contract.Require(call->files.IsOpen(file), "closes a file that is not open")) {
        return EOF;
    }
    const int closed = call->files.Close(file);
    return call.fails ? static_cast<int32_t>(call.result) : closed;
}

size_t FWrite(const void* buffer, size_t size, size_t count, FILE* file) {
    const ServiceCall call(service::FWrite);
    if (!call.Needs({buffer, file}) ||
        !call->contract.Require(call->files.IsOpen(file), "writes to a file that is not open")) {
        return 0;
    }
    return call.fails ? call.result : std::fwrite(buffer, size, count, file);
}

int32_t VSNPrintF(char* buffer, size_t size, const char* format, va_list arguments) {
    const ServiceCall call(service::VSNPrintF);
    // Who only measures has no buffer.
    if (!call.Needs({size != 0 ? buffer : format, format})) {
        return -1;
    }
    return std::vsnprintf(buffer, size, format, arguments);
}

}  // namespace LumNodeUtils
