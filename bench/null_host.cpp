#include "bench/null_host.h"

#include <dlfcn.h>

#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "desk/warp/grid_size.h"
#include "host/grallocmetadata.h"
#include "host/lumlog.h"
#include "host/lumnodeutils.h"
#include "platform/properties.h"

// The symbols that a host exports to its nodes. Logs stay off.
uint32_t g_enableLuxLogs = 0;
uint32_t g_enableSystemLog = 0;

namespace {

bool isDumped = false;
const IPEICAGridTransform* currentGrid = nullptr;

}  // namespace

namespace LumLog {
void LogSystem(const char*, const char*, const char*, const char*, int32_t, const char*, ...) {}
}  // namespace LumLog

namespace LumNodeUtils {

uint32_t SetNodeInterface(LumNodeInterface* host, const char*, LumNodeInterface* copy,
                          uint32_t* vendorTagBase) {
    *copy = *host;
    *vendorTagBase = 0;
    return 0;
}
void* GetMetaData(uint64_t, uint32_t, LumMetadataType, LumNodeInterface*, void*, uint32_t) {
    return const_cast<IPEICAGridTransform*>(currentGrid);
}
void GetAlignment(uint32_t, uint32_t, uint32_t, LumFormat, int32_t*, int32_t*) {}
void GetDateTime(LUMDateTime* dateTime) {
    *dateTime = {};
}
FILE* FOpen(const char*, const char* mode) {
    return std::fopen("/dev/null", mode);
}
int32_t FClose(FILE* file) {
    return std::fclose(file);
}
size_t FWrite(const void* buffer, size_t size, size_t count, FILE* file) {
    return std::fwrite(buffer, size, count, file);
}
int32_t VSNPrintF(char* buffer, size_t size, const char* format, va_list arguments) {
    return std::vsnprintf(buffer, size, format, arguments);
}
void* LibMapFullName(const char*) {
    return &isDumped;  // any address: there is one null GL
}
void* LibGetAddr(void*, const char* symbol) {
    return bench::NullGlSymbol(symbol);
}
uint32_t LibUnmap(void*) {
    return 0;
}

}  // namespace LumNodeUtils

int32_t Orba::Gralloc::SetGrallocMetaData(const native_handle*, uint32_t, uint32_t, const void*) {
    return 0;
}

// Found before the platform's own, since the executable comes first.
extern "C" int property_get(const char*, char* value, const char*) {
    value[0] = isDumped ? '1' : '0';
    value[1] = '\0';
    return 1;
}

namespace bench {
namespace {

LumNodeCallbacks Load(const char* nodeLibrary) {
    void* library = dlopen(nodeLibrary, RTLD_NOW);
    if (library == nullptr) {
        throw std::runtime_error(std::string("expected the node library, got \"") + dlerror() + "\"");
    }
    LumNodeCallbacks callbacks = {};
    callbacks.size = sizeof(callbacks);
    reinterpret_cast<decltype(&LumNodeEntry)>(dlsym(library, "LumNodeEntry"))(&callbacks);
    LumNodeInterface interface = {};
    interface.size = sizeof(interface);
    interface.GetVendorTagBase = [](LumVendorTagBaseInfo* info) {
        info->vendorTagBase = 0x100;
        return 0U;
    };
    interface.SetMetadata = [](LumMetadataInfo* /*info*/) { return 0U; };
    interface.QueryRequestWindow = [](void* /*session*/, LumRequestWindowInfo* /*window*/) { return 0U; };
    callbacks.SetNodeInterface(&interface);
    return callbacks;
}

/// Of the library, which is loaded by the first call.
const LumNodeCallbacks& Callbacks(const char* nodeLibrary) {
    static const LumNodeCallbacks callbacks = Load(nodeLibrary);
    return callbacks;
}

native_handle_t nativeHandle = {sizeof(native_handle_t), 0, 0, {}};

LumImageList MakeList(const NodeSetup& setup, uint32_t fd) {
    LumImageList list = {};
    list.format = static_cast<LumFormat>(3);
    list.width = list.stride = setup.width;
    list.height = list.scanline = setup.height;
    list.firstImage.fd = fd;
    list.firstImage.pAddr = &nativeHandle;
    list.firstImage.pNativeHandle = reinterpret_cast<native_handle*>(&nativeHandle);
    return list;
}

}  // namespace

const IPEICAGridTransform& Grid() {
    static const IPEICAGridTransform grid = [] {
        IPEICAGridTransform made = {};
        made.gridTransformEnable = 1;
        constexpr int MiddleColumn = desk::GridColumns / 2;
        constexpr int MiddleRow = desk::GridRows / 2;
        GridPoint* point = made.gridTransformArray;
        for (int row = 0; row < desk::GridRows; ++row) {
            for (int column = 0; column < desk::GridColumns; ++column) {
                const auto x = static_cast<float>(column - MiddleColumn);
                const auto y = static_cast<float>(row - MiddleRow);
                *point++ = {x * 60.0F + 3.0F * std::sin(y), y * 45.0F + 2.0F};
            }
        }
        return made;
    }();
    return grid;
}

NullNode::NullNode(const char* nodeLibrary, const NodeSetup& setup) : callbacks_(Callbacks(nodeLibrary)) {
    isDumped = setup.isDumped;
    LumNodeCreateInfo create = {};
    create.size = sizeof(create);
    create.nodeCaps = LumNodeCapsDewarpRealTime;
    if (callbacks_.Create(&create) != 0) {
        throw std::runtime_error("expected a node, got a refusal of the library");
    }
    handle_ = create.phNodeSession;
    for (uint32_t i = 0; i < setup.buffers; ++i) {
        inputs_.push_back(MakeList(setup, 2 * i));
        outputs_.push_back(MakeList(setup, 2 * i + 1));
    }
    grid_.gridTransformEnable = setup.isGridUsed ? 1 : 0;
    request_.size = sizeof(request_);
    request_.hNodeSession = handle_;
    request_.pDependency = &dependency_;
    request_.inputCount = request_.outputCount = 1;
    request_.inputImageLists = &input_;
    request_.outputImageLists = &output_;
}

NullNode::~NullNode() {
    LumNodedestroyInfo destroy = {};
    destroy.size = sizeof(destroy);
    destroy.hNodeSession = handle_;
    callbacks_.Destroy(&destroy);
}

void NullNode::FirstPass() {
    input_ = &inputs_[next_];
    output_ = &outputs_[next_];
    next_ = (next_ + 1 == inputs_.size()) ? 0 : next_ + 1;
    ++request_.requestId;
    dependency_.processSequenceId = 0;
    Call();
}

void NullNode::SecondPass() {
    currentGrid = &grid_;
    Call();
}

void NullNode::Call() {
    if (callbacks_.ProcRequest(&request_) != 0) {
        throw std::runtime_error("expected the node to serve the request, got a failure");
    }
}

void NullNode::ReplaceBuffers() {
    for (std::vector<LumImageList>* lists : {&inputs_, &outputs_}) {
        for (LumImageList& list : *lists) {
            list.firstImage.pAddr = static_cast<char*>(list.firstImage.pAddr) + 1;
        }
    }
}

}  // namespace bench
