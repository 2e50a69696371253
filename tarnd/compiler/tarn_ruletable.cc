#include "tarnd/compiler/tarn_ruletable.h"

#include "common/lum_assert.h"
#include "tarnd/compiler/stack.h"
#include "tarnd/compiler/tarn_field.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

static t_tarn_action *action_new(uint32_t data_len, const void *action_data)
{
    LUM_ASSERT(data_len == 0 || action_data != nullptr, "action_data");
    t_tarn_action *p_action = static_cast<t_tarn_action *>(calloc(1, sizeof(t_tarn_action) + data_len));
    LUM_ASSERT(p_action, "action");
    p_action->a_len = static_cast<uint32_t>(sizeof(t_tarn_action)) + data_len;
    if (data_len > 0)
        memcpy(p_action->a_data, action_data, data_len);
    return p_action;
}

t_tarn_ruletable *tarn_ruletable_create(const char *name, const char *alias, uint32_t action_data_len,
                                        const void *action_data)
{
    t_tarn_ruletable *p_table = static_cast<t_tarn_ruletable *>(calloc(1, sizeof(t_tarn_ruletable)));
    if (p_table == nullptr)
        return nullptr;
    snprintf(p_table->name, sizeof(p_table->name), "%s", name);
    snprintf(p_table->alias, sizeof(p_table->alias), "%s", alias);
    p_table->default_action = action_new(action_data_len, action_data);
    p_table->default_action->a_flags |= TARN_ACTION_FLAG_DEFAULT;
    return p_table;
}

t_tarn_rule *tarn_rule_create(t_tarn_ruletable *p_table, const char *name)
{
    t_tarn_rule *p_rule = static_cast<t_tarn_rule *>(calloc(1, sizeof(t_tarn_rule)));
    LUM_ASSERT(p_rule, "rule");
    LUM_ASSERT(strlen(name) < sizeof(p_rule->r_name), "strlen(name) < sizeof(rule->r_name)");
    memcpy(p_rule->r_name, name, strlen(name) + 1);
    p_rule->r_id = ++p_table->current_rule_id;
    p_table->num_rules++;
    if (p_table->last_rule != nullptr)
        p_table->last_rule->r_next = p_rule;
    else
        p_table->rules = p_rule;
    p_table->last_rule = p_rule;
    return p_rule;
}

t_tarn_rule *tarn_get_rule_by_index(const t_tarn_ruletable *p_table, uint32_t index)
{
    t_tarn_rule *p_rule = p_table->rules;
    for (uint32_t i = 0; i < index && p_rule != nullptr; i++)
        p_rule = p_rule->r_next;
    LUM_ASSERT(p_rule != nullptr, "r != NULL");
    return p_rule;
}

uint32_t tarn_get_num_rules(const t_tarn_ruletable *p_table)
{
    LUM_ASSERT(p_table, "table");
    return p_table->num_rules;
}

void tarn_create_action(t_tarn_rule *p_rule, uint32_t data_len, const void *action_data)
{
    p_rule->r_action = action_new(data_len, action_data);
}

t_tarn_action *tarn_get_action(const t_tarn_rule *p_rule)
{
    return p_rule->r_action;
}

void tarn_delete_rule(t_tarn_rule *p_rule)
{
    t_stack fields = {};
    for (t_tarn_field *p_field = p_rule->r_fields; p_field != nullptr; p_field = p_field->f_next)
        stack_push(&fields, p_field);
    while (!stack_empty(&fields))
        tarn_delete_field(static_cast<t_tarn_field *>(stack_pop(&fields)));
    free(p_rule->r_action);
    free(p_rule);
}

void tarn_delete_ruletable(t_tarn_ruletable *p_table)
{
    if (p_table == nullptr)
        return;
    t_stack rules = {};
    for (t_tarn_rule *p_rule = p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next)
        stack_push(&rules, p_rule);
    while (!stack_empty(&rules))
        tarn_delete_rule(static_cast<t_tarn_rule *>(stack_pop(&rules)));
    free(p_table->default_action);
    free(p_table);
}

void tarn_print_field(const t_tarn_field *p_field)
{
    printf("\tField Id %d \n", static_cast<int>(p_field->f_id));
    for (const t_interval *p_ival = p_field->f_intervals; p_ival != nullptr; p_ival = p_ival->i_next) {
        printf("\t\tmin = 0x%x \n", p_ival->i_min);
        printf("\t\tmax_val = 0x%x \n", p_ival->i_max);
    }
}

void tarn_print_action(const t_tarn_action *p_action)
{
    printf("\tAction:\n ");
    printf("\t\tflags = 0x%x \n ", p_action->a_flags);
    printf("\t\tlen = %d \n ", static_cast<int>(p_action->a_len));
    if (p_action->a_len >= sizeof(t_tarn_action) + sizeof(uint32_t))
        printf("\t\tdata[0] = 0x%x \n ", p_action->a_data[0]);
}

void tarn_print_rule(const t_tarn_rule *p_rule)
{
    printf("Rule %s \n", p_rule->r_name);
    for (const t_tarn_field *p_field = p_rule->r_fields; p_field != nullptr; p_field = p_field->f_next)
        tarn_print_field(p_field);
    if (p_rule->r_action != nullptr)
        tarn_print_action(p_rule->r_action);
}

void tarn_print_table(const t_tarn_ruletable *p_table)
{
    printf(" %s: table %s alias: %s\n", __func__, p_table->name, p_table->alias);
    for (const t_tarn_rule *p_rule = p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next)
        tarn_print_rule(p_rule);
    tarn_print_action(p_table->default_action);
}
