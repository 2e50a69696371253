// Memory that runs out at every single allocation of filling and compiling a small table.
//
// The linker sends every malloc, calloc, realloc, aligned_alloc and free of the product through this file,
// and operator new with them; the k-th allocation of a run fails. Each run is a process of its own.
#include "tarnd/compiler/tarn_field.h"
#include "tests/support/compile.h"
#include "tests/support/program_content.h"
#include "tests/support/random_table.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <new>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

static long g_until_failure = -1;  // allocations that still succeed; negative for no failure
static long g_live;                // blocks in use

static bool allocation_fails()
{
    if (g_until_failure < 0)
        return false;
    return g_until_failure-- == 0;
}

static void *counted(void *p_mem)
{
    g_live += p_mem != nullptr ? 1 : 0;
    return p_mem;
}

extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *p_mem, size_t size);
void *__real_aligned_alloc(size_t alignment, size_t size);
void __real_free(void *p_mem);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *p_mem, size_t size);
void *__wrap_aligned_alloc(size_t alignment, size_t size);
void __wrap_free(void *p_mem);

void *__wrap_malloc(size_t size)
{
    return allocation_fails() ? nullptr : counted(__real_malloc(size));
}

void *__wrap_calloc(size_t count, size_t size)
{
    return allocation_fails() ? nullptr : counted(__real_calloc(count, size));
}

void *__wrap_realloc(void *p_mem, size_t size)
{
    if (allocation_fails())
        return nullptr;
    g_live += p_mem == nullptr ? 1 : 0;
    return __real_realloc(p_mem, size);
}

void *__wrap_aligned_alloc(size_t alignment, size_t size)
{
    return allocation_fails() ? nullptr : counted(__real_aligned_alloc(alignment, size));
}

void __wrap_free(void *p_mem)
{
    g_live -= p_mem != nullptr ? 1 : 0;
    __real_free(p_mem);
}

}  // extern "C"

void *operator new(size_t size)
{
    void *p_mem = __wrap_malloc(size);
    if (p_mem == nullptr)
        throw std::bad_alloc();
    return p_mem;
}

void *operator new(size_t size, std::align_val_t alignment)
{
    size_t step = static_cast<size_t>(alignment);
    void *p_mem = __wrap_aligned_alloc(step, (size + step - 1) / step * step);
    if (p_mem == nullptr)
        throw std::bad_alloc();
    return p_mem;
}

void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return __wrap_malloc(size);
}

void *operator new[](size_t size)
{
    return operator new(size);
}

void operator delete(void *p_mem) noexcept
{
    __wrap_free(p_mem);
}

void operator delete(void *p_mem, size_t) noexcept
{
    __wrap_free(p_mem);
}

void operator delete(void *p_mem, std::align_val_t) noexcept
{
    __wrap_free(p_mem);
}

void operator delete(void *p_mem, size_t, std::align_val_t) noexcept
{
    __wrap_free(p_mem);
}

void operator delete[](void *p_mem) noexcept
{
    __wrap_free(p_mem);
}

void operator delete[](void *p_mem, size_t) noexcept
{
    __wrap_free(p_mem);
}

static t_policy example_policy()
{
    std::mt19937 random(11);
    return policy_random(&random, {.field_types = 5, .rules = 8, .action_data_len = 64});
}

// Exit statuses of a run.
enum e_run {
    RUN_SUCCEEDED,  // the failing allocation was not reached, or did not matter
    RUN_FAILED_CLEANLY = 2,
    RUN_WRONG,
    RUN_THREW,
};

#define REQUIRE(condition)                                                                                   \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            printf("k-th allocation: not met: %s\n", #condition);                                            \
            return RUN_WRONG;                                                                                \
        }                                                                                                    \
    } while (0)

static e_run run_compilation(const t_policy &policy, std::span<const std::byte> reference, long k)
{
    long live = g_live;
    e_run result = RUN_SUCCEEDED;
    {
        t_test_memory memory;
        context_ptr context(tarn_context_create());
        ruletable_ptr table = policy_build(policy, context.get());
        g_until_failure = k;
        t_compiled compiled = compile_table(context.get(), table.get());
        g_until_failure = -1;
        if (compiled.status == tarn_status_ok) {
            REQUIRE(program_difference(compiled.bytes(), reference).empty());
        } else {
            result = RUN_FAILED_CLEANLY;
            REQUIRE(compiled.program_touched && compiled.program == nullptr);
            REQUIRE(context->c_failure == TARN_COMPILE_NO_MEMORY);
            REQUIRE(context->c_filter_id == -1);
            REQUIRE(memory.blocks() == 0);
        }
        tarn_reinit_context(context.get());
        for (uint32_t &offset : context->c_ecid_table_map)
            offset = 0;
        table = policy_build(policy, context.get());
        t_compiled again = compile_table(context.get(), table.get());
        REQUIRE(again.status == tarn_status_ok);
        REQUIRE(program_difference(again.bytes(), reference).empty());
    }
    REQUIRE(g_live == live);
    return result;
}

// Fills a table without compiling, by calls of the product alone.
static e_run run_filling(long k)
{
    static constexpr uint8_t address[4] = {10, 1, 0, 0};
    static constexpr uint32_t payload[4] = {};
    g_until_failure = k;
    t_tarn_context *p_context = tarn_context_create();
    t_tarn_ruletable *p_table = tarn_ruletable_create("table", "0table", sizeof(payload), payload);
    if (p_context == nullptr || p_table == nullptr) {
        tarn_delete_ruletable(p_table);
        tarn_delete_context(p_context);
        return RUN_FAILED_CLEANLY;
    }
    for (uint32_t i = 0; i < 4; i++) {
        t_tarn_rule *p_rule = tarn_rule_create(p_table, "10");
        tarn_field_id port = tarn_get_field_id(p_context, tarn_ip_dst_port);
        tarn_add_range_field(p_context, p_rule, port, i, i + 9);
        tarn_field_id dst = tarn_get_field_id(p_context, tarn_ip_dst_addr);
        tarn_add_prefix_field(p_context, p_rule, dst, address, 8 + i);
        tarn_create_action(p_rule, sizeof(payload), payload);
    }
    bool failed = g_until_failure < 0;
    tarn_delete_ruletable(p_table);
    tarn_delete_context(p_context);
    return failed ? RUN_WRONG : RUN_SUCCEEDED;
}

namespace {

// How the run of a child ended, and what it printed.
struct t_outcome {
    int status;
    std::string text;
};

}  // namespace

template <typename f_run>
static t_outcome run_in_child(f_run run)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        int status = RUN_THREW;
        try {
            status = run();
        } catch (const std::bad_alloc &) {
            printf("std::bad_alloc left the call\n");
        }
        fflush(stdout);
        _exit(status);
    }
    close(ends[1]);
    t_outcome outcome = {};
    char buffer[256];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof(buffer))) > 0;)
        outcome.text.append(buffer, static_cast<size_t>(count));
    close(ends[0]);
    waitpid(pid, &outcome.status, 0);
    return outcome;
}

TEST(AllocationFailureShort, ACompilationFailsCleanlyAndTheContextGoesOn)
{
    t_policy policy = example_policy();
    t_test_memory memory;
    context_ptr context(tarn_context_create());
    ruletable_ptr table = policy_build(policy, context.get());
    t_compiled reference = compile_table(context.get(), table.get());
    ASSERT_EQ(reference.status, tarn_status_ok);

    int failures = 0;
    for (long k = 0;; k++) {
        ASSERT_LT(k, 5000);
        t_outcome outcome = run_in_child([&] { return run_compilation(policy, reference.bytes(), k); });
        ASSERT_TRUE(WIFEXITED(outcome.status)) << "allocation " << k << ": " << outcome.text;
        if (WEXITSTATUS(outcome.status) == RUN_SUCCEEDED)
            break;
        // Another status is RUN_WRONG, or that of the leak sanitizer.
        ASSERT_EQ(WEXITSTATUS(outcome.status), RUN_FAILED_CLEANLY)
            << "allocation " << k << ": " << outcome.text;
        failures++;
    }
    EXPECT_GT(failures, 20);
}

// Where an allocation is not reported to the caller the process stops by an assertion and says so.
TEST(AllocationFailureDeathTest, FillingATableStopsLoudly)
{
    int stops = 0;
    for (long k = 0;; k++) {
        ASSERT_LT(k, 5000);
        t_outcome outcome = run_in_child([k] { return run_filling(k); });
        if (WIFEXITED(outcome.status) && WEXITSTATUS(outcome.status) == RUN_SUCCEEDED)
            break;
        if (WIFEXITED(outcome.status) && WEXITSTATUS(outcome.status) == RUN_FAILED_CLEANLY)
            continue;
        EXPECT_TRUE(WIFSIGNALED(outcome.status) && WTERMSIG(outcome.status) == SIGSEGV &&
                    outcome.text.find("failed assertion") != std::string::npos)
            << "allocation " << k << ": status " << outcome.status << ", " << outcome.text;
        stops++;
    }
    EXPECT_GT(stops, 20);
}
