#include "utils/fenutils.h"

#include <pthread.h>
#include <time.h>

#include "utils/checked.h"

namespace FenUtils {

uint64_t GetNanosecondsSinceEpoch() {
    constexpr uint64_t NanosecondsPerSecond = 1000000000;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return Orba::CheckedAdd(Orba::CheckedMul(static_cast<uint64_t>(now.tv_sec), NanosecondsPerSecond),
                            static_cast<uint64_t>(now.tv_nsec));
}

uint64_t GetThreadID() {
    return static_cast<uint64_t>(pthread_self());
}

}  // namespace FenUtils
