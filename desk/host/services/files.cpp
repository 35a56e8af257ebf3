// What nodes ask about files, and how they write their lines.

#include <cstdio>
#include <filesystem>
#include <string_view>

#include "desk/host/services/host_state.h"

namespace LumNodeUtils {

using namespace desk;

constexpr const char* DeviceDir = "/data/vendor/camera";

FILE* FOpen(const char* path, const char* mode) {
    const ServiceCall call(service::FOpen, TextOf(path));
    if (!call.Needs({path, mode})) {
        return nullptr;
    }
    call->contract.Require(std::string_view(mode) == "a", "opens {} with the mode \"{}\"; expected \"a\"",
                           path, mode);
    const std::filesystem::path file(path);
    if (!call->contract.Require(file.parent_path() == DeviceDir, "opens {}, which does not lie in {}", path,
                                DeviceDir) ||
        call.fails) {
        return nullptr;
    }
    FILE* opened = std::fopen((call->options.dumpDir / file.filename()).c_str(), mode);
    if (opened != nullptr) {
        call->openFiles.With([&](auto& files) { files.insert(opened); });
    }
    return opened;
}

int32_t FClose(FILE* file) {
    const ServiceCall call(service::FClose);
    const auto forget = [&](auto& files) { return files.erase(file) != 0; };
    if (!call.Needs({file}) ||
        !call->contract.Require(call->openFiles.With(forget), "closes a file that is not open")) {
        return EOF;
    }
    const int closed = std::fclose(file);
    return call.fails ? static_cast<int32_t>(call.result) : closed;
}

size_t FWrite(const void* buffer, size_t size, size_t count, FILE* file) {
    const ServiceCall call(service::FWrite);
    const auto isOpen = [&](const auto& files) { return files.count(file) != 0; };
    if (!call.Needs({buffer, file}) ||
        !call->contract.Require(call->openFiles.With(isOpen), "writes to a file that is not open")) {
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
