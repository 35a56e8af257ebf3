#include "desk/output/say.h"

#include <cstddef>

namespace desk {
namespace {

/// The length in bytes of the character at a place that a terminal may be shown; 0 for a control character
/// and for what is no UTF-8.
size_t ShownBytes(const std::string& text, size_t at) {
    const auto byte = [&](size_t n) {
        return at + n < text.size() ? static_cast<unsigned char>(text[at + n]) : 0U;
    };
    const unsigned int first = byte(0);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    for (size_t n = 1; n < length; n++) {
        if ((byte(n) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    const bool isControl = first == 0xC2 && byte(1) < 0xA0;  // of the second set, U+0080 to U+009F
    const bool isOverlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    return first < 0xC2 || first > 0xF4 || isControl || isOverlong ? 0 : length;
}

}  // namespace

std::string Shown(const std::string& text) {
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const size_t length = ShownBytes(text, at);
        shown += length > 0 ? text.substr(at, length)
                            : fmt::format("\\x{:02X}", static_cast<unsigned char>(text[at]));
        at += length > 0 ? length : 1;
    }
    return shown;
}

}  // namespace desk
