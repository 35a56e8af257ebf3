#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "tests/desk/rules/rogue.h"
#include "tests/support/folder.h"

using Misdeed = std::function<void(RogueCall&)>;
constexpr auto RT = desk::Variant::RealTime;
constexpr auto LA = desk::Variant::LookAhead;
constexpr auto Vendor = LumMetadataTypeVendorTag;
inline int elsewhere = 0;                       // an object that no host handed out
inline RogueCall rogue = {};                    // the latest step
inline Misdeed misdeed = [](auto&) {};          // what is done at the end of every step
inline std::function<void()> leftover = [] {};  // how a misdeed's own is cleared away, once it has been found

// A misdeed, and what spoils one field of a record, in the words of a row.
#define DO(...) [&]([[maybe_unused]] RogueCall& c) { __VA_ARGS__; }
#define WITH(...) [&](auto& record) { record.__VA_ARGS__; }

inline native_handle* OutputOf(RogueCall& call) {
    const LumImageList& list = *call.As<LumNodeProcessRequestInfo>().outputImageLists[0];
    return const_cast<native_handle*>(list.firstImage.pNativeHandle);
}

/// One life of the rogue under a host, and the steps in which it does its misdeed.
struct Life {
    unsigned steps = desk::PhaseOutside;
    desk::Variant variant = RT;
    std::vector<uint64_t> requests = {7};
    desk::Fault fault = nullptr;
};

/// What lines have after a mark. Each begins with a line feed.
inline std::vector<std::string> After(const std::string& mark, std::istream&& lines) {
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
        line.insert(0, "\n");
        if (const size_t begin = line.find(mark); begin != std::string::npos) {
            found.push_back(line.substr(begin + mark.size()));
        }
    }
    return found;
}

/// What sentences.txt has under a name, in the order of the lines.
inline std::vector<std::string> Sentences(const std::string& name) {
    const std::vector<std::string> sentences = After("\n" + name + ": ", std::ifstream(TEST_SENTENCES));
    EXPECT_EQ(sentences.empty(), name == "nothing") << name;
    return sentences;
}

/// What a host's log says that it found.
inline std::vector<std::string> FindingsIn(const std::string& log) {
    return After(" W DESK    : finding: ", std::istringstream(log));
}

/// What a host logs in a life. A request that is found at fault in its first pass has no second.
inline std::string LogOf(const Life& life, const Misdeed& done) {
    misdeed = [&](RogueCall& call) { (call.step & life.steps) != 0 ? done(call) : void(); };
    const std::filesystem::path library = TEST_ROGUE_LIBRARY;
    std::ostringstream log;
    {
        const TemporaryFolder dumps;
        desk::DeskHost host({library, library.parent_path(), dumps.path, &log});
        const desk::Contract& contract = host.contract;
        host.fault = life.fault;
        if (const auto node = host.CreateNode(life.variant); node->Handle() != nullptr) {
            node->Negotiate({64, 48}, {});
            const auto input = node->AllocateInput();
            const auto output = node->AllocateOutput();
            for (const uint64_t id : life.requests) {
                const size_t before = contract.List().size();
                desk::NodeRequest request(*node, {id, nullptr, input.get(), output.get()});
                request.FirstPass();
                if (contract.List().size() == before) {
                    request.SecondPass();
                }
            }
        }
        host.gate->DumpCoreNodeConfig(0, 0, nullptr);
        rogue.step = desk::PhaseOutside;
        misdeed(rogue);
        EXPECT_EQ(FindingsIn(log.str()), contract.List());
    }
    std::exchange(leftover, [] {})();
    return log.str();
}

/// What it finds.
inline std::vector<std::string> FindingsOf(const Life& life, const Misdeed& done) {
    return FindingsIn(LogOf(life, done));
}

/// Who does something in a step, in the words of the host.
inline std::string Caller(desk::Phase step, desk::Variant variant = RT) {
    desk::NodeState node;
    node.variant = variant;
    const bool isOfNode = step > desk::PhaseCaps && step != desk::PhaseRefusal;
    return desk::Describe({step, isOfNode ? &node : nullptr, 7});
}

/// Each misdeed alone: the host says what sentences.txt has under its name.
inline void Expect(const Life& life, const std::vector<std::pair<std::string, Misdeed>>& misdeeds) {
    for (const auto& [name, done] : misdeeds) {
        EXPECT_EQ(FindingsOf(life, done), Sentences(name)) << name;
    }
}
