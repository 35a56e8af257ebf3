#pragma once

#include <fmt/core.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "desk/host/rules/node_call.h"
#include "desk/host/services/log_sink.h"

namespace desk {

/// The rules between host and node, and which of them were broken: one sentence per broken rule. A
/// sentence is kept and logged once, however often its rule is broken in the same way. Thread safe.
class Contract {
public:
    /// `log` must outlive the contract.
    explicit Contract(LogSink& log);

    /// Records a finding of the host's own.
    void Report(const std::string& sentence);

    /// Records that the running callback broke a rule, unless it `holds`. The sentence goes on from the
    /// words that tell who called, for example "the real-time node in the first pass of request 7 ...".
    /// Returns `holds`.
    template <typename... Args>
    bool Require(bool holds, fmt::format_string<Args...> sentence, Args&&... args) {
        if (!holds) {
            Report(Describe(CurrentCall()) + " " + fmt::format(sentence, std::forward<Args>(args)...));
        }
        return holds;
    }

    std::vector<std::string> List() const;
    bool Empty() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> sentences_;
    LogSink& log_;
};

}  // namespace desk
