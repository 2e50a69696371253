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
    return p_context->c_program_limit == 0 ? format_limit
                                           : std::min(format_limit, p_context->c_program_limit);
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
        TARN_LOG("Policy: %s  Compilation stopped: out of memory with %llu bytes of program known",
                 p_table->name, static_cast<unsigned long long>(known_size));
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

// Makes the stages of one round: neighbours by stage number are paired; one without a partner is carried to
// the next round, where its lower number puts it first. False when the registers are used up.
static bool make_round(t_tarn_context *p_context, const std::vector<t_ec *> &current,
                       std::vector<t_ec *> *p_next)
{
    if (current.size() % 2 == 1)
        p_next->push_back(current.back());
    for (size_t i = 0; i + 1 < current.size(); i += 2) {
        t_ec *p_ec = eclass_create(p_context, 1);
        if (p_ec == nullptr)
            return false;
        p_ec->ec_is_intermediate = 1;
        p_ec->left = current[i];
        p_ec->right = current[i + 1];
        p_ec->left->root = p_ec;
        p_ec->right->root = p_ec;
        p_next->push_back(p_ec);
    }
    return true;
}

static uint64_t pair_count(const t_ec *p_ec)
{
    return uint64_t{p_ec->left->ec_values} * p_ec->right->ec_values;
}

// What each class of stage `index` of a round adds to the program beyond the stage's own table: an action
// record if the stage is the last, else its row in the table that it is combined into, when its partner's
// classes are known.
static uint64_t bytes_per_class(const std::vector<t_ec *> &round, size_t index, uint64_t record_size)
{
    if (round.size() == 1)
        return record_size;
    size_t partner = index ^ 1;
    return partner < round.size() ? uint64_t{TARN_ENTRY_SIZE} * round[partner]->ec_values : 0;
}

// Fills a round's new stages, the cheap ones first: while a dear one is filled its partner is known, and a
// program that cannot fit is noticed before the dear one is complete. Numbers and results do not depend on
// this order. False when the budget is passed.
static bool fill_round(t_tarn_context *p_context, const std::vector<t_ec *> &round, uint64_t record_size)
{
    std::vector<size_t> by_cost;
    for (size_t i = 0; i < round.size(); i++)
        if (!round[i]->ec_is_complete)
            by_cost.push_back(i);
    std::stable_sort(by_cost.begin(), by_cost.end(),
                     [&](size_t a, size_t b) { return pair_count(round[a]) < pair_count(round[b]); });
    t_compile_budget *p_budget = &p_context->c_budget;
    for (size_t i : by_cost) {
        t_ec *p_ec = round[i];
        uint64_t known_before = p_budget->known_size;
        p_budget->bytes_per_class = bytes_per_class(round, i, record_size);
        p_ec->ec_is_last = round.size() == 1;
        if (!eclass_combine(p_context, p_ec, p_ec->left, p_ec->right))
            return false;
        // A row of a table still to come was counted ahead; the table counts itself when it is made.
        if (round.size() > 1)
            p_budget->known_size = known_before + eclass_table_size(p_ec);
        // What follows needs only the classes of the new stage; of the inputs, their number.
        ec_classes_release(&p_ec->left->ec_bitvec);
        ec_classes_release(&p_ec->right->ec_bitvec);
    }
    return true;
}

// Folds all stages into one. False when the compilation fails, with c_failure set.
static bool tarn_compile_combined(t_tarn_context *p_context, uint64_t record_size)
{
    std::vector<t_ec *> current;
    for_each_ec(p_context, [&](t_ec *p_ec) {
        current.push_back(p_ec);
        p_context->c_budget.known_size += eclass_table_size(p_ec);
    });
    while (current.size() >= 2) {
        tarn_exec_priority_timers();
        std::vector<t_ec *> next;
        if (!make_round(p_context, current, &next)) {
            p_context->c_failure = TARN_COMPILE_TOO_MANY_STAGES;
            return false;
        }
        if (!fill_round(p_context, next, record_size)) {
            p_context->c_failure = TARN_COMPILE_OVER_LIMIT;
            return false;
        }
        current.swap(next);
    }
    p_context->c_root = current.front();
    return true;
}

// Writes the program of the folded stages, if it fits.
static e_tarn_status write_program(t_tarn_context *p_context, const t_tarn_ruletable *p_table,
                                   void **pp_program, int *p_program_len)
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
        return refuse(p_context, p_table, p_context->c_budget.known_size, TARN_COMPILE_OVER_LIMIT,
                      p_program_len);
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
        return refuse(p_context, p_table, p_context->c_budget.known_size, TARN_COMPILE_NO_MEMORY,
                      p_program_len);
    }
}
