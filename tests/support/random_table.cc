#include "tests/support/random_table.h"

#include "tarnd/compiler/tarn_field.h"

#include <algorithm>
#include <cstring>
#include <numeric>

uint32_t random_below(std::mt19937 *p_random, uint32_t bound)
{
    return static_cast<uint32_t>(uint64_t{(*p_random)()} * bound >> 32);
}

static uint32_t random_word(std::mt19937 *p_random)
{
    return static_cast<uint32_t>((*p_random)());
}

static void add_match(t_tarn_context *p_context, t_tarn_rule *p_rule, const t_policy_match &match)
{
    tarn_field_id id = tarn_get_field_id(p_context, match.type);
    if (match.prefix_len == RANGE) {
        tarn_add_range_field(p_context, p_rule, id, match.low, match.high);
        return;
    }
    uint8_t address[4];
    for (int i = 0; i < 4; i++)
        address[i] = static_cast<uint8_t>(match.low >> (24 - 8 * i));
    tarn_add_prefix_field(p_context, p_rule, id, address, static_cast<uint32_t>(match.prefix_len));
}

// The identity, and behind it words that differ from rule to rule.
static std::vector<uint32_t> action_data(uint32_t identity, uint32_t size)
{
    std::vector<uint32_t> words(size / 4);
    for (size_t i = 0; i < words.size(); i++)
        words[i] = identity + static_cast<uint32_t>(i) * 0x01010101u;
    return words;
}

ruletable_ptr policy_build(const t_policy &policy, t_tarn_context *p_context)
{
    uint32_t size = policy.action_data_len;
    ruletable_ptr table(
        tarn_ruletable_create(policy.name.c_str(), "0test", size, action_data(0, size).data()));
    for (const t_policy_rule &rule : policy.rules) {
        t_tarn_rule *p_rule = tarn_rule_create(table.get(), std::to_string(rule.identity).c_str());
        for (const t_policy_match &match : rule.matches)
            add_match(p_context, p_rule, match);
        tarn_create_action(p_rule, size, action_data(rule.identity, size).data());
    }
    return table;
}

// How a field type's values are drawn in one policy.
struct t_domain {
    uint32_t type;
    uint32_t max;
    bool prefixes;
};

static uint32_t random_value(std::mt19937 *p_random, const t_domain &domain)
{
    switch (random_below(p_random, 16)) {
    case 0:
        return 0;
    case 1:
        return 1;
    case 2:
        return domain.max;
    case 3:
        return random_below(p_random, 8) == 0 ? 0xffffffff - random_below(p_random, 2) : domain.max;
    default:
        return domain.max == 0xffffffff ? random_word(p_random) : random_below(p_random, domain.max + 1);
    }
}

static t_policy_match random_match(std::mt19937 *p_random, const t_domain &domain)
{
    uint32_t low = random_value(p_random, domain);
    if (domain.prefixes && random_below(p_random, 4) != 0) {
        static constexpr int lengths[] = {0, 1, 8, 16, 24, 30, 31, 32};
        int prefix_len = random_below(p_random, 2) == 0 ? lengths[random_below(p_random, 8)]
                                                        : static_cast<int>(random_below(p_random, 33));
        return {domain.type, low, 0, prefix_len};
    }
    uint32_t high = random_value(p_random, domain);
    if (random_below(p_random, 3) == 0)
        high = low + random_below(p_random, 4);  // short, and at the top wrapped to a reversed pair
    return {domain.type, low, high, RANGE};
}

static void add_random_matches(std::mt19937 *p_random, const t_domain &domain, t_policy_rule *p_rule)
{
    static constexpr int counts[] = {1, 1, 1, 1, 2, 2, 3, 5};
    int count = counts[random_below(p_random, 8)];
    for (int i = 0; i < count; i++) {
        p_rule->matches.push_back(random_match(p_random, domain));
        // The next interval often begins where this one ends, or overlaps it.
        const t_policy_match &last = p_rule->matches.back();
        if (last.prefix_len == RANGE && random_below(p_random, 4) == 0) {
            uint32_t next = std::max(last.low, last.high) + random_below(p_random, 2);
            p_rule->matches.push_back({domain.type, next, next + random_below(p_random, 3), RANGE});
        }
    }
}

static std::vector<t_domain> random_domains(std::mt19937 *p_random, int count)
{
    static constexpr uint32_t maxima[] = {3, 7, 15, 255, 65535, 0xffffffff};
    std::vector<uint32_t> types(tarn_ip_dns);
    std::iota(types.begin(), types.end(), uint32_t{tarn_ip_protocol});
    std::shuffle(types.begin(), types.end(), *p_random);
    std::vector<t_domain> domains;
    for (int i = 0; i < count; i++) {
        uint32_t max = maxima[random_below(p_random, 6)];
        domains.push_back({types[static_cast<size_t>(i)], max, max == 0xffffffff});
    }
    return domains;
}

t_policy policy_random(std::mt19937 *p_random, const t_policy_shape &shape)
{
    std::vector<t_domain> domains = random_domains(p_random, shape.field_types);
    t_policy policy = {.name = "random", .action_data_len = shape.action_data_len, .rules = {}};
    uint32_t density = 1 + random_below(p_random, 4);  // of 4: how often a rule names a type
    for (int i = 0; i < shape.rules; i++) {
        t_policy_rule rule = {.identity = static_cast<uint32_t>(i + 1), .matches = {}};
        bool duplicate = i > 0 && random_below(p_random, 12) == 0;
        if (duplicate)
            rule.matches = policy.rules[random_below(p_random, static_cast<uint32_t>(i))].matches;
        for (int d = 0; d < shape.field_types; d++) {
            // Every type has one rule that surely names it.
            bool owner = d % shape.rules == i;
            if (owner ||
                (!duplicate && random_below(p_random, 4) < density && random_below(p_random, 40) != 0))
                add_random_matches(p_random, domains[static_cast<size_t>(d)], &rule);
        }
        bool bare = i >= shape.field_types && random_below(p_random, 100) == 0;
        if (bare)
            rule.matches.clear();
        policy.rules.push_back(std::move(rule));
    }
    return policy;
}

static void add_border(t_linear_table *p_table, uint32_t type, uint32_t value)
{
    std::vector<uint32_t> &borders = p_table->borders[type];
    borders.push_back(value);
    if (std::find(p_table->types.begin(), p_table->types.end(), type) == p_table->types.end())
        p_table->types.push_back(type);
}

t_linear_table linear_table(const t_tarn_ruletable *p_table)
{
    t_linear_table linear;
    for (const t_tarn_rule *p_rule = p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next) {
        t_linear_table::t_rule &rule = linear.rules.emplace_back();
        rule.identity = p_rule->r_action->a_data[0];
        for (const t_tarn_field *p_field = p_rule->r_fields; p_field != nullptr; p_field = p_field->f_next) {
            rule.fields.push_back({p_field->f_type, {}});
            for (const t_interval *p_ival = p_field->f_intervals; p_ival != nullptr;
                 p_ival = p_ival->i_next) {
                rule.fields.back().intervals.push_back(*p_ival);
                add_border(&linear, p_field->f_type, p_ival->i_min);
                add_border(&linear, p_field->f_type, p_ival->i_max);
            }
        }
    }
    return linear;
}

static bool field_matches(const t_linear_table::t_field &field, uint32_t value)
{
    for (const t_interval &ival : field.intervals)
        if (ival.i_min <= value && value <= ival.i_max)
            return true;
    return false;
}

static bool rule_matches(const t_linear_table::t_rule &rule, const t_fp_header &header)
{
    for (const t_linear_table::t_field &field : rule.fields)
        if (!field_matches(field, header.values[field.type]))
            return false;
    return true;
}

uint32_t linear_match(const t_linear_table &table, const t_fp_header &header)
{
    for (uint32_t type : table.types)
        if (header.values[type] == 0xffffffff)
            return 0;
    for (const t_linear_table::t_rule &rule : table.rules)
        if (rule_matches(rule, header))
            return rule.identity;
    return 0;
}

// One below, on, or one above a border of this field, or of any rule's field of the type.
static uint32_t border_value(std::mt19937 *p_random, const t_linear_table &table, uint32_t type,
                             const t_linear_table::t_field *p_field)
{
    uint32_t shift = random_below(p_random, 3) - 1;
    if (p_field == nullptr) {
        const std::vector<uint32_t> &borders = table.borders[type];
        return borders[random_below(p_random, static_cast<uint32_t>(borders.size()))] + shift;
    }
    const std::vector<t_interval> &intervals = p_field->intervals;
    const t_interval &ival = intervals[random_below(p_random, static_cast<uint32_t>(intervals.size()))];
    return (random_below(p_random, 2) == 0 ? ival.i_min : ival.i_max) + shift;
}

static uint32_t header_value(std::mt19937 *p_random, const t_linear_table &table, uint32_t type,
                             const t_linear_table::t_field *p_field)
{
    uint32_t way = random_below(p_random, 8);
    if (way < 4)
        return border_value(p_random, table, type, p_field);
    if (way == 4)
        return random_word(p_random) >> random_below(p_random, 32);
    if (p_field == nullptr)
        return border_value(p_random, table, type, p_field) + random_below(p_random, 16);
    const std::vector<t_interval> &intervals = p_field->intervals;
    const t_interval &ival = intervals[random_below(p_random, static_cast<uint32_t>(intervals.size()))];
    uint32_t width = ival.i_max - ival.i_min;
    return ival.i_min + (width == 0xffffffff ? random_word(p_random) : random_below(p_random, width + 1));
}

t_fp_header random_header(std::mt19937 *p_random, const t_linear_table &table)
{
    t_fp_header header;
    for (uint32_t &value : header.values)
        value = random_word(p_random);  // the program must not look at types that it doesn't have
    const t_linear_table::t_rule &rule =
        table.rules[random_below(p_random, static_cast<uint32_t>(table.rules.size()))];
    for (uint32_t type : table.types) {
        auto field = std::find_if(rule.fields.begin(), rule.fields.end(),
                                  [type](const t_linear_table::t_field &f) { return f.type == type; });
        header.values[type] =
            header_value(p_random, table, type, field == rule.fields.end() ? nullptr : &*field);
    }
    return header;
}

uint32_t program_verdict(std::span<const std::byte> program, const t_fp_verdict &verdict)
{
    if (verdict.record_offset == FP_NO_RECORD)
        return 0;
    uint32_t identity;
    memcpy(&identity, program.data() + verdict.record_offset + sizeof(t_tarn_action), sizeof(identity));
    return identity;
}
