#include "desk/host/services/properties.h"

#include <fmt/core.h>

#include <stdexcept>

#include "platform/properties.h"

namespace desk {

void Properties::Set(const std::string& key, const std::string& value) {
    if (value.size() >= PropertyValueSize) {
        throw std::invalid_argument(fmt::format("the value of the property {} has {} bytes; at most {} fit",
                                                key, value.size(), PropertyValueSize - 1));
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    values_[key] = value;
}

std::optional<std::string> Properties::Get(const std::string& key) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional<std::string>(found->second);
}

}  // namespace desk
