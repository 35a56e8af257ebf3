// Preloaded, it makes renaming what it is on file systems that know no flags for it.

#include <cerrno>
#include <cstdio>

extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                         unsigned int flags) noexcept {
    if (flags == 0) {
        return renameat(fromFolder, from, toFolder, to);
    }
    errno = flags == RENAME_NOREPLACE ? ENOSYS : EINVAL;  // by the age of the system
    return -1;
}
