#pragma once

#include <fmt/core.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "desk/base/guarded.h"
#include "desk/host/rules/node_call.h"

namespace desk {

/// The rules between host and node, and which of them were broken: one sentence per broken rule. A
/// sentence is kept and told once, however often its rule is broken in the same way. Thread safe.
class Contract {
public:
    /// `tell` hears every sentence that is kept, on the thread whose call broke the rule.
    explicit Contract(std::function<void(const std::string&)> tell);

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

private:
    Guarded<std::vector<std::string>> sentences_;
    const std::function<void(const std::string&)> tell_;
};

}  // namespace desk
