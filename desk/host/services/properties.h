#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace desk {

/// The device's system properties. Thread safe.
class Properties {
public:
    /// Throws std::invalid_argument when the value is longer than a property can hold (91 bytes).
    void Set(const std::string& key, const std::string& value);
    std::optional<std::string> Get(const std::string& key) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> values_;
};

}  // namespace desk
