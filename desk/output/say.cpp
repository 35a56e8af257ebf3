#include "desk/output/say.h"

#include <cwchar>
#include <cwctype>

namespace desk {

std::string Shown(const std::string& text) {
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        std::mbstate_t state = {};
        wchar_t character = 0;
        const size_t length = std::mbrtowc(&character, &text[at], text.size() - at, &state);
        const bool isShown = length <= text.size() && std::iswprint(static_cast<std::wint_t>(character)) != 0;
        shown += isShown ? text.substr(at, length)
                         : fmt::format("\\x{:02X}", static_cast<unsigned char>(text[at]));
        at += isShown ? length : 1;
    }
    return shown;
}

}  // namespace desk
