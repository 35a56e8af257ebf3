#include "desk/host/rules/node_call.h"

#include <fmt/core.h>

namespace desk {
namespace {

/// One per bit of Phase, in its order.
constexpr const char* PhaseNames[] = {"outside of every callback",
                                      "in LumNodeEntry",
                                      "in SetNodeInterface",
                                      "in GetCaps",
                                      "in its creation",
                                      "in QueryBufferInfo",
                                      "in SetBufferInfo",
                                      "in the first pass",
                                      "in the second pass",
                                      "in its destruction",
                                      "in a call that it has to refuse"};

}  // namespace

NodeCall& CurrentCall() {
    static thread_local NodeCall current;
    return current;
}

std::string Describe(const NodeCall& call) {
    std::string text = "the library";
    if (call.node != nullptr) {
        text = call.node->variant ? fmt::format("the {} node", NameOf(*call.node->variant)) : "the node";
    }
    text += fmt::format(" {}", PhaseNames[__builtin_ctz(call.phase)]);
    if ((call.phase & (PhaseFirstPass | PhaseSecondPass)) != 0) {
        text += fmt::format(" of request {}", call.requestId);
    }
    return text;
}

}  // namespace desk
