#include "tools/rule_file_reader.h"

#include "tools/rule_actions.h"
#include "tools/rule_fields.h"
#include "tools/rule_symbols.h"

#include <algorithm>
#include <map>
#include <set>

struct t_rule_reader {
    t_rule_set *p_set;
    std::string reason;  // of the first failure
    uint32_t line;       // of the statement being read
    size_t range_count;
    bool has_table;
    bool has_default;
    std::map<std::string, t_value_ranges, std::less<>> lists;  // normal
    std::set<std::string, std::less<>> rule_names;
};

static bool refuse(t_rule_reader *p_reader, std::string reason)
{
    p_reader->reason = std::move(reason);
    return false;
}

static bool append_range(t_rule_reader *p_reader, t_value_ranges *p_ranges, const t_value_range &range)
{
    if (++p_reader->range_count > RULE_FILE_MAX_RANGES)
        return refuse(p_reader, "more than " + std::to_string(RULE_FILE_MAX_RANGES) + " ranges in the file");
    p_ranges->push_back(range);
    return true;
}

static bool append_list(t_rule_reader *p_reader, std::string_view name, t_value_ranges *p_ranges)
{
    auto found = p_reader->lists.find(name);
    if (found == p_reader->lists.end())
        return refuse(p_reader, "unknown list " + text_quote(name));
    return std::all_of(found->second.begin(), found->second.end(),
                       [=](const t_value_range &range) { return append_range(p_reader, p_ranges, range); });
}

static bool append_bounds(t_rule_reader *p_reader, std::string_view text, const t_value_range &range,
                          t_value_ranges *p_ranges)
{
    if (range.low > range.high)
        return refuse(p_reader, "range " + text_quote(text) + " is reversed");
    return append_range(p_reader, p_ranges, range);
}

// One address alternative: prefix, range, address or list.
static bool read_address_value(t_rule_reader *p_reader, std::string_view text, t_value_ranges *p_ranges)
{
    if (text.starts_with('@'))
        return append_list(p_reader, text.substr(1), p_ranges);
    t_value_range range = {0, 0xffffffff};
    if (text == "any")
        return append_range(p_reader, p_ranges, range);
    if (text.find('/') != std::string_view::npos)
        return text_prefix(text, &range, &p_reader->reason) && append_range(p_reader, p_ranges, range);
    size_t dash = text.find('-');
    if (!text_ipv4(text.substr(0, dash), &range.low, &p_reader->reason))
        return false;
    range.high = range.low;
    if (dash != std::string_view::npos && !text_ipv4(text.substr(dash + 1), &range.high, &p_reader->reason))
        return false;
    return append_bounds(p_reader, text, range, p_ranges);
}

static bool read_bound(t_rule_reader *p_reader, const t_rule_field &field, std::string_view text,
                       uint32_t *p_value)
{
    if (rule_symbol_value(field.kind, text, p_value))
        return true;
    uint64_t number = 0;
    if (!text_number(text, &number))
        return refuse(p_reader, "no value for " + std::string(field.name) + ": " + text_quote(text));
    if (number > field.max_value)
        return refuse(p_reader, std::string(field.name) + ' ' + std::string(text) + " above " +
                                    std::to_string(field.max_value));
    *p_value = static_cast<uint32_t>(number);
    return true;
}

static bool read_number_value(t_rule_reader *p_reader, const t_rule_field &field, std::string_view text,
                              t_value_ranges *p_ranges)
{
    t_value_range range = {0, field.max_value};
    if (text == "any")
        return append_range(p_reader, p_ranges, range);
    if (rule_symbol_value(field.kind, text, &range.low))  // names have dashes too
        return append_range(p_reader, p_ranges, {range.low, range.low});
    size_t dash = text.find('-');
    if (!read_bound(p_reader, field, text.substr(0, dash), &range.low))
        return false;
    range.high = range.low;
    if (dash != std::string_view::npos && !read_bound(p_reader, field, text.substr(dash + 1), &range.high))
        return false;
    return append_bounds(p_reader, text, range, p_ranges);
}

static bool read_condition(t_rule_reader *p_reader, const t_rule_field &field, std::string_view *p_rest,
                           t_set_rule *p_rule)
{
    std::string_view values;
    if (!text_next_word(p_rest, &values))
        return refuse(p_reader, "missing value of " + std::string(field.name));
    t_value_ranges ranges;
    std::string_view value;
    while (text_next_part(&values, ',', &value)) {
        bool is_read = field.kind == e_rule_field_kind::address
                           ? read_address_value(p_reader, value, &ranges)
                           : read_number_value(p_reader, field, value, &ranges);
        if (!is_read)
            return false;
    }
    set_rule_add_condition(p_rule, field.type, std::move(ranges));
    return true;
}

static bool read_action(t_rule_reader *p_reader, std::string_view word, std::string_view *p_rest,
                        std::vector<t_tarn_filter_action> *p_actions)
{
    t_tarn_filter_action slot;
    switch (rule_action_read(word, p_rest, &slot, &p_reader->reason)) {
    case ACTION_UNKNOWN:
        return refuse(p_reader, "unknown word " + text_quote(word));
    case ACTION_REFUSED:
        return false;
    case ACTION_READ:
        break;
    }
    if (p_actions->size() == RULE_SET_MAX_ACTIONS)
        return refuse(p_reader, "more than " + std::to_string(RULE_SET_MAX_ACTIONS) + " actions");
    p_actions->push_back(slot);
    return true;
}

static bool check_verdict(t_rule_reader *p_reader, const std::vector<t_tarn_filter_action> &actions)
{
    auto is_verdict = [](const t_tarn_filter_action &slot) {
        return slot.action != TARN_FILTER_ACTION_INVALID;
    };
    auto count = std::count_if(actions.begin(), actions.end(), is_verdict);
    if (count == 1)
        return true;
    return refuse(p_reader, count == 0 ? "neither accept nor reject" : "more than one accept or reject");
}

static bool read_rule(t_rule_reader *p_reader, std::string_view name, std::string_view rest)
{
    if (!rule_name_valid("rule name", name, RULE_SET_MAX_NAME, &p_reader->reason))
        return false;
    if (!p_reader->rule_names.emplace(name).second)
        return refuse(p_reader, "rule " + text_quote(name) + " is there already");
    if (p_reader->p_set->rules.size() == RULE_SET_MAX_RULES)
        return refuse(p_reader, "more than " + std::to_string(RULE_SET_MAX_RULES) + " rules");

    t_set_rule rule = {.name = std::string(name), .line = p_reader->line, .conditions = {}, .actions = {}};
    std::set<uint32_t> named_fields;
    std::string_view word;
    while (text_next_word(&rest, &word)) {
        const t_rule_field *p_field = rule_field_by_name(word);
        if (p_field != nullptr && !named_fields.insert(p_field->type).second)
            return refuse(p_reader, "field " + text_quote(word) + " named twice");
        bool is_read = p_field != nullptr ? read_condition(p_reader, *p_field, &rest, &rule)
                                          : read_action(p_reader, word, &rest, &rule.actions);
        if (!is_read)
            return false;
    }
    if (!check_verdict(p_reader, rule.actions))
        return false;
    p_reader->p_set->rules.push_back(std::move(rule));
    return true;
}

static bool read_list(t_rule_reader *p_reader, std::string_view name, std::string_view rest)
{
    if (!rule_name_valid("list name", name, RULE_SET_MAX_NAME, &p_reader->reason))
        return false;
    if (p_reader->lists.contains(name))
        return refuse(p_reader, "list " + text_quote(name) + " is there already");
    t_value_ranges ranges;
    std::string_view word;
    std::string_view value;
    while (text_next_word(&rest, &word))
        while (text_next_part(&word, ',', &value))
            if (!read_address_value(p_reader, value, &ranges))
                return false;
    if (ranges.empty())
        return refuse(p_reader, "list " + text_quote(name) + " has no addresses");
    ranges_normalise(&ranges);
    p_reader->lists.emplace(name, std::move(ranges));
    return true;
}

static bool read_table(t_rule_reader *p_reader, std::string_view name, std::string_view rest)
{
    std::string_view word;
    if (p_reader->has_table)
        return refuse(p_reader, "a second table statement");
    if (!rule_name_valid("table name", name, RULE_SET_MAX_NAME, &p_reader->reason))
        return false;
    if (text_next_word(&rest, &word))
        return refuse(p_reader, "unknown word " + text_quote(word));
    p_reader->has_table = true;
    p_reader->p_set->table = name;
    return true;
}

static bool read_default(t_rule_reader *p_reader, std::string_view first_word, std::string_view rest)
{
    if (p_reader->has_default)
        return refuse(p_reader, "a second default statement");
    p_reader->has_default = true;
    std::vector<t_tarn_filter_action> actions;
    std::string_view word = first_word;
    do {
        if (!read_action(p_reader, word, &rest, &actions))
            return false;
    } while (text_next_word(&rest, &word));
    if (!check_verdict(p_reader, actions))
        return false;
    p_reader->p_set->default_actions = std::move(actions);
    return true;
}

// First words of statements; each reader gets the second word and the rest.
struct t_statement_row {
    std::string_view word;
    const char *needs;
    bool (*read)(t_rule_reader *p_reader, std::string_view second_word, std::string_view rest);
};

static const t_statement_row statement_rows[] = {
    {"rule", "rule without a name", read_rule},
    {"list", "list without a name", read_list},
    {"table", "table without a name", read_table},
    {"default", "default without an action", read_default},
};

static bool read_statement(t_rule_reader *p_reader, std::string_view text)
{
    std::string_view first;
    std::string_view second;
    if (!text_next_word(&text, &first))
        return true;
    for (const t_statement_row &row : statement_rows) {
        if (row.word != first)
            continue;
        if (!text_next_word(&text, &second))
            return refuse(p_reader, row.needs);
        return row.read(p_reader, second, text);
    }
    return refuse(p_reader, "unknown word " + text_quote(first) + " at the start of a line");
}

// Takes a statement, joined over continued lines and without comments, and counts the lines it took.
static bool next_statement(std::string_view *p_text, std::string *p_statement, uint32_t *p_lines)
{
    p_statement->clear();
    *p_lines = 0;
    std::string_view line;
    while (text_next_line(p_text, &line)) {
        ++*p_lines;
        line = line.substr(0, line.find('#'));
        size_t last = line.find_last_not_of(" \t");
        bool is_continued = last != std::string_view::npos && line[last] == '\\';
        *p_statement += is_continued ? line.substr(0, last) : line;
        if (!is_continued)
            return true;
        *p_statement += ' ';
    }
    return *p_lines > 0;
}

bool rule_file_read(std::string_view text, std::string_view file, t_rule_set *p_set, t_text_error *p_error)
{
    t_tarn_filter_action reject = {};
    reject.action = TARN_FILTER_ACTION_REJECT;
    *p_set = {.file = std::string(file),
              .table = rule_set_table_name(file),
              .rules = {},
              .default_actions = {reject}};
    t_rule_reader reader = {.p_set = p_set,
                            .reason = {},
                            .line = 1,
                            .range_count = 0,
                            .has_table = false,
                            .has_default = false,
                            .lists = {},
                            .rule_names = {}};
    std::string statement;
    uint32_t lines = 0;
    for (; next_statement(&text, &statement, &lines); reader.line += lines) {
        if (!read_statement(&reader, statement)) {
            *p_error = {.file = std::string(file), .line = reader.line, .reason = reader.reason};
            return false;
        }
    }
    *p_error = {.file = std::string(file), .line = 0, .reason = "no rules"};
    return !p_set->rules.empty();
}
