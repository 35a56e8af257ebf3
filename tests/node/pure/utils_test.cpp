#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "utils/fenutils.h"
#include "utils/orbamemory.h"
#include "utils/orbamutex.h"
#include "utils/orbaosutils.h"
#include "utils/orbatrace.h"

// Not every compiler declares the sized forms by itself.
void operator delete(void* p, size_t size) noexcept;
void operator delete[](void* p, size_t size) noexcept;
void operator delete(void* p, size_t size, std::align_val_t alignment) noexcept;
void operator delete[](void* p, size_t size, std::align_val_t alignment) noexcept;

namespace {

std::vector<std::string> g_trace;
uint64_t g_enabledTags = 0;

void* volatile g_memory = nullptr;

/// The same pointer, of which the compiler no longer thinks that it is not null and its memory indeterminate.
void* Launder(void* p) {
    g_memory = p;
    return g_memory;
}

}  // namespace

// The platform's trace bodies, as the mutex reaches them.
extern "C" {
uint64_t atrace_get_enabled_tags() {
    return g_enabledTags;
}
void atrace_begin_body(const char* name) {
    g_trace.push_back(std::string("begin ") + name);
}
void atrace_end_body() {
    g_trace.emplace_back("end");
}
void atrace_async_begin_body(const char* name, int32_t cookie) {
    g_trace.push_back("async begin " + std::string(name) + " " + std::to_string(cookie));
}
void atrace_async_end_body(const char* name, int32_t cookie) {
    g_trace.push_back("async end " + std::string(name) + " " + std::to_string(cookie));
}
}

TEST(Memory, RefusesWhatIsNoRequestAndAlignsTheRest) {
    EXPECT_EQ(OrbaCalloc(0, 0, 1, 0, nullptr, 0), nullptr);
    EXPECT_EQ(OrbaCalloc(16, 3, 1, 0, nullptr, 0), nullptr);
    EXPECT_EQ(OrbaCalloc(SIZE_MAX / 2, 0, 1, 0, nullptr, 0), nullptr);
    OrbaFree(nullptr, 0, nullptr, 0);
    for (const uint32_t alignment : {0U, 1U, 2U, 8U, 64U, 4096U}) {
        void* p = OrbaCalloc(16, alignment, 0, 0, nullptr, 0);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % std::max(alignment, 8U), 0U) << alignment;
        OrbaFree(p, 0, nullptr, 0);
    }
}

TEST(Memory, EveryOperatorZeroFills) {
    constexpr size_t size = 4096;
    const auto fromDirty = [](auto allocate, auto release) {
        // The heap hands freed memory out again: dirty a block of the size first.
        void* dirty = Launder(allocate(size));
        std::memset(dirty, 0xEE, size);
        release(dirty);
        void* p = Launder(allocate(size));
        EXPECT_EQ(std::memcmp(p, std::vector<char>(size).data(), size), 0);
        release(p);
    };
    // Each form of new with its forms of delete; `tag` is what follows the size.
    const auto forms = [&](auto... tag) {
        fromDirty([=](size_t n) { return ::operator new(n, tag...); },
                  [=](void* p) { ::operator delete(p, tag...); });
        fromDirty([=](size_t n) { return ::operator new[](n, tag...); },
                  [=](void* p) { ::operator delete[](p, tag...); });
        if constexpr ((std::is_same_v<decltype(tag), std::align_val_t> && ...)) {
            fromDirty([=](size_t n) { return ::operator new(n, tag...); },
                      [=](void* p) { ::operator delete(p, size, tag...); });
            fromDirty([=](size_t n) { return ::operator new[](n, tag...); },
                      [=](void* p) { ::operator delete[](p, size, tag...); });
        }
    };
    constexpr std::align_val_t alignment{64};
    forms();
    forms(std::nothrow);
    forms(alignment);
    forms(alignment, std::nothrow);
    fromDirty([](size_t n) { return ::operator new(n, 0, 0, nullptr, 0); },
              [](void* p) { ::operator delete(p); });
    EXPECT_EQ(Launder(::operator new(0)), nullptr) << "no smallest size is applied";
}

TEST(Text, CopiesBoundedAndTerminated) {
    char text[8];
    std::memset(text, 'x', sizeof(text));
    Orba::OsUtils::StrLCpy(text, "stabiliser", sizeof(text));
    EXPECT_STREQ(text, "stabili");
    Orba::OsUtils::StrLCpy(text, "a", 0);
    EXPECT_STREQ(text, "stabili");
    EXPECT_EQ(Orba::OsUtils::SNPrintF(text, sizeof(text), "%s-%d", "warped", 12), 9);
    EXPECT_STREQ(text, "warped-");
    EXPECT_FALSE(Orba::Utils::IsPowerOfTwo(0));
    EXPECT_TRUE(Orba::Utils::IsPowerOfTwo(size_t{1} << 63));
    EXPECT_FALSE(Orba::Utils::IsPowerOfTwo(12));
}

TEST(Mutex, IsRecursiveAndExcludesOthers) {
    Orba::Mutex* mutex = Orba::Mutex::Create("LUMDEWARPNODE_2");
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(mutex->GetNativeHandle(), static_cast<void*>(mutex)) << "the platform mutex comes first";
    ::alarm(60);  // a lock that cannot be taken twice would wait for itself
    mutex->Lock();
    mutex->Lock();
    ::alarm(0);
    const auto triedElsewhere = [mutex] {
        return std::async(std::launch::async,
                          [mutex] {
                              auto* native = static_cast<pthread_mutex_t*>(mutex->GetNativeHandle());
                              const int result = pthread_mutex_trylock(native);
                              return result == 0 ? pthread_mutex_unlock(native) : result;
                          })
            .get();
    };
    mutex->Unlock();
    EXPECT_EQ(triedElsewhere(), EBUSY);
    mutex->Unlock();
    EXPECT_EQ(triedElsewhere(), 0);
    mutex->Destroy();
    EXPECT_TRUE(g_trace.empty()) << "tracing is dormant unless its bit is set";
}

TEST(Mutex, TracesUnderItsCutNameWhileItsBitIsSet) {
    g_traceEnableMask = OrbaTraceMutex;
    g_enabledTags = ATRACE_TAG_HAL;
    Orba::Mutex* mutex = Orba::Mutex::Create(std::string(200, 'n').c_str());
    ASSERT_NE(mutex, nullptr);
    const std::string name(127, 'n');
    const std::string cookie =
        std::to_string(static_cast<int32_t>(reinterpret_cast<uintptr_t>(mutex->GetNativeHandle())));
    mutex->Lock();
    mutex->Unlock();
    const std::string held = name + ": Mutex Held " + cookie;
    EXPECT_EQ(std::exchange(g_trace, {}),
              (std::vector<std::string>{"begin Mutex Init", "end", "begin " + name + ": Mutex::Lock",
                                        "async begin " + held, "end", "async end " + held}));
    g_enabledTags = ATRACE_TAG_GRAPHICS;
    mutex->Lock();
    mutex->Unlock();
    EXPECT_TRUE(g_trace.empty()) << "the platform traces other tags";
    g_traceEnableMask = 0;
    mutex->Destroy();
}

TEST(Development, TellsTimeAndThread) {
    EXPECT_GT(FenUtils::GetNanosecondsSinceEpoch(), 1600000000ULL * 1000000000ULL);
    EXPECT_EQ(FenUtils::GetThreadID(), static_cast<uint64_t>(pthread_self()));
}
