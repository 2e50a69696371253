#include "tarnd/compiler/tarn_context.h"

#include "common/priority_timers.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/rule_keys.h"
#include "tarnd/compiler/tarn_cmp.h"

#include <cstdlib>
#include <new>

// The largest value of each field type, by type; types begin at 1.
static constexpr uint32_t field_max[tarn_ip_field_type_max] = {
    0,    255, 65535, 65535, 0xffffffff, 0xffffffff, 255,  64,  255, 65535,
    4000, 100, 2,     255,   255,        5,          4000, 100, 5,
};

t_tarn_context *tarn_context_create()
{
    t_tarn_context *p_context = new (std::nothrow) t_tarn_context();
    if (p_context == nullptr)
        return nullptr;
    rbst_init(&p_context->c_ecs);
    p_context->c_ecs.cmp = uint32s_cmp;
    for (uint32_t type = 1; type < tarn_ip_field_type_max; type++) {
        p_context->c_field_ec_mapping[type].f_type = type;
        p_context->c_field_ec_mapping[type].f_max = field_max[type];
    }
    p_context->c_filter_id = -1;
    p_context->c_budget.limit = UINT64_MAX;
    return p_context;
}

static void free_ec(t_rbst_node *p_node)
{
    eclass_delete(static_cast<t_ec *>(p_node->data));
    free(p_node);
}

void tarn_reinit_context(t_tarn_context *p_context)
{
    rbst_delete_all(&p_context->c_ecs, free_ec);
    p_context->c_root = nullptr;
    p_context->c_reg_allocated = 0;
    p_context->c_ins_ptr = nullptr;
    p_context->c_table_ptr = nullptr;
    p_context->c_length = 0;
    p_context->c_table_dir_len = 0;
    p_context->c_num_instructions = 0;
    p_context->c_tdir_ptr = nullptr;
    p_context->c_base_addr = nullptr;
    p_context->c_latest_ec_id = 0;
    p_context->c_final_ec = nullptr;
    p_context->c_filter_id = -1;
    for (t_field_info_item &item : p_context->c_field_ec_mapping)
        item.f_id = 0;
    p_context->c_budget = {0, UINT64_MAX, 0};
    p_context->p_rule_keys.reset();
    p_context->c_class_index = {};
}

void tarn_delete_context(t_tarn_context *p_context)
{
    if (p_context == nullptr)
        return;
    tarn_reinit_context(p_context);
    delete p_context;
}

void tarn_context_work(t_tarn_context *p_context, size_t steps)
{
    static constexpr size_t steps_between_looks = 16384;  // about a third of a millisecond
    p_context->c_work += steps;
    if (p_context->c_work < steps_between_looks)
        return;
    p_context->c_work = 0;
    tarn_exec_priority_timers();
}
