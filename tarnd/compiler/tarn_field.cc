#include "tarnd/compiler/tarn_field.h"

#include "common/lum_assert.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/epi.h"
#include "tarnd/compiler/stack.h"
#include "tarnd/compiler/tarn_context.h"

#include <cstdlib>
#include <new>

static void endpoint_add(t_ec *p_ec, uint32_t value)
{
    uint32_t *p_key = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
    LUM_ASSERT(p_key, "key");
    *p_key = value;
    int added = rbst_add(&p_ec->endpoints, p_key, nullptr);
    LUM_ASSERT(added >= 0, "added >= 0");
    if (added == 0)
        free(p_key);
}

// While a table is filled nobody can report a lack of memory.
static t_ec *leaf_create(t_tarn_context *p_context)
{
    try {
        return eclass_create(p_context, 1);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

tarn_field_id tarn_field_ecid_create(t_tarn_context *p_context, uint32_t field_type)
{
    // A table has at most 18 field types, so the leaves alone never run out of registers.
    t_ec *p_ec = leaf_create(p_context);
    LUM_ASSERT(p_ec, "ec");
    endpoint_add(p_ec, 0);
    endpoint_add(p_ec, 0xffffffff);
    p_context->c_field_ec_mapping[field_type].f_id = p_ec->ec_id;
    return p_context->c_latest_ec_id;
}

tarn_field_id tarn_get_field_id(t_tarn_context *p_context, uint32_t field_type)
{
    tarn_field_id id = p_context->c_field_ec_mapping[field_type].f_id;
    return id != 0 ? id : tarn_field_ecid_create(p_context, field_type);
}

void tarn_get_field_type(const t_tarn_context *p_context, uint32_t ec_id, uint32_t *p_type)
{
    for (const t_field_info_item &item : p_context->c_field_ec_mapping) {
        if (item.f_id == ec_id) {
            *p_type = item.f_type;
            return;
        }
    }
}

t_tarn_field *tarn_find_field_by_id(const t_tarn_rule *p_rule, tarn_field_id id)
{
    for (t_tarn_field *p_field = p_rule->r_fields; p_field != nullptr; p_field = p_field->f_next)
        if (p_field->f_id == id)
            return p_field;
    return nullptr;
}

t_tarn_field *tarn_get_field_by_id(const t_tarn_rule *p_rule, tarn_field_id id)
{
    return tarn_find_field_by_id(p_rule, id);
}

t_tarn_field *tarn_add_range_field(t_tarn_context *p_context, t_tarn_rule *p_rule, tarn_field_id id,
                                   uint32_t a, uint32_t b)
{
    return a <= b ? tarn_add_field(p_context, p_rule, id, a, b) : tarn_add_field(p_context, p_rule, id, b, a);
}

// Bit i of an address in network order, the most significant bit of byte 0 being bit 0.
static uint32_t tarn_get_bit(const uint8_t *address, uint32_t i)
{
    return address[i / 8] >> (7 - i % 8) & 1u;
}

t_tarn_field *tarn_add_prefix_field(t_tarn_context *p_context, t_tarn_rule *p_rule, tarn_field_id id,
                                    const uint8_t *address, uint32_t prefix_len)
{
    uint32_t lo = 0;
    for (uint32_t i = 0; i < prefix_len; i++)
        lo |= tarn_get_bit(address, i) << (31 - i % 32);
    uint32_t hi = lo + (1u << ((32 - prefix_len) & 31)) - 1;
    return tarn_add_field(p_context, p_rule, id, lo, hi);
}

static t_tarn_field *field_append(t_tarn_rule *p_rule, tarn_field_id id, uint32_t field_type)
{
    t_tarn_field *p_field = static_cast<t_tarn_field *>(calloc(1, sizeof(t_tarn_field)));
    LUM_ASSERT(p_field, "field");
    p_field->f_id = id;
    p_field->f_type = field_type;
    t_tarn_field **pp_tail = &p_rule->r_fields;
    while (*pp_tail != nullptr)
        pp_tail = &(*pp_tail)->f_next;
    *pp_tail = p_field;
    return p_field;
}

t_interval *tarn_add_interval(t_tarn_field *p_field, uint32_t min, uint32_t max_val)
{
    t_interval *p_ival = static_cast<t_interval *>(malloc(sizeof(t_interval)));
    LUM_ASSERT(p_ival, "interval");
    *p_ival = {min, max_val, nullptr};
    if (p_field->f_last_interval != nullptr)
        p_field->f_last_interval->i_next = p_ival;
    else
        p_field->f_intervals = p_ival;
    p_field->f_last_interval = p_ival;
    return p_ival;
}

t_tarn_field *tarn_add_field(t_tarn_context *p_context, t_tarn_rule *p_rule, tarn_field_id id, uint32_t min,
                             uint32_t max_val)
{
    uint32_t field_type = tarn_ip_field_type_min;
    tarn_get_field_type(p_context, id, &field_type);
    t_tarn_field *p_field = tarn_find_field_by_id(p_rule, id);
    if (p_field == nullptr)
        p_field = field_append(p_rule, id, field_type);
    tarn_add_interval(p_field, min, max_val);

    t_rbst_node *p_node = rbst_search(&p_context->c_ecs, &id);
    LUM_ASSERT(p_node, "node");
    t_ec *p_ec = static_cast<t_ec *>(p_node->data);
    endpoint_add(p_ec, min);
    endpoint_add(p_ec, max_val + 1);
    return p_field;
}

void tarn_delete_field(t_tarn_field *p_field)
{
    t_stack intervals = {};
    for (t_interval *p_ival = p_field->f_intervals; p_ival != nullptr; p_ival = p_ival->i_next)
        stack_push(&intervals, p_ival);
    while (!stack_empty(&intervals))
        free(stack_pop(&intervals));
    free(p_field);
}

bool value_is_within_field(const t_tarn_field *p_field, uint32_t value)
{
    for (const t_interval *p_ival = p_field->f_intervals; p_ival != nullptr; p_ival = p_ival->i_next)
        if (value_is_within_interval(p_ival, value))
            return true;
    return false;
}

void tarn_evaluate_field(const t_tarn_ruletable *p_table, const t_ec *p_ec, t_epi *p_bitvec, uint32_t value)
{
    const t_tarn_rule *p_rule = p_table->rules;
    LUM_ASSERT(p_rule != nullptr, "rule != NULL");
    for (int i = 0; p_rule != nullptr; i++, p_rule = p_rule->r_next) {
        const t_tarn_field *p_field = tarn_find_field_by_id(p_rule, p_ec->ec_id);
        bool matches = p_field == nullptr || value_is_within_field(p_field, value);
        epi_set_bit(p_bitvec, i, matches ? 1 : 0);
    }
}
