#include "tests/support/compile.h"

#include "tarnd/compiler/tarn_mem_mgr.h"

#include <cstdlib>

static size_t g_blocks;
static size_t g_allocations;
static bool g_refused;

static void *memory_alloc(size_t size)
{
    g_filter_id = -1;
    void *p_mem = g_refused ? nullptr : malloc(size);
    if (p_mem == nullptr)
        return nullptr;
    g_blocks++;
    g_filter_id = static_cast<int>(g_allocations++);
    return p_mem;
}

static void memory_free(void *p_mem)
{
    g_blocks--;
    free(p_mem);
}

t_test_memory::t_test_memory()
{
    g_blocks = 0;
    g_allocations = 0;
    g_refused = false;
    t_tarn_mem_mgr mgr = {memory_alloc, memory_free};
    tarn_register_mem_mgr(&mgr);
}

t_test_memory::~t_test_memory()
{
    tarn_register_mem_mgr(nullptr);
}

size_t t_test_memory::blocks() const
{
    return g_blocks;
}

size_t t_test_memory::allocations() const
{
    return g_allocations;
}

void t_test_memory::refuse(bool refused)
{
    g_refused = refused;
}

void t_context_deleter::operator()(t_tarn_context *p_context) const
{
    tarn_delete_context(p_context);
}

void t_ruletable_deleter::operator()(t_tarn_ruletable *p_table) const
{
    tarn_delete_ruletable(p_table);
}

void t_program_deleter::operator()(std::byte *p_program) const
{
    tarn_mem_free(p_program, g_tarn_mem_mgr);
}

std::span<const std::byte> t_compiled::bytes() const
{
    return program ? std::span<const std::byte>{program.get(), static_cast<size_t>(length)}
                   : std::span<const std::byte>{};
}

t_compiled compile_table(t_tarn_context *p_context, const t_tarn_ruletable *p_table)
{
    static std::byte untouched;
    void *p_program = &untouched;
    t_compiled result = {
        .status = tarn_status_ok, .program_touched = true, .length = LENGTH_UNTOUCHED, .program = {}};
    result.status = tarn_compile(p_context, p_table, &p_program, &result.length);
    if (p_program == &untouched)
        result.program_touched = false;
    else
        result.program.reset(static_cast<std::byte *>(p_program));
    return result;
}
