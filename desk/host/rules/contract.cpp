#include "desk/host/rules/contract.h"

#include <algorithm>

namespace desk {

Contract::Contract(LogSink& log) : log_(log) {}

void Contract::Report(const std::string& sentence) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (std::find(sentences_.begin(), sentences_.end(), sentence) != sentences_.end()) {
            return;
        }
        sentences_.push_back(sentence);
    }
    log_.WriteOwn("finding: " + sentence);
}

std::vector<std::string> Contract::List() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sentences_;
}

bool Contract::Empty() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sentences_.empty();
}

}  // namespace desk
