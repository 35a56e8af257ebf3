#include "desk/host/services/host_services.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "desk/abi/gralloc_layout.h"
#include "host/lumlog.h"
#include "platform/properties.h"

namespace desk {
namespace {

struct LogLevel {
    std::string_view word;
    std::string_view letter;
    uint32_t bit;
};
constexpr LogLevel LogLevels[] = {
    {"[ERROR  ]", "E", 1}, {"[WARN   ]", "W", 2}, {"[INFO   ]", "I", 8}, {"[VERBOSE]", "V", 32}};

// The desk's alignments per plane of NV12: cache lines of the stride, and tiles of 32 lines.
constexpr Alignment PlaneAlignments[] = {{128, 32}, {128, 16}};

/// What a service is asked about; nothing when it is not said.
std::string_view Subject(const char* text) {
    return text != nullptr ? text : "";
}

bool WriteAt(int fd, size_t offset, const void* data, size_t size) {
    return ::pwrite(fd, data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

}  // namespace

void HostServices::RequirePhase(const Service& service, std::string_view subject) {
    contract.Require((service.phases & CurrentCall().phase) != 0, "calls {}({}), which has no place there",
                     service.name, subject);
}

bool HostServices::Fails(const Service& service, std::string_view subject, uint32_t& result) {
    RequirePhase(service, subject);
    result = service.failure;
    return fault && fault({service.name, subject, CurrentCall()}, result);
}

bool HostServices::RequireArguments(const Service& service, std::initializer_list<const void*> arguments) {
    const bool holds = std::find(arguments.begin(), arguments.end(), nullptr) == arguments.end();
    return contract.Require(holds, "calls {} with a null argument", service.name);
}

void HostServices::GetAlignment(uint32_t width, uint32_t height, uint32_t plane, LumFormat format,
                                int32_t* strideAlignment, int32_t* scanlineAlignment) {
    uint32_t result = 0;
    const bool fails = Fails(service::GetAlignment, {}, result);
    if (!RequireArguments(service::GetAlignment, {strideAlignment, scanlineAlignment})) {
        return;
    }
    contract.Require(width != 0 && height != 0, "asks for the alignment of an image of {} x {} pixels", width,
                     height);
    if (!fails && format == LumFormatNv12 && plane < std::size(PlaneAlignments)) {
        *strideAlignment = PlaneAlignments[plane].strideAlignment;
        *scanlineAlignment = PlaneAlignments[plane].scanlineAlignment;
    }
}

void HostServices::GetDateTime(LUMDateTime* dateTime) {
    uint32_t result = 0;
    const bool fails = Fails(service::GetDateTime, {}, result);
    if (!RequireArguments(service::GetDateTime, {dateTime}) || fails) {
        return;
    }
    if (clock) {
        *dateTime = *clock;
        return;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    ::localtime_r(&now, &local);
    std::memset(dateTime, HostPattern, sizeof(*dateTime));
    dateTime->seconds = local.tm_sec;
    dateTime->minutes = local.tm_min;
    dateTime->hours = local.tm_hour;
    dateTime->dayOfMonth = local.tm_mday;
    dateTime->month = local.tm_mon;
    dateTime->year = local.tm_year;
}

FILE* HostServices::FOpen(const char* path, const char* mode) {
    uint32_t result = 0;
    const bool fails = Fails(service::FOpen, Subject(path), result);
    if (!RequireArguments(service::FOpen, {path, mode})) {
        return nullptr;
    }
    contract.Require(std::string_view(mode) == "a", "opens {} with the mode \"{}\"; expected \"a\"", path,
                     mode);
    contract.Require(std::filesystem::path(path).parent_path() == FileStore::DeviceDir,
                     "opens {}, which does not lie in {}", path, FileStore::DeviceDir);
    return fails ? nullptr : files.Open(path, mode);
}

int32_t HostServices::FClose(FILE* file) {
    uint32_t result = 0;
    const bool fails = Fails(service::FClose, {}, result);
    if (!contract.Require(files.IsOpen(file), "closes a file that is not open")) {
        return EOF;
    }
    const int closed = files.Close(file);
    return fails ? static_cast<int32_t>(result) : closed;
}

size_t HostServices::FWrite(const void* buffer, size_t size, size_t count, FILE* file) {
    uint32_t result = 0;
    const bool fails = Fails(service::FWrite, {}, result);
    if (!RequireArguments(service::FWrite, {buffer}) ||
        !contract.Require(files.IsOpen(file), "writes to a file that is not open")) {
        return 0;
    }
    return fails ? result : std::fwrite(buffer, size, count, file);
}

int32_t HostServices::VSNPrintF(char* buffer, size_t size, const char* format, va_list arguments) {
    RequirePhase(service::VSNPrintF, {});
    // Who only measures has no buffer.
    if (!RequireArguments(service::VSNPrintF, {size != 0 ? buffer : format, format})) {
        return -1;
    }
    return std::vsnprintf(buffer, size, format, arguments);
}

void* HostServices::LibMapFullName(const char* fullPath) {
    uint32_t result = 0;
    const bool fails = Fails(service::LibMapFullName, Subject(fullPath), result);
    const bool isWhole = RequireArguments(service::LibMapFullName, {fullPath});
    return fails || !isWhole ? nullptr : libraries.Map(fullPath);
}

void* HostServices::LibGetAddr(void* library, const char* symbol) {
    uint32_t result = 0;
    const bool fails = Fails(service::LibGetAddr, Subject(symbol), result);
    if (!RequireArguments(service::LibGetAddr, {symbol})) {
        return nullptr;
    }
    contract.Require(libraries.IsMapped(library), "looks {} up in a library that is not mapped", symbol);
    return fails ? nullptr : libraries.Symbol(library, symbol);
}

uint32_t HostServices::LibUnmap(void* library) {
    uint32_t result = 0;
    const bool fails = Fails(service::LibUnmap, {}, result);
    if (!contract.Require(libraries.IsMapped(library), "unmaps a library that is not mapped")) {
        return LumResultInvalidArgument;
    }
    const bool unmapped = libraries.Unmap(library);
    return fails ? result : (unmapped ? LumResultSuccess : LumResultFailure);
}

int32_t HostServices::SetGrallocMetaData(const native_handle* handle, uint32_t item, uint32_t size,
                                         const void* data) {
    using namespace Orba::Gralloc;
    uint32_t result = 0;
    if (Fails(service::SetGrallocMetaData, std::to_string(item), result)) {
        return static_cast<int32_t>(result);
    }
    const bool isGeometry = item == MetadataBufferGeometry;
    const size_t expected = isGeometry ? sizeof(BufferGeometry) : sizeof(ColorMetadata);
    if (!contract.Require(IsGrallocHandle(handle), "sets metadata of a handle that is no gralloc buffer") ||
        !contract.Require(isGeometry || item == MetadataColor, "sets the unknown gralloc metadata {}",
                          item) ||
        !contract.Require(data != nullptr && size == expected,
                          "sets the gralloc metadata {} with {} bytes; expected {}", item, size, expected)) {
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
    const bool written =
        isGeometry ? WriteAt(fd, offsetof(GrallocMetadata, geometry), data, size) &&
                         WriteAt(fd, offsetof(GrallocMetadata, hasGeometry), &present, sizeof(present))
                   : WriteAt(fd, offsetof(GrallocMetadata, color), data, size) &&
                         WriteAt(fd, offsetof(GrallocMetadata, hasColor), &present, sizeof(present));
    return written ? LumResultSuccess : LumResultFailure;
}

int HostServices::PropertyGet(const char* key, char* value, const char* fallback) {
    uint32_t result = 0;
    const bool fails = Fails(service::PropertyGet, Subject(key), result);
    const bool isWhole = RequireArguments(service::PropertyGet, {key, value});
    if (value == nullptr) {
        return 0;
    }
    const std::optional<std::string> set = fails || !isWhole ? std::nullopt : properties.Get(key);
    const std::string text =
        set.value_or(fallback != nullptr ? fallback : "").substr(0, PropertyValueSize - 1);
    std::memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

void HostServices::Log(LogRecord record, const char* format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    record.format = format;
    record.text.resize(static_cast<size_t>(std::max(length, 0)) + 1);
    static_cast<void>(std::vsnprintf(record.text.data(), record.text.size(), format, arguments));
    record.text.pop_back();

    RequirePhase(service::LogSystem, record.text);
    const auto* level = std::find_if(std::begin(LogLevels), std::end(LogLevels),
                                     [&](const LogLevel& known) { return known.word == record.levelWord; });
    if (contract.Require(level != std::end(LogLevels), "logs at the unknown level \"{}\"",
                         record.levelWord)) {
        contract.Require(level->letter == record.levelLetter, "logs at the level {} with the letter {}",
                         record.levelWord, record.levelLetter);
        contract.Require((g_enableLuxLogs & level->bit) != 0, "logs at the level {}, which is switched off",
                         record.levelWord);
    }
    log.Write(record);
}

int HostServices::PosixMemalign(void** block, size_t alignment, size_t size) {
    uint32_t result = 0;
    const bool fails = Fails(service::PosixMemalign, {}, result);
    if (!RequireArguments(service::PosixMemalign, {block}) || fails) {
        return static_cast<int>(result);
    }
    const int error = ::posix_memalign(block, alignment, size);
    if (error == 0) {
        allocations.Allocated(*block);
    }
    return error;
}

void* HostServices::Malloc(size_t size) {
    uint32_t result = 0;
    if (Fails(service::Malloc, {}, result)) {
        return nullptr;
    }
    void* block = std::malloc(size);
    if (block != nullptr) {
        allocations.Allocated(block);
    }
    return block;
}

void HostServices::Free(void* block) {
    allocations.Freed(block);
    std::free(block);
}

}  // namespace desk
