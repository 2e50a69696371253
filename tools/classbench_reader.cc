#include "tools/classbench_reader.h"

#include <algorithm>

// One line being read; reason is set by what fails first.
struct t_cursor {
    std::string_view rest;
    std::string reason;
};

static void skip_blanks(t_cursor *p_cursor)
{
    size_t start = p_cursor->rest.find_first_not_of(" \t");
    p_cursor->rest.remove_prefix(std::min(start, p_cursor->rest.size()));
}

static bool refuse(t_cursor *p_cursor, std::string reason)
{
    p_cursor->reason = std::move(reason);
    return false;
}

static bool refuse_at(t_cursor *p_cursor, std::string_view what)
{
    if (p_cursor->rest.empty())
        return refuse(p_cursor, "missing " + std::string(what));
    return refuse(p_cursor, "no " + std::string(what) + " at " + text_quote(p_cursor->rest));
}

static bool take_char(t_cursor *p_cursor, char c, std::string_view what)
{
    skip_blanks(p_cursor);
    if (!p_cursor->rest.starts_with(c))
        return refuse_at(p_cursor, what);
    p_cursor->rest.remove_prefix(1);
    return true;
}

// Takes a run of letters, digits and the given further characters.
static std::string_view take_run(t_cursor *p_cursor, std::string_view further)
{
    skip_blanks(p_cursor);
    size_t length = 0;
    for (char c : p_cursor->rest) {
        bool taken = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                     further.find(c) != std::string_view::npos;
        if (!taken)
            break;
        length++;
    }
    std::string_view run = p_cursor->rest.substr(0, length);
    p_cursor->rest.remove_prefix(length);
    return run;
}

static bool take_number(t_cursor *p_cursor, uint64_t max, std::string_view what, uint32_t *p_value)
{
    skip_blanks(p_cursor);
    t_cursor start = *p_cursor;
    std::string_view run = take_run(p_cursor, "");
    uint64_t value = 0;
    if (!text_number_or_hex(run, &value))
        return refuse_at(&start, what) || refuse(p_cursor, start.reason);
    if (value > max)
        return refuse(p_cursor, std::string(what) + ' ' + std::string(run) + " above " + std::to_string(max));
    *p_value = static_cast<uint32_t>(value);
    return true;
}

static bool take_prefix(t_cursor *p_cursor, std::string_view what, t_value_range *p_range)
{
    skip_blanks(p_cursor);
    if (p_cursor->rest.empty())
        return refuse(p_cursor, "missing " + std::string(what) + " prefix");
    std::string_view run = take_run(p_cursor, "./");
    std::string reason;
    if (run.empty())
        return refuse_at(p_cursor, std::string(what) + " prefix");
    if (!text_prefix(run, p_range, &reason))
        return refuse(p_cursor, std::string(what) + ": " + reason);
    return true;
}

static bool take_ports(t_cursor *p_cursor, std::string_view what, t_value_range *p_range)
{
    if (!take_number(p_cursor, 65535, what, &p_range->low) ||
        !take_char(p_cursor, ':', "':' in port range") || !take_number(p_cursor, 65535, what, &p_range->high))
        return false;
    if (p_range->low > p_range->high)
        return refuse(p_cursor, std::string(what) + " range " + std::to_string(p_range->low) + " : " +
                                    std::to_string(p_range->high) + " is reversed");
    return true;
}

static t_value_ranges masked_values(uint32_t value, uint32_t mask)
{
    t_value_ranges ranges;
    for (uint32_t v = 0; v <= 255; v++)
        if ((v & mask) == (value & mask))
            ranges.push_back({v, v});
    ranges_normalise(&ranges);
    return ranges;
}

static bool take_protocol(t_cursor *p_cursor, t_value_ranges *p_ranges)
{
    uint32_t value = 0;
    uint32_t mask = 0;
    if (!take_number(p_cursor, 255, "protocol", &value) || !take_char(p_cursor, '/', "protocol mask") ||
        !take_number(p_cursor, 255, "protocol mask", &mask))
        return false;
    *p_ranges = masked_values(value, mask);
    return true;
}

static bool take_flags(t_cursor *p_cursor)
{
    uint32_t ignored = 0;
    skip_blanks(p_cursor);
    if (p_cursor->rest.empty())
        return true;
    if (!take_number(p_cursor, 65535, "flags", &ignored) || !take_char(p_cursor, '/', "flags mask") ||
        !take_number(p_cursor, 65535, "flags mask", &ignored))
        return false;
    skip_blanks(p_cursor);
    return p_cursor->rest.empty() ||
           refuse(p_cursor, "unexpected " + text_quote(p_cursor->rest) + " behind the last column");
}

static bool read_rule(t_cursor *p_cursor, t_set_rule *p_rule)
{
    t_value_range src;
    t_value_range dst;
    t_value_range sport;
    t_value_range dport;
    t_value_ranges proto;
    if (!take_char(p_cursor, '@', "'@' in front of the rule") || !take_prefix(p_cursor, "source", &src) ||
        !take_prefix(p_cursor, "destination", &dst) || !take_ports(p_cursor, "source port", &sport) ||
        !take_ports(p_cursor, "destination port", &dport) || !take_protocol(p_cursor, &proto) ||
        !take_flags(p_cursor))
        return false;
    set_rule_add_condition(p_rule, tarn_ip_protocol, proto);
    set_rule_add_condition(p_rule, tarn_ip_src_port, {sport});
    set_rule_add_condition(p_rule, tarn_ip_dst_port, {dport});
    set_rule_add_condition(p_rule, tarn_ip_src_addr, {src});
    set_rule_add_condition(p_rule, tarn_ip_dst_addr, {dst});
    return true;
}

bool classbench_read(std::string_view text, std::string_view file, t_rule_set *p_set, t_text_error *p_error)
{
    *p_set = {
        .file = std::string(file), .table = rule_set_table_name(file), .rules = {}, .default_actions = {}};
    *p_error = {.file = std::string(file), .line = 0, .reason = {}};
    std::string_view line;
    for (uint32_t number = 1; text_next_line(&text, &line); number++) {
        t_cursor cursor = {line, {}};
        skip_blanks(&cursor);
        if (cursor.rest.empty())
            continue;
        p_error->line = number;
        if (p_set->rules.size() == RULE_SET_MAX_RULES) {
            p_error->reason = "more than " + std::to_string(RULE_SET_MAX_RULES) + " rules";
            return false;
        }
        std::string name = std::to_string(p_set->rules.size() + 1);
        p_set->rules.push_back({.name = name, .line = number, .conditions = {}, .actions = {}});
        if (!read_rule(&cursor, &p_set->rules.back())) {
            p_error->reason = cursor.reason;
            return false;
        }
    }
    p_error->line = 0;
    p_error->reason = "no rules";
    return !p_set->rules.empty();
}
