// The host's records, with sizes from 0 up and fields of any value. A record is as large on the heap as it
// says it is, or as the little that every callback reads; so any step outside of it is seen.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <vector>

#include "tests/node/fuzz/fuzz_host.h"

namespace {

/// Runs a call of which it is known beforehand whether it has to end the process; if so, in a child.
template <typename Call>
void RunPredicted(bool isAborting, Call call) {
    if (!isAborting) {
        return call();
    }
    const pid_t child = ::fork();
    Require(child >= 0, "no child process can be made");
    if (child == 0) {
        static_cast<void>(std::signal(SIGABRT, SIG_DFL));
        call();
        ::_exit(0);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
        // The fuzzer's own timer interrupts the wait.
    }
    Require(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT, "a call goes on that has to end the process");
}

/// A record too small for its callback, which has to refuse it, and to leave it alone.
template <typename Record>
void SendSmall(FuzzInput& input, FuzzHost& fuzz, uint32_t (desk::NodeGate::*callback)(Record*),
               void* handle) {
    constexpr bool hasHandle = sizeof(Record) > 16 || std::is_same_v<Record, LumNodedestroyInfo>;
    constexpr size_t readAnyway = (hasHandle && !std::is_same_v<Record, LumNodeCreateInfo>) ? 16 : 4;
    const auto size = static_cast<uint32_t>(input.Take<uint16_t>() % sizeof(Record));
    std::vector<unsigned char> memory(std::max<size_t>(size, readAnyway));
    std::generate(memory.begin(), memory.end(), [&input] { return input.Take<unsigned char>(); });
    std::memcpy(memory.data(), &size, sizeof(size));
    void* session = input.Below(2) == 0 ? nullptr : handle;
    if (readAnyway == 16) {
        std::memcpy(memory.data() + 8, &session, sizeof(session));
    }
    const std::vector<unsigned char> before = memory;
    const uint32_t expected = (readAnyway == 16 && session == nullptr) ? 5 : 1;
    Require(((*fuzz.host.gate).*callback)(reinterpret_cast<Record*>(memory.data())) == expected,
            "a small record has another result");
    Require(memory == before, "a refused record is written to");
}

/// What negotiation makes of one size, in wide arithmetic; false when it does not fit 32 bits.
bool IsFitting(uint32_t size, float margin) {
    const float product = static_cast<float>(size) * margin;
    const uint64_t border = !(product > 0)             ? 0
                            : product >= 4294967296.0F ? 0xffffffffU
                                                       : static_cast<uint64_t>(product);
    return (size & ~uint64_t{1}) + (border & ~uint64_t{1}) <= 0xffffffffU;
}

void SendQuery(FuzzInput& input, FuzzHost& fuzz, desk::DeskNode& node) {
    const uint32_t ports = input.Below(4);
    const LumStabilizationMargin margin = {input.Take<float>(), input.Take<float>()};
    fuzz.host.metadata.Set(node.Session(), 0, desk::TagOf(desk::TagKind::RequestedMargin, node.Kind()),
                           margin);
    std::vector<LumNodeBufferRequirement> downstream(ports);
    std::vector<LumOutputPortQueryInfo> outputs(ports);
    std::vector<LumInputPortQueryInfo> inputs(ports);
    bool isAborting = false;
    for (uint32_t i = 0; i < ports; ++i) {
        downstream[i] = input.Take<LumNodeBufferRequirement>();
        downstream[i].optimalWidth +=
            downstream[i].optimalWidth < 2 ? 2U : 0U;  // the host asks for no empty image
        downstream[i].optimalHeight += downstream[i].optimalHeight < 2 ? 2U : 0U;
        outputs[i].pDownstreamRequirement = &downstream[i];
        isAborting = isAborting || !IsFitting(downstream[i].optimalWidth, margin.horizontal) ||
                     !IsFitting(downstream[i].optimalHeight, margin.vertical);
    }
    LumNodeQueryBufferInfo query = {};
    query.size = sizeof(query) + input.Below(9);
    query.hNodeSession = node.Handle();
    query.numOutputPorts = ports;
    query.pOutputPortQueryInfo = outputs.data();
    query.pInputOptions = inputs.data();
    RunPredicted(isAborting, [&] { Require(fuzz.host.gate->QueryBufferInfo(&query) == 0, "a query fails"); });
}

void SendRequest(FuzzInput& input, FuzzHost& fuzz, desk::DeskNode& node) {
    std::vector<LumImageList> lists(input.Below(12));
    std::vector<LumImageList*> pointers;
    char fence = 0;
    unsigned fences = 0;
    for (LumImageList& list : lists) {
        list.pFenceHandle = input.Below(4) != 0 ? &fence : nullptr;
        list.pFenceSignaled = input.Below(4) != 0 ? &fence : nullptr;
        const bool isListed = input.Below(8) != 0;
        pointers.push_back(isListed ? &list : nullptr);
        fences += (isListed && list.pFenceHandle != nullptr && list.pFenceSignaled != nullptr) ? 1U : 0U;
    }
    const auto dependency = std::make_unique<LumDependencyInfo>();
    dependency->processSequenceId = input.Take<uint32_t>();
    LumNodeProcessRequestInfo request = {};
    request.size = sizeof(request);
    request.hNodeSession = node.Handle();
    request.requestId = input.Take<uint64_t>();
    request.pDependency = dependency.get();
    request.inputCount = static_cast<uint32_t>(pointers.size());
    request.inputImageLists = input.Below(8) != 0 ? pointers.data() : nullptr;
    fences = request.inputImageLists == nullptr ? 0 : fences;
    const uint32_t sequence = dependency->processSequenceId & 0xffffU;
    const LumDependencyInfo before = *dependency;
    RunPredicted(sequence == 0 && fences > 8, [&] {
        // The second pass finds no grid and fails before it looks at the lists.
        Require(fuzz.host.gate->ProcRequest(&request) == (sequence == 1 ? 1U : 0U),
                "a request's result differs");
        Require(sequence <= 1 || (std::memcmp(dependency.get(), &before, sizeof(before)) == 0 &&
                                  request.lookAheadComplete == 0),
                "a request of no known pass is written to");
    });
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    FuzzHost& fuzz = FuzzHost::Get();
    using Node = desk::NodeGate;
    auto node = fuzz.host.CreateNode(Variants[input.Below(2)]);
    const auto small = [&](auto callback) { SendSmall(input, fuzz, callback, node->Handle()); };
    const std::function<void()> actions[] = {
        [&] { small(&Node::GetCaps); },         [&] { small(&Node::Create); },
        [&] { small(&Node::Destroy); },         [&] { small(&Node::QueryBufferInfo); },
        [&] { small(&Node::SetBufferInfo); },   [&] { small(&Node::ProcRequest); },
        [&] { SendQuery(input, fuzz, *node); }, [&] { SendRequest(input, fuzz, *node); }};
    while (!input.IsEmpty()) {
        actions[input.Below(8)]();
    }
    node.reset();
    fuzz.RequireClean();
    return 0;
}
