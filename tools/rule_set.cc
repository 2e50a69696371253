#include "tools/rule_set.h"

#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_field.h"
#include "tarnd/compiler/tarn_ruletable.h"
#include "tools/rule_fields.h"
#include "tools/text_scan.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

using t_record_slots = std::array<t_tarn_filter_action, MAX_ACTIONS_IN_RULE>;
static_assert(sizeof(t_record_slots) == TARN_ACTION_DATA_SIZE);

static bool covers_natural_range(uint32_t field_type, t_value_ranges ranges)
{
    const t_rule_field *p_field = rule_field_by_type(field_type);
    t_value_range whole = {0, p_field != nullptr ? p_field->max_value : 0xffffffff};
    ranges_normalise(&ranges);
    return ranges_contain(ranges, {&whole, 1});
}

void set_rule_add_condition(t_set_rule *p_rule, uint32_t field_type, t_value_ranges ranges)
{
    if (covers_natural_range(field_type, ranges))
        return;
    auto behind = std::find_if(p_rule->conditions.begin(), p_rule->conditions.end(),
                               [field_type](const t_rule_condition &c) { return c.field_type > field_type; });
    p_rule->conditions.insert(behind, {field_type, std::move(ranges)});
}

const t_rule_condition *set_rule_condition(const t_set_rule &rule, uint32_t field_type)
{
    for (const t_rule_condition &condition : rule.conditions)
        if (condition.field_type == field_type)
            return &condition;
    return nullptr;
}

std::vector<uint32_t> rule_set_used_fields(const t_rule_set &set, std::span<const uint32_t> order)
{
    bool used[tarn_ip_field_type_max] = {};
    for (const t_set_rule &rule : set.rules)
        for (const t_rule_condition &condition : rule.conditions)
            used[condition.field_type] = true;
    std::vector<uint32_t> fields;
    std::copy_if(order.begin(), order.end(), std::back_inserter(fields),
                 [&used](uint32_t type) { return used[type]; });
    return fields;
}

// An address range that is one prefix takes the prefix road, as it does in the daemon.
static void add_range(t_tarn_context *p_context, t_tarn_rule *p_rule, uint32_t field_type,
                      const t_value_range &range)
{
    tarn_field_id id = tarn_get_field_id(p_context, field_type);
    const t_rule_field *p_field = rule_field_by_type(field_type);
    uint64_t width = uint64_t{range.high} - range.low + 1;
    bool is_prefix = (width & (width - 1)) == 0 && range.low % width == 0;
    if (p_field == nullptr || p_field->kind != e_rule_field_kind::address || !is_prefix) {
        tarn_add_range_field(p_context, p_rule, id, range.low, range.high);
        return;
    }
    uint32_t low = range.low;
    const uint8_t address[4] = {static_cast<uint8_t>(low >> 24), static_cast<uint8_t>(low >> 16),
                                static_cast<uint8_t>(low >> 8), static_cast<uint8_t>(low)};
    tarn_add_prefix_field(p_context, p_rule, id, address, 32 - static_cast<uint32_t>(__builtin_ctzll(width)));
}

// In a program a policer is named "number.name", so that equal names in two rules stay apart.
static void name_policer(t_fp_policer *p_policer, size_t number)
{
    char bare[FP_POLICER_NAME_SIZE];
    memcpy(bare, p_policer->name, sizeof(bare));
    bare[sizeof(bare) - 1] = '\0';
    std::string name = std::to_string(number) + '.' + bare;
    name.resize(FP_POLICER_NAME_SIZE - 1);
    memcpy(p_policer->name, name.c_str(), FP_POLICER_NAME_SIZE);
}

static void slots_make(t_record_slots *p_slots, std::span<const t_tarn_filter_action> actions, size_t number)
{
    memset(p_slots, 0, sizeof(*p_slots));
    std::copy(actions.begin(), actions.end(), p_slots->begin());
    for (t_tarn_filter_action &slot : *p_slots)
        if (slot.fwding_action == TARN_FILTER_ACTION_POLICE)
            name_policer(&slot.policer, number);
    if (number == 0)
        return;
    t_tarn_filter_action *p_last = &p_slots->back();
    p_last->fwding_action = TARN_FILTER_ACTION_COUNT;
    snprintf(p_last->counter.name, sizeof(p_last->counter.name), "#%zu", number);
}

t_tarn_ruletable *rule_set_fill(t_tarn_context *p_context, const t_rule_set &set,
                                std::span<const uint32_t> order)
{
    t_record_slots slots;
    slots_make(&slots, set.default_actions, 0);
    t_tarn_ruletable *p_table =
        tarn_ruletable_create(set.table.c_str(), set.table.c_str(), TARN_ACTION_DATA_SIZE, slots.data());
    if (p_table == nullptr || set.rules.empty())
        return p_table;

    // Stages are numbered in the order of first use, so all are named before the first rule.
    tarn_get_field_id(p_context, tarn_ip_match_any);
    std::vector<uint32_t> fields = rule_set_used_fields(set, order);
    for (uint32_t type : fields)
        tarn_get_field_id(p_context, type);

    size_t number = 0;
    for (const t_set_rule &rule : set.rules) {
        t_tarn_rule *p_rule = tarn_rule_create(p_table, std::to_string(++number).c_str());
        add_range(p_context, p_rule, tarn_ip_match_any, {1, 1});
        for (uint32_t type : fields)
            if (const t_rule_condition *p_condition = set_rule_condition(rule, type))
                for (const t_value_range &range : p_condition->ranges)
                    add_range(p_context, p_rule, type, range);
        slots_make(&slots, rule.actions, number);
        tarn_create_action(p_rule, TARN_ACTION_DATA_SIZE, slots.data());
    }
    return p_table;
}

uint32_t rule_number_of_record(std::span<const t_tarn_filter_action> slots)
{
    const t_tarn_filter_action &last = slots.back();
    if (last.fwding_action != TARN_FILTER_ACTION_COUNT || last.counter.name[0] != '#')
        return 0;
    const char *p_digits = last.counter.name + 1;
    uint64_t number = 0;
    bool valid = text_number({p_digits, strnlen(p_digits, TARN_COUNTER_NAME_SIZE - 1)}, &number);
    return valid && number <= RULE_SET_MAX_RULES ? static_cast<uint32_t>(number) : 0;
}

std::string rule_set_table_name(std::string_view file)
{
    std::string_view name = file.substr(file.rfind('/') + 1);
    if (size_t dot = name.rfind('.'); dot != std::string_view::npos && dot > 0)
        name = name.substr(0, dot);
    return std::string(name.substr(0, RULE_SET_MAX_NAME));
}
