#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <utility>

namespace desk {

/// The text without control characters: names and texts of foreign files may hold some, and a terminal obeys
/// them. Those, and bytes that are no UTF-8, become \xNN.
std::string Shown(const std::string& text);

/// Prints a line of the program's own. Whether it arrived, main finds out in the end.
template <typename... Args>
void Say(std::FILE* stream, fmt::format_string<Args...> form, Args&&... args) {
    const std::string line = Shown(fmt::format(form, std::forward<Args>(args)...)) + "\n";
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stream));
}

}  // namespace desk
