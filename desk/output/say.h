#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <utility>

namespace desk {

/// The text with \xNN for every byte of a control character, and of what is none in the program's locale:
/// texts of foreign files may hold some, and a terminal obeys them.
std::string Shown(const std::string& text);

/// Prints a line of the program's own. Whether it arrived, main finds out in the end.
template <typename... Args>
void Say(std::FILE* stream, fmt::format_string<Args...> form, Args&&... args) {
    static_cast<void>(
        std::fputs((Shown(fmt::format(form, std::forward<Args>(args)...)) + "\n").c_str(), stream));
}

}  // namespace desk
