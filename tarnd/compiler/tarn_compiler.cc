#include "tarnd/compiler/tarn_compiler.h"

#include "common/lum_log.h"
#include "common/priority_timers.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/program_writer.h"
#include "tarnd/compiler/tarn_mem_mgr.h"

#include <algorithm>
#include <climits>
#include <new>
#include <vector>

// p_length and the offsets in a program have 32 bits.
static constexpr uint64_t format_limit = UINT32_MAX;

static uint64_t program_limit(const t_tarn_context *p_context)
{
    return p_context->c_program_limit == 0 ? format_limit : std::min(format_limit, p_context->c_program_limit);
}

// Calls step with every stage of the context, in the order of their numbers.
template <typename f_step>
static void for_each_ec(t_tarn_context *p_context, f_step step)
{
    for (t_rbst_node *p_node = rbst_first(&p_context->c_ecs); p_node != nullptr;
         p_node = rbst_getnext(&p_context->c_ecs, p_node))
        step(static_cast<t_ec *>(p_node->data));
}

// A program that can never be had counts as a failed allocation. What the stages hold is given back at once.
static e_tarn_status refuse(t_tarn_context *p_context, const t_tarn_ruletable *p_table, uint64_t known_size,
                            e_tarn_compile_failure failure, int *p_program_len)
{
    for_each_ec(p_context, [](t_ec *p_ec) {
        ec_classes_release(&p_ec->ec_bitvec);
        ec_table_release(&p_ec->ival_ec);
    });
    p_context->p_rule_keys.reset();
    p_context->c_class_index = {};
    g_filter_id = -1;
    p_context->c_filter_id = -1;
    if (p_program_len != nullptr)
        *p_program_len = static_cast<int>(std::min<uint64_t>(known_size, INT_MAX));
    if (failure == TARN_COMPILE_OVER_LIMIT)
        TARN_LOG("Policy: %s  Program refused: at least %llu bytes needed, %llu available", p_table->name,
                 static_cast<unsigned long long>(known_size),
                 static_cast<unsigned long long>(program_limit(p_context)));
    else
        TARN_LOG("Policy: %s  Compilation stopped: out of memory with %llu bytes of program known", p_table->name,
                 static_cast<unsigned long long>(known_size));
    p_context->c_failure = failure;
    return tarn_status_fail;
}

static void tarn_compile_fields(t_tarn_context *p_context, const t_tarn_ruletable *p_table)
{
    for_each_ec(p_context, [&](t_ec *p_ec) {
        tarn_compile_field(p_context, p_table, p_ec);
        tarn_exec_priority_timers();
    });
}

// Combines a pair into `next`. False when the compilation fails, with c_failure set.
static bool fold_pair(t_tarn_context *p_context, t_ec *p_first, t_ec *p_second, std::vector<t_ec *> *p_next)
{
    t_ec *p_ec = eclass_combine(p_context, p_first, p_second, 1);
    if (p_ec == nullptr)
        return false;
    // What follows needs only the classes of the new stage; of the inputs, their number.
    ec_classes_release(&p_first->ec_bitvec);
    ec_classes_release(&p_second->ec_bitvec);
    p_ec->left = p_first;
    p_ec->right = p_second;
    p_first->root = p_ec;
    p_second->root = p_ec;
    p_next->push_back(p_ec);
    return true;
}

// Pairs neighbours by stage number, bottom up; one without a partner is carried to the next round, where its
// lower number puts it first. False when the compilation fails, with c_failure set.
static bool tarn_compile_combined(t_tarn_context *p_context, uint64_t record_size)
{
    std::vector<t_ec *> current;
    std::vector<t_ec *> next;
    for_each_ec(p_context, [&](t_ec *p_ec) {
        current.push_back(p_ec);
        p_context->c_budget.known_size += eclass_table_size(p_ec);
    });
    while (current.size() >= 2) {
        tarn_exec_priority_timers();
        p_context->c_budget.bytes_per_class = current.size() == 2 ? record_size : 0;
        if (current.size() % 2 == 1)
            next.push_back(current.back());
        for (size_t i = 0; i + 1 < current.size(); i += 2)
            if (!fold_pair(p_context, current[i], current[i + 1], &next))
                return false;
        current.swap(next);
        next.clear();
    }
    p_context->c_root = current.front();
    return true;
}

// Writes the program of the folded stages, if it fits.
static e_tarn_status write_program(t_tarn_context *p_context, const t_tarn_ruletable *p_table, void **pp_program,
                                   int *p_program_len)
{
    uint64_t size = tarn_program_length(p_context, p_table);
    if (size > program_limit(p_context))
        return refuse(p_context, p_table, size, TARN_COMPILE_OVER_LIMIT, p_program_len);
    if (p_program_len != nullptr)
        *p_program_len = static_cast<int>(std::min<uint64_t>(size, INT_MAX));
    *pp_program = tarn_compile_program_ec(p_context, p_table, static_cast<uint32_t>(size));
    if (*pp_program != nullptr)
        return tarn_status_ok;
    p_context->c_failure = TARN_COMPILE_NO_MEMORY;
    return tarn_status_fail;
}

static e_tarn_status compile(t_tarn_context *p_context, const t_tarn_ruletable *p_table, void **pp_program,
                             int *p_program_len)
{
    uint64_t record_size = tarn_record_size(p_table);
    p_context->c_num_rules = tarn_get_num_rules(p_table);
    p_context->c_budget = {sizeof(t_tarn_program_hdr), program_limit(p_context), 0};
    p_context->p_rule_keys = rule_keys_create(p_context->c_num_rules);
    tarn_compile_fields(p_context, p_table);
    bool combined = tarn_compile_combined(p_context, record_size);
    p_context->c_class_index = {};
    if (combined)
        return write_program(p_context, p_table, pp_program, p_program_len);
    if (p_context->c_failure == TARN_COMPILE_OVER_LIMIT)
        return refuse(p_context, p_table, p_context->c_budget.known_size, TARN_COMPILE_OVER_LIMIT, p_program_len);
    return tarn_status_fail;
}

e_tarn_status tarn_compile(t_tarn_context *p_context, const t_tarn_ruletable *p_table, void **pp_program,
                           int *p_program_len)
{
    p_context->c_failure = TARN_COMPILE_OK;
    if (rbst_is_empty(&p_context->c_ecs))
        return tarn_status_ok;
    *pp_program = nullptr;
    try {
        return compile(p_context, p_table, pp_program, p_program_len);
    } catch (const std::bad_alloc &) {
        return refuse(p_context, p_table, p_context->c_budget.known_size, TARN_COMPILE_NO_MEMORY, p_program_len);
    }
}
