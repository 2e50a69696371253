// Rule files from anywhere: both readers, and what every set that they accept must satisfy.

#include "tools/linear_search.h"
#include "tools/rule_fields.h"
#include "tools/rule_loader.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

static void demand(bool holds)
{
    if (!holds)
        abort();
}

static void check_rule(const t_set_rule &rule)
{
    demand(!rule.name.empty() && rule.name.size() <= RULE_SET_MAX_NAME);
    demand(rule.actions.size() <= RULE_SET_MAX_ACTIONS);
    uint32_t previous = 0;
    for (const t_rule_condition &condition : rule.conditions) {
        const t_rule_field *p_field = rule_field_by_type(condition.field_type);
        demand(p_field != nullptr && condition.field_type > previous && !condition.ranges.empty());
        for (const t_value_range &range : condition.ranges)
            demand(range.low <= range.high && range.high <= p_field->max_value);
        previous = condition.field_type;
    }
}

static void read(std::string_view text, e_rule_format format)
{
    t_rule_set set;
    t_text_error error;
    if (!rule_set_read(text, "fuzz", format, &set, &error)) {
        demand(!error.reason.empty() && error.file == "fuzz");
        return;
    }
    demand(!set.rules.empty() && set.rules.size() <= RULE_SET_MAX_RULES);
    for (const t_set_rule &rule : set.rules)
        check_rule(rule);
    demand(linear_search_find(linear_search_make(set), fp_header_blank()) <= set.rules.size());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::string_view text(reinterpret_cast<const char *>(p_data), size);
    read(text, e_rule_format::classbench);
    read(text, e_rule_format::rules);
    return 0;
}
