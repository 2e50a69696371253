// The compiler's objects with owners, and filter memory for tests.
//
// The memory manager gives blocks of the exact size from the heap, so that the address sanitizer sees every
// byte too far. Each block is a filter of its own: g_filter_id counts up, and is -1 after a failure.
#pragma once

#include "tarnd/compiler/tarn_compiler.h"

#include <cstddef>
#include <memory>
#include <span>

struct t_context_deleter {
    void operator()(t_tarn_context *p_context) const;
};
struct t_ruletable_deleter {
    void operator()(t_tarn_ruletable *p_table) const;
};
struct t_program_deleter {
    void operator()(std::byte *p_program) const;
};
using context_ptr = std::unique_ptr<t_tarn_context, t_context_deleter>;
using ruletable_ptr = std::unique_ptr<t_tarn_ruletable, t_ruletable_deleter>;
using program_ptr = std::unique_ptr<std::byte[], t_program_deleter>;

// Registers the manager for as long as it lives; the blocks are freed by their owners.
struct t_test_memory {
    t_test_memory();
    ~t_test_memory();
    t_test_memory(const t_test_memory &) = delete;
    t_test_memory &operator=(const t_test_memory &) = delete;

    size_t blocks() const;       // in use
    size_t allocations() const;  // successful, so far
    void refuse(bool refused);   // whether the next allocations fail
};

// Length of an output that tarn_compile has not touched.
inline constexpr int LENGTH_UNTOUCHED = -77;

struct t_compiled {
    e_tarn_status status;
    bool program_touched;
    int length;
    program_ptr program;

    std::span<const std::byte> bytes() const;  // empty without a program
};

t_compiled compile_table(t_tarn_context *p_context, const t_tarn_ruletable *p_table);
