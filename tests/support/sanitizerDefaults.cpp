// What the sanitizers are told when nothing else is, so that a test started by hand runs as it does in the
// suite.

// Visible from the sanitizers' own libraries.
#define OBRIN_SEEN __attribute__((visibility("default"), used))

extern "C" {

const char* __asan_default_options();
const char* __lsan_default_suppressions();
const char* __tsan_default_options();
const char* __ubsan_default_options();

OBRIN_SEEN const char* __asan_default_options() {
    // Where the C library would refuse memory, so does the sanitizer: what the refusal leads to is tested.
    return "detect_leaks=1:strict_string_checks=1:print_suppressions=0:allocator_may_return_null=1";
}

// The C library keeps the search path that LOCPATH names for good once a locale was loaded through it.
OBRIN_SEEN const char* __lsan_default_suppressions() {
    return "leak:argz_add_sep\n";
}

OBRIN_SEEN const char* __tsan_default_options() {
    return "halt_on_error=1:second_deadlock_stack=1";
}

OBRIN_SEEN const char* __ubsan_default_options() {
    return "halt_on_error=1:print_stacktrace=1";
}
}
