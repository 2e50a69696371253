#include "lab/demo/demo_memory.h"

#include "common/timer.h"
#include "fp_api/fp_tables.h"
#include "tarnd/compiler/tarn_compiler.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tools/rule_fields.h"
#include "tools/rule_loader.h"

#include <algorithm>

static constexpr uint32_t timer_budget_ms = 100;

namespace {

struct t_table_deleter {
    void operator()(t_tarn_ruletable *p_table) const
    {
        tarn_delete_ruletable(p_table);
    }
};
using table_ptr = std::unique_ptr<t_tarn_ruletable, t_table_deleter>;

}  // namespace

// The one that filter memory reports to.
static t_demo *g_demo;

// Filter memory has released blocks; the slots of their programs are empty by now.
static int note_release(t_tarn *, int freed_blocks)
{
    g_demo->released_blocks += static_cast<uint64_t>(freed_blocks);
    for (size_t i = 0; i < g_demo->programs.size(); i++)
        if (g_demo->programs[i] == DEMO_PROGRAM_FREED && !g_fp_filter[i].record_valid)
            g_demo->programs[i] = DEMO_PROGRAM_NONE;
    return 0;
}

static demo_ptr fail(std::string *p_error, const char *reason)
{
    *p_error = reason;
    return nullptr;
}

demo_ptr demo_open(std::string *p_error)
{
    demo_ptr demo(new t_demo());
    g_demo = demo.get();
    t_tarn *p_tarn = &demo->tarn;
    demo->hwapi = g_tarn_octeon_api;
    demo->hwapi.filter_policy_chg = note_release;
    p_tarn->p_hwapi = &demo->hwapi;
    p_tarn->p_timer_mgr = timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    p_tarn->p_context = tarn_context_create();
    if (p_tarn->p_timer_mgr == nullptr || p_tarn->p_context == nullptr)
        return fail(p_error, "no memory");
    if (demo->hwapi.filter_init(p_tarn, 1) != 0)
        return fail(p_error, "the shared block can't be had");
    t_tarn_mem_mgr mgr = {demo->hwapi.filter_mem_alloc, demo->hwapi.filter_mem_free};
    tarn_register_mem_mgr(&mgr);
    demo->programs.assign(static_cast<size_t>(g_fp_scaling.num_filters), DEMO_PROGRAM_NONE);
    p_tarn->p_context->c_program_limit =
        static_cast<uint64_t>(g_fp_scaling.num_filter_blocks) * sizeof(t_tarn_filter_mem_block);
    return demo;
}

void t_demo_deleter::operator()(t_demo *p_demo) const
{
    tarn_delete_context(p_demo->tarn.p_context);
    if (g_tarn_mem_mgr != nullptr) {  // the last step of opening
        tarn_register_mem_mgr(nullptr);
        p_demo->hwapi.filter_destroy();
    }
    if (p_demo->tarn.p_timer_mgr != nullptr)
        timer_mgr_destroy(p_demo->tarn.p_timer_mgr);
    delete p_demo;
}

void demo_timers_run(t_demo *p_demo)
{
    timer_exec(p_demo->tarn.p_timer_mgr, TIMER_PRI_MASK_ALL, timer_budget_ms);
}

// Fills result but for the rules.
static void compile_set(t_tarn_context *p_context, const t_rule_set &set, t_demo_compiled *p_result)
{
    std::vector<uint32_t> order;
    rule_field_order_read("", &order, &p_result->reason);
    table_ptr table(rule_set_fill(p_context, set, order));
    void *p_program = nullptr;
    int length = 0;
    if (table == nullptr || tarn_compile(p_context, table.get(), &p_program, &length) != tarn_status_ok)
        p_result->reason = "the program does not fit into filter memory";
    else if (p_program == nullptr)
        p_result->reason = "without conditions there is no program";
    p_result->filter_id = p_program != nullptr ? p_context->c_filter_id : -1;
    p_result->length = static_cast<uint64_t>(length);
    tarn_reinit_context(p_context);
}

t_demo_compiled demo_compile(t_demo *p_demo, const std::string &rule_file)
{
    t_demo_compiled result = {-1, 0, 0, ""};
    t_rule_set set;
    t_text_error error;
    if (!rule_set_load(rule_file, e_rule_format::detect, &set, &error)) {
        result.reason = text_error_print(error);
        return result;
    }
    result.rules = set.rules.size();
    compile_set(p_demo->tarn.p_context, set, &result);
    if (result.filter_id >= 0)
        p_demo->programs[static_cast<size_t>(result.filter_id)] = DEMO_PROGRAM_LIVE;
    return result;
}

e_demo_program demo_program_state(const t_demo *p_demo, int filter_id)
{
    bool exists = filter_id >= 0 && static_cast<size_t>(filter_id) < p_demo->programs.size();
    return exists ? p_demo->programs[static_cast<size_t>(filter_id)] : DEMO_PROGRAM_NONE;
}

uint32_t demo_freed_count(const t_demo *p_demo)
{
    return static_cast<uint32_t>(
        std::count(p_demo->programs.begin(), p_demo->programs.end(), DEMO_PROGRAM_FREED));
}

void *demo_program(const t_demo *, int filter_id)
{
    return &g_fp_filter_mem_block[g_fp_filter[filter_id].hw_index];
}

void demo_free(t_demo *p_demo, int filter_id)
{
    tarn_mem_free(demo_program(p_demo, filter_id), g_tarn_mem_mgr);
    p_demo->programs[static_cast<size_t>(filter_id)] = DEMO_PROGRAM_FREED;
}
