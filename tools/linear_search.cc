#include "tools/linear_search.h"

#include "tools/rule_fields.h"

#include <algorithm>

static void add_rule(t_linear_search *p_search, const t_set_rule &rule)
{
    std::vector<std::pair<uint64_t, const t_rule_condition *>> by_width;
    for (const t_rule_condition &condition : rule.conditions)
        by_width.emplace_back(ranges_count(condition.ranges), &condition);
    std::stable_sort(by_width.begin(), by_width.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    for (const auto &[width, p_condition] : by_width) {
        uint32_t first = static_cast<uint32_t>(p_search->ranges.size());
        p_search->ranges.insert(p_search->ranges.end(), p_condition->ranges.begin(),
                                p_condition->ranges.end());
        p_search->conditions.push_back(
            {p_condition->field_type, first, static_cast<uint32_t>(p_search->ranges.size())});
    }
    p_search->end_condition.push_back(static_cast<uint32_t>(p_search->conditions.size()));
}

t_linear_search linear_search_make(const t_rule_set &set)
{
    t_linear_search search;
    for (const t_set_rule &rule : set.rules)
        add_rule(&search, rule);
    std::vector<uint32_t> order;
    std::string reason;
    rule_field_order_read("", &order, &reason);
    search.used_fields = rule_set_used_fields(set, order);
    search.used_fields.push_back(tarn_ip_match_any);
    return search;
}

bool linear_search_rule_matches(const t_linear_search &search, size_t rule_index, const t_fp_header &header)
{
    uint32_t c = rule_index == 0 ? 0 : search.end_condition[rule_index - 1];
    for (; c < search.end_condition[rule_index]; c++) {
        const t_linear_condition &condition = search.conditions[c];
        uint32_t value = header.values[condition.field_type];
        bool held = false;
        for (uint32_t r = condition.first_range; r < condition.end_range && !held; r++)
            held = search.ranges[r].low <= value && value <= search.ranges[r].high;
        if (!held)
            return false;
    }
    return true;
}

uint32_t linear_search_find(const t_linear_search &search, const t_fp_header &header)
{
    if (header.values[tarn_ip_match_any] != 1)
        return 0;
    for (uint32_t type : search.used_fields)
        if (header.values[type] == 0xffffffff)
            return 0;
    for (size_t i = 0; i < search.end_condition.size(); i++)
        if (linear_search_rule_matches(search, i, header))
            return static_cast<uint32_t>(i + 1);
    return 0;
}
