#pragma once

#include <map>
#include <string>

namespace desk {

/// Makes the imports of one loaded library point at other functions: every slot through which the
/// library calls one of the named symbols. Other libraries and the process keep theirs. The library must
/// have been loaded with RTLD_NOW, and none of its functions may run meanwhile.
/// `inside` is the address of anything in it. Throws std::runtime_error when the library's
/// tables cannot be read or written.
void RedirectImports(const void* inside, const std::map<std::string, void*>& replacements);

}  // namespace desk
