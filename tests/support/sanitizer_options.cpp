// What the sanitizers ask a program for when they start; without one nobody asks. Nothing of this project is
// left out of their view.

extern "C" {

/// A failed allocation is a null result here, as it is without a sanitizer. Of thread-local storage in
/// libraries loaded later the leak checker keeps a table that it reads wrongly itself, at times, and then
/// crashes.
const char* __asan_default_options() {
    return "allocator_may_return_null=1:intercept_tls_get_addr=0";
}

const char* __tsan_default_options() {
    return "ignore_noninstrumented_modules=1:allocator_may_return_null=1";
}

/// Tests read what a program says, of which these lines are none.
const char* __lsan_default_options() {
    return "print_suppressions=0";
}

/// The machine's GL driver keeps what it allocates for the life of the process.
const char* __lsan_default_suppressions() {
    return "leak:swrast_dri.so\nleak:libEGL_mesa.so\nleak:libLLVM\n";
}

/// What is not built with sanitizers they see only half of: how the driver's threads wait for one another,
/// and in which order a library takes its locks.
const char* __tsan_default_suppressions() {
    return "race:swrast_dri.so\nrace:libEGL_mesa.so\nrace:libLLVM\ndeadlock:libgdal.so\n";
}
}
