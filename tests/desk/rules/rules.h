#pragma once

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/host/node_request.h"
#include "tests/desk/rules/rogue.h"

constexpr auto RT = desk::Variant::RealTime;
constexpr auto LA = desk::Variant::LookAhead;
constexpr auto Vendor = LumMetadataTypeVendorTag;
inline int elsewhere = 0;                       // an object that no host handed out
inline std::function<void()> leftover = [] {};  // how a misdeed's own is cleared away, once it has been found

// A misdeed, and what spoils one field of a record, in the words of a row.
#define DO(...) [&]([[maybe_unused]] RogueCall& c) { __VA_ARGS__; }
#define WITH(...) [&](auto& record) { record.__VA_ARGS__; }

/// A function of the rogue's own. It stays loaded from one host to the next.
template <typename Function>
Function OfRogue(const char* name) {
    static void* const library = ::dlopen(TEST_ROGUE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<Function>(::dlsym(library, name));
}

inline native_handle* OutputOf(RogueCall& call) {
    const LumImageList& list = *call.As<LumNodeProcessRequestInfo>().outputImageLists[0];
    return const_cast<native_handle*>(list.firstImage.pNativeHandle);
}

/// One life of the rogue under a host, and the step in which it does its misdeed.
struct Life {
    desk::Phase step = desk::PhaseOutside;
    desk::Variant variant = RT;
    std::vector<uint64_t> requests = {7};
    desk::Fault fault = nullptr;
};

/// What a host finds in a life. A request that is found at fault in its first pass has no second.
inline std::vector<std::string> FindingsOf(const Life& life, const Misdeed& misdeed) {
    const Misdeed inStep = [&](RogueCall& call) { call.step == life.step ? misdeed(call) : void(); };
    OfRogue<decltype(&RogueSet)>("RogueSet")(&inStep);
    const std::filesystem::path rogue = TEST_ROGUE_LIBRARY;
    desk::DeskHost host({rogue, rogue.parent_path(), ::testing::TempDir(), nullptr});
    const desk::Contract& contract = host.State().contract;
    host.State().fault = life.fault;
    if (const auto node = host.CreateNode(life.variant); node->Handle() != nullptr) {
        node->Negotiate({64, 48}, {});
        const auto input = node->AllocateInput();
        const auto output = node->AllocateOutput();
        for (const uint64_t id : life.requests) {
            const size_t before = contract.List().size();
            desk::NodeRequest request(host, *node, {id, nullptr, input.get(), output.get()});
            request.FirstPass();
            if (contract.List().size() == before) {
                request.SecondPass();
            }
        }
    }
    host.Callbacks().DumpCoreNodeConfig(0, 0, nullptr);
    OfRogue<decltype(&RogueStep)>("RogueStep")(desk::PhaseOutside, nullptr);
    host.CheckTornDown();
    std::exchange(leftover, [] {})();
    return contract.List();
}

/// Who does something in a step, in the words of the host.
inline std::string Caller(desk::Phase step) {
    desk::NodeState node;
    node.variant = RT;
    const bool isOfNode = step > desk::PhaseCaps && step != desk::PhaseRefusal;
    return desk::Describe({step, isOfNode ? &node : nullptr, 7, nullptr});
}

/// Each misdeed alone: the host says what sentences.txt has after its name and ": ", in the order of the
/// lines.
inline void Expect(const Life& life, const std::vector<std::pair<std::string, Misdeed>>& misdeeds) {
    std::map<std::string, std::vector<std::string>> sentences;
    std::ifstream file(TEST_SENTENCES);
    for (std::string line; std::getline(file, line);) {
        const size_t end = line.find(": ");
        sentences[line.substr(0, end)].push_back(line.substr(end + 2));
    }
    for (const auto& [name, misdeed] : misdeeds) {
        EXPECT_EQ(sentences.count(name) == 0, name == "nothing") << name;
        EXPECT_EQ(FindingsOf(life, misdeed), sentences[name]) << name;
    }
}
