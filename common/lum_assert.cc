#include "common/lum_assert.h"

#include "common/lum_assert_private.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

void lum_stop_print(std::string_view text)
{
    while (!text.empty()) {
        ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written <= 0)
            return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

static void print_failure(const char *file, uint32_t line, const char *text)
{
    char message[1024];  // on the stack: see lum_stop_print
    int length = snprintf(message, sizeof(message), "%s:%u: failed assertion `%s'\n", file, line, text);
    if (length > 0)
        lum_stop_print({message, std::min(static_cast<size_t>(length), sizeof(message) - 1)});
}

// The one deliberate null store of the system; it must survive optimisation and the sanitizers.
__attribute__((noinline, no_sanitize("undefined"))) static void store_through_null()
{
    volatile int *volatile p_null = nullptr;
    *p_null = 0;  // NOLINT(clang-analyzer-core.NullDereference)
}

void lum_stop()
{
    store_through_null();
    exit(0);
}

void lum_assert_fail(const char *file, uint32_t line, const char *text)
{
    print_failure(file, line, text);
    lum_stop();
}

void lum_assert_trap(const char *file, uint32_t line, const char *text)
{
    print_failure(file, line, text);
    __builtin_trap();
}
