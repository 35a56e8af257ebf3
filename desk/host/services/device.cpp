// What nodes ask of the device: its clock, its files, its buffers and its properties.

#include <fmt/chrono.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>

#include "desk/abi/gralloc_layout.h"
#include "desk/host/services/host_state.h"
#include "platform/properties.h"

using namespace desk;

namespace {

// The desk's alignments per plane of NV12: cache lines of the stride, and tiles of 32 lines.
constexpr Alignment PlaneAlignments[] = {{128, 32}, {128, 16}};

constexpr const char* DumpDir = "/data/vendor/camera";

bool WriteAt(int fd, size_t offset, const void* data, size_t size) {
    return ::pwrite(fd, data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

}  // namespace

void LumNodeUtils::GetAlignment(uint32_t width, uint32_t height, uint32_t plane, LumFormat format,
                                int32_t* strideAlignment, int32_t* scanlineAlignment) {
    const ServiceCall call(service::GetAlignment);
    if (!call.Needs({strideAlignment, scanlineAlignment})) {
        return;
    }
    call->contract.Require(width != 0 && height != 0, "asks for the alignment of an image of {} x {} pixels",
                           width, height);
    if (!call.fails && format == LumFormatNv12 && plane < std::size(PlaneAlignments)) {
        *strideAlignment = PlaneAlignments[plane].strideAlignment;
        *scanlineAlignment = PlaneAlignments[plane].scanlineAlignment;
    }
}

void LumNodeUtils::GetDateTime(LUMDateTime* dateTime) {
    const ServiceCall call(service::GetDateTime);
    if (!call.Needs({dateTime}) || call.fails) {
        return;
    }
    if (call->clock) {
        *dateTime = *call->clock;
        return;
    }
    const std::tm local = fmt::localtime(std::time(nullptr));
    *dateTime = Patterned<LUMDateTime>();
    dateTime->seconds = local.tm_sec;
    dateTime->minutes = local.tm_min;
    dateTime->hours = local.tm_hour;
    dateTime->dayOfMonth = local.tm_mday;
    dateTime->month = local.tm_mon;
    dateTime->year = local.tm_year;
}

FILE* LumNodeUtils::FOpen(const char* path, const char* mode) {
    const ServiceCall call(service::FOpen, TextOf(path));
    if (!call.Needs({path, mode})) {
        return nullptr;
    }
    call->contract.Require(std::string_view(mode) == "a", "opens {} with the mode \"{}\"; expected \"a\"",
                           path, mode);
    const std::filesystem::path file(path);
    if (!call->contract.Require(file.parent_path() == DumpDir, "opens {}, which does not lie in {}", path,
                                DumpDir) ||
        call.fails) {
        return nullptr;
    }
    FILE* opened = std::fopen((call->options.dumpDir / file.filename()).c_str(), mode);
    if (opened != nullptr) {
        call->openFiles.With([&](auto& files) { files.insert(opened); });
    }
    return opened;
}

int32_t LumNodeUtils::FClose(FILE* file) {
    const ServiceCall call(service::FClose);
    const auto forget = [&](auto& files) { return files.erase(file) != 0; };
    if (!call.Needs({file}) ||
        !call->contract.Require(call->openFiles.With(forget), "closes a file that is not open")) {
        return EOF;
    }
    const int closed = std::fclose(file);
    return call.fails ? static_cast<int32_t>(call.result) : closed;
}

size_t LumNodeUtils::FWrite(const void* buffer, size_t size, size_t count, FILE* file) {
    const ServiceCall call(service::FWrite);
    const auto isOpen = [&](const auto& files) { return files.count(file) != 0; };
    if (!call.Needs({buffer, file}) ||
        !call->contract.Require(call->openFiles.With(isOpen), "writes to a file that is not open")) {
        return 0;
    }
    return call.fails ? call.result : std::fwrite(buffer, size, count, file);
}

int32_t LumNodeUtils::VSNPrintF(char* buffer, size_t size, const char* format, va_list arguments) {
    const ServiceCall call(service::VSNPrintF);
    // Who only measures has no buffer.
    if (!call.Needs({size != 0 ? buffer : format, format})) {
        return -1;
    }
    return std::vsnprintf(buffer, size, format, arguments);
}

int32_t Orba::Gralloc::SetGrallocMetaData(const native_handle* handle, uint32_t item, uint32_t size,
                                          const void* data) {
    const ServiceCall call(service::SetGrallocMetaData, std::to_string(item));
    if (call.fails) {
        return static_cast<int32_t>(call.result);
    }
    const bool isGeometry = item == MetadataBufferGeometry;
    const size_t expected = isGeometry ? sizeof(BufferGeometry) : sizeof(ColorMetadata);
    Contract& contract = call->contract;
    if (!call.Needs({handle, data}) ||
        !contract.Require(IsGrallocHandle(handle), "sets metadata of a handle that is no gralloc buffer") ||
        !contract.Require(isGeometry || item == MetadataColor, "sets the unknown gralloc metadata {}",
                          item) ||
        !contract.Require(size == expected, "sets the gralloc metadata {} with {} bytes; expected {}", item,
                          size, expected)) {
        return LumResultInvalidArgument;
    }
    if (isGeometry) {
        const auto* geometry = static_cast<const BufferGeometry*>(data);
        const int64_t bytes = int64_t{geometry->stride} * geometry->scanline * 3 / 2;
        contract.Require(bytes == GrallocInt(handle, GrallocIntSize),
                         "gives a buffer of {} bytes a stride of {} and {} lines",
                         GrallocInt(handle, GrallocIntSize), geometry->stride, geometry->scanline);
    }
    const int fd = handle->data[GrallocMetadataFd];
    const uint32_t present = 1;
    const size_t place = isGeometry ? offsetof(GrallocMetadata, geometry) : offsetof(GrallocMetadata, color);
    const size_t flag =
        isGeometry ? offsetof(GrallocMetadata, hasGeometry) : offsetof(GrallocMetadata, hasColor);
    const bool written = WriteAt(fd, place, data, size) && WriteAt(fd, flag, &present, sizeof(present));
    return written ? LumResultSuccess : LumResultFailure;
}

int property_get(const char* key, char* value, const char* fallback) {
    const ServiceCall call(service::PropertyGet, TextOf(key));
    const bool serves = call.Needs({key, value}) && !call.fails;
    if (value == nullptr) {
        return 0;
    }
    std::string text(TextOf(fallback));
    if (serves) {
        call->properties.With([&](auto& all) { text = all.count(key) != 0 ? all[key] : text; });
    }
    text.resize(std::min<size_t>(text.size(), PropertyValueSize - 1));
    std::memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}
