#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

namespace Orba {

/// A named recursive mutex: the thread that holds it may lock it again. Made by Create and released by
/// Destroy, never by a destructor. With the mutex trace bit set, every operation leaves a trace marker.
class Mutex {
public:
    static constexpr size_t MaxName = 128;  ///< bytes, the terminator included

    /// A new mutex owned by the caller, or null. Longer names are cut.
    static Mutex* Create(const char* mutexName);

    /// 0, or 1 when the platform refused; then the mutex stays invalid.
    uint32_t Initialize(const char* mutexName);

    /// Destroys the platform mutex if there is one and releases the object.
    void Destroy();

    void Lock();
    void Unlock();

    /// The platform mutex, or null when it could not be made.
    void* GetNativeHandle();

private:
    int32_t TraceCookie();

    // First, so that the object's address is the platform mutex's address.
    pthread_mutex_t mutex;
    uint32_t valid;
    char name[MaxName];
};

}  // namespace Orba
