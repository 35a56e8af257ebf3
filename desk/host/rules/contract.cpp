#include "desk/host/rules/contract.h"

#include <algorithm>
#include <utility>

namespace desk {

Contract::Contract(std::function<void(const std::string&)> tell) : tell_(std::move(tell)) {}

void Contract::Report(const std::string& sentence) {
    const bool isNew = sentences_.With([&](auto& sentences) {
        const bool isKnown = std::find(sentences.begin(), sentences.end(), sentence) != sentences.end();
        if (!isKnown) {
            sentences.push_back(sentence);
        }
        return !isKnown;
    });
    if (isNew) {
        tell_(sentence);
    }
}

std::vector<std::string> Contract::List() const {
    return sentences_.With([](const auto& sentences) { return sentences; });
}

}  // namespace desk
