#include "desk/host/rules/node_call.h"

#include <fmt/core.h>

namespace desk {
namespace {

thread_local NodeCall currentCall;

const char* NameOf(Phase phase) {
    switch (phase) {
        case PhaseOutside:
            return "outside of every callback";
        case PhaseEntry:
            return "in LumNodeEntry";
        case PhaseInterface:
            return "in SetNodeInterface";
        case PhaseCaps:
            return "in GetCaps";
        case PhaseCreate:
            return "in its creation";
        case PhaseQuery:
            return "in QueryBufferInfo";
        case PhaseSetBuffer:
            return "in SetBufferInfo";
        case PhaseFirstPass:
            return "in the first pass";
        case PhaseSecondPass:
            return "in the second pass";
        case PhaseDestroy:
            return "in its destruction";
        case PhaseRefusal:
            return "in a call that it has to refuse";
    }
    return "in an unknown phase";
}

}  // namespace

const NodeCall& CurrentCall() {
    return currentCall;
}

NodeCallScope::NodeCallScope(const NodeCall& call) : previous_(currentCall) {
    currentCall = call;
}

NodeCallScope::~NodeCallScope() {
    currentCall = previous_;
}

std::string Describe(const NodeCall& call) {
    std::string text = "the library";
    if (call.node != nullptr) {
        text =
            call.node->variant ? fmt::format("the {} node", desk::NameOf(*call.node->variant)) : "the node";
    }
    text += fmt::format(" {}", NameOf(call.phase));
    if ((call.phase & (PhaseFirstPass | PhaseSecondPass)) != 0) {
        text += fmt::format(" of request {}", call.requestId);
    }
    return text;
}

}  // namespace desk
