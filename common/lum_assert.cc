#include "common/lum_assert.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

// Formats on the stack and writes past stdio: the heap or a stream's lock may be what is broken.
static void print_failure(const char *file, uint32_t line, const char *text)
{
    char message[1024];
    int length = snprintf(message, sizeof(message), "%s:%u: failed assertion `%s'\n", file, line, text);
    if (length < 0)
        return;
    size_t left =
        static_cast<size_t>(length) < sizeof(message) ? static_cast<size_t>(length) : sizeof(message) - 1;
    const char *p_next = message;
    while (left > 0) {
        ssize_t written = write(STDOUT_FILENO, p_next, left);
        if (written <= 0)
            return;
        p_next += written;
        left -= static_cast<size_t>(written);
    }
}

// The one deliberate null store of the system; it must survive optimisation and the sanitizers.
__attribute__((noinline, no_sanitize("undefined"))) static void store_through_null()
{
    volatile int *volatile p_null = nullptr;
    *p_null = 0;  // NOLINT(clang-analyzer-core.NullDereference)
}

void lum_assert_fail(const char *file, uint32_t line, const char *text)
{
    print_failure(file, line, text);
    store_through_null();
    exit(0);
}

void lum_assert_trap(const char *file, uint32_t line, const char *text)
{
    print_failure(file, line, text);
    __builtin_trap();
}
