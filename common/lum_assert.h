// Assertions that stay in the product.
//
// A failed check prints "path:line: failed assertion `text'" to standard output and stops the process at
// once. The text is given by the caller and not made from the C++ expression: operators search logs for it,
// so it stays the same when the code around it is rewritten. The message is written with write(2), past
// stdio, so that it arrives even when standard output is a pipe.
//
// Two ways to stop: LUM_ASSERT stores through a null pointer (SIGSEGV), LUM_ASSERT_TRAP executes a trap
// instruction (SIGILL) and is for the libraries that also run inside the forwarding plane's process.
#pragma once

#include <cstdint>

// Prints the message, then stores through a null pointer. Never returns.
[[noreturn]] void lum_assert_fail(const char *file, uint32_t line, const char *text);

// Prints the message, then executes a trap instruction. Never returns.
[[noreturn]] void lum_assert_trap(const char *file, uint32_t line, const char *text);

#define LUM_ASSERT(condition, text)                                                                          \
    do {                                                                                                     \
        if (!(condition)) [[unlikely]]                                                                       \
            lum_assert_fail(__FILE__, __LINE__, text);                                                       \
    } while (0)

#define LUM_ASSERT_TRAP(condition, text)                                                                     \
    do {                                                                                                     \
        if (!(condition)) [[unlikely]]                                                                       \
            lum_assert_trap(__FILE__, __LINE__, text);                                                       \
    } while (0)
