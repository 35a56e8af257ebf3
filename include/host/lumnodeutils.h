#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "host/lummetadata.h"
#include "host/lumnode.h"

/// Local date and time, as the host's utilities fill it.
struct LUMDateTime {
    int32_t seconds;
    int32_t minutes;
    int32_t hours;
    int32_t dayOfMonth;
    int32_t month;  ///< 0 to 11
    int32_t year;   ///< since 1900
    uint8_t reserved24[32];
};
static_assert(offsetof(LUMDateTime, minutes) == 4, "host layout");
static_assert(offsetof(LUMDateTime, hours) == 8, "host layout");
static_assert(offsetof(LUMDateTime, dayOfMonth) == 12, "host layout");
static_assert(offsetof(LUMDateTime, month) == 16, "host layout");
static_assert(offsetof(LUMDateTime, year) == 20, "host layout");
static_assert(sizeof(LUMDateTime) == 56, "host layout");

/// The host's node utilities. What is only declared here lives in the host process and is resolved by the
/// dynamic linker, where that one looks (docs/DEVICE.md); what is defined here is carried by the node.
namespace LumNodeUtils {

/// Copies the host's table into `copy` and fills the vendor tag base. Returns a result code.
uint32_t SetNodeInterface(LumNodeInterface* host, const char* nodeName, LumNodeInterface* copy,
                          uint32_t* vendorTagBase);

/// The payload of a tag, owned by the host, or null.
void* GetMetaData(uint64_t requestId, uint32_t tagId, LumMetadataType type, LumNodeInterface* nodeInterface,
                  void* session, uint32_t reserved);

/// The alignments of one plane. A plane that has none leaves both values as they were.
void GetAlignment(uint32_t width, uint32_t height, uint32_t plane, LumFormat format, int32_t* strideAlignment,
                  int32_t* scanlineAlignment);

void GetDateTime(LUMDateTime* dateTime);

/// As fopen, fclose and fwrite.
FILE* FOpen(const char* path, const char* mode);
int32_t FClose(FILE* file);
size_t FWrite(const void* buffer, size_t size, size_t count, FILE* file);

/// As vsnprintf.
__attribute__((format(printf, 3, 0))) int32_t VSNPrintF(char* buffer, size_t size, const char* format,
                                                        va_list arguments);

/// Maps a shared library by its full path; null when it cannot be mapped.
void* LibMapFullName(const char* fullPath);
/// The address of a symbol of a mapped library, or null.
void* LibGetAddr(void* library, const char* symbol);
/// Unmaps a library. Returns a result code.
uint32_t LibUnmap(void* library);

/// As snprintf, formatted by the host.
__attribute__((format(printf, 3, 4))) inline int32_t SNPrintF(char* buffer, size_t size, const char* format,
                                                              ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = VSNPrintF(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

/// Resolves (section, tag name) through the given services table. `info` must be zeroed; on result 0
/// its vendorTagBase is the tag id. Any other result is the host's own.
inline uint32_t GetVendorTagBase(const char* section, const char* tagName, LumNodeInterface* nodeInterface,
                                 LumVendorTagBaseInfo* info) {
    info->size = sizeof(LumVendorTagBaseInfo);
    info->pComponentName = section;
    info->pTagName = tagName;
    return nodeInterface->GetVendorTagBase(info);
}

/// The value with bit 0 cleared.
constexpr uint32_t EvenFloorUINT32(uint32_t value) {
    return value & ~1U;
}

/// The larger of two; the first when they are equal.
constexpr uint32_t MaxUINT32(uint32_t a, uint32_t b) {
    return (b > a) ? b : a;
}

/// How far a request lies after the reference; the request id itself when it does not.
constexpr uint64_t GetRequestIdOffset(uint64_t requestId, uint64_t reference) {
    return (requestId > reference) ? requestId - reference : requestId;
}

}  // namespace LumNodeUtils
