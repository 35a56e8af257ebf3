#pragma once

#include <chrono>

namespace bench {

/// That `action` takes.
template <typename Action>
double Seconds(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace bench
