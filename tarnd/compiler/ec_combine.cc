// How the pairs are combined without ANDing vectors.
//
// A row is one class of ec1. The fingerprint of the pair (row, column) is the XOR of the keys of the rules in
// both, put together from three parts:
//
// - the column's fixed part: rules of the column that every row has (common to ec1), computed once;
// - the row's base: rules of the row that every column has (common to ec2), and the rules common to both;
// - touches: rules in the lists of both, each XORed into the columns that have it.
//
// Real rules leave most fields open, so lists are short and touches few; what remains per pair is one look-up
// of a fingerprint. A set's rules are put together only when the set is new.
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/tarn_context.h"

#include <algorithm>

namespace {

// Columns of ec2 in numeric order, and for each rule the columns that have it in their list.
struct t_columns {
    std::vector<uint32_t> order;       // class of ec2 by position
    std::vector<t_fingerprint> fixed;  // by position
    std::vector<size_t> start;         // by rule; positions[start[r]] up to positions[start[r + 1]]
    std::vector<uint32_t> positions;
    uint32_t first;  // 1 if position 0 is the empty class, else 0
};

struct t_combiner {
    t_tarn_context *p_context;
    t_ec *p_ec;
    const t_ec_classes *p_left;
    const t_ec_classes *p_right;
    t_columns columns;
    t_fingerprint common_key;  // rules common to both sides
    uint32_t common_lowest;

    // State of the present row.
    t_rule_bits row;                          // common of ec1, and the row's list
    std::vector<uint32_t> row_everywhere;     // rules of the row's list that every column has, descending
    std::vector<t_fingerprint> fingerprints;  // by position, without the base
    t_fingerprint base;
};

}  // namespace

static const t_fingerprint &key_of(const t_combiner &combiner, uint32_t rule)
{
    return combiner.p_context->p_rule_keys->keys[rule];
}

// Calls step with the position and the rule of every rule in a column's list that is not common to the rows.
template <typename f_step>
static void for_each_column_rule(t_combiner *p_combiner, f_step step)
{
    const std::vector<uint32_t> &order = p_combiner->columns.order;
    for (uint32_t position = 0; position < order.size(); position++) {
        std::span<const uint32_t> list = ec_classes_list(p_combiner->p_right, order[position]);
        for (uint32_t rule : list)
            if (!p_combiner->p_left->common.has(rule))
                step(position, rule);
        tarn_context_work(p_combiner->p_context, list.size() / 2 + 1);
    }
}

// The part of each column's fingerprint that all rows share.
static void fix_columns(t_combiner *p_combiner)
{
    t_columns &columns = p_combiner->columns;
    columns.fixed.assign(columns.order.size(), EMPTY_FINGERPRINT);
    for (uint32_t position = 0; position < columns.order.size(); position++) {
        std::span<const uint32_t> list = ec_classes_list(p_combiner->p_right, columns.order[position]);
        for (uint32_t rule : list)
            if (p_combiner->p_left->common.has(rule))
                columns.fixed[position] ^= key_of(*p_combiner, rule);
        tarn_context_work(p_combiner->p_context, list.size() / 2 + 1);
    }
}

static void build_columns(t_combiner *p_combiner)
{
    t_columns &columns = p_combiner->columns;
    columns.order = ec_classes_order(p_combiner->p_context, p_combiner->p_right);
    columns.first = p_combiner->p_right->empty_class != EC_NO_CLASS ? 1 : 0;
    fix_columns(p_combiner);
    columns.start.assign(size_t{p_combiner->p_context->c_num_rules} + 1, 0);
    for_each_column_rule(p_combiner, [&](uint32_t, uint32_t rule) { columns.start[rule + 1]++; });
    for (size_t i = 1; i < columns.start.size(); i++)
        columns.start[i] += columns.start[i - 1];
    columns.positions.resize(columns.start.back());
    std::vector<size_t> next(columns.start.begin(), columns.start.end() - 1);
    for_each_column_rule(
        p_combiner, [&](uint32_t position, uint32_t rule) { columns.positions[next[rule]++] = position; });
}

// The rules common to both inputs are common to the result, and their keys are part of every fingerprint.
static void build_common(t_combiner *p_combiner)
{
    t_rule_bits &common = p_combiner->p_ec->ec_bitvec.common;
    for (size_t i = 0; i < common.words.size(); i++)
        common.words[i] = p_combiner->p_left->common.words[i] & p_combiner->p_right->common.words[i];
    for (uint32_t rule = 0; rule < p_combiner->p_context->c_num_rules; rule++)
        if (common.has(rule))
            p_combiner->common_key ^= key_of(*p_combiner, rule);
    p_combiner->common_lowest = rule_bits_lowest(common);
}

static void enter_row(t_combiner *p_combiner, std::span<const uint32_t> list)
{
    const t_columns &columns = p_combiner->columns;
    p_combiner->fingerprints = columns.fixed;
    p_combiner->base = p_combiner->common_key;
    p_combiner->row_everywhere.clear();
    size_t touches = 0;
    for (uint32_t rule : list) {
        p_combiner->row.flip(rule);
        const t_fingerprint key = key_of(*p_combiner, rule);
        if (p_combiner->p_right->common.has(rule)) {
            p_combiner->base ^= key;
            p_combiner->row_everywhere.push_back(rule);
            continue;
        }
        for (size_t i = columns.start[rule]; i < columns.start[rule + 1]; i++)
            p_combiner->fingerprints[columns.positions[i]] ^= key;
        touches += columns.start[rule + 1] - columns.start[rule];
    }
    tarn_context_work(p_combiner->p_context, list.size() + touches / 4 + columns.order.size() / 8);
}

static void leave_row(t_combiner *p_combiner, std::span<const uint32_t> list)
{
    for (uint32_t rule : list)
        p_combiner->row.flip(rule);
}

// Appends the rules of (row, column) to the lists of the new stage: those of the column that the row has,
// merged with those of the row that every column has. Both are descending and share no rule.
static void append_rules(t_combiner *p_combiner, std::span<const uint32_t> column)
{
    std::vector<uint32_t> &lists = p_combiner->p_ec->ec_bitvec.lists;
    auto other = p_combiner->row_everywhere.begin();
    auto other_end = p_combiner->row_everywhere.end();
    for (uint32_t rule : column) {
        if (!p_combiner->row.has(rule))
            continue;
        while (other != other_end && *other > rule)
            lists.push_back(*other++);
        lists.push_back(rule);
    }
    lists.insert(lists.end(), other, other_end);
}

// Appends the lowest rule of (row, column), unless a common rule is lower.
static void append_winner(t_combiner *p_combiner, std::span<const uint32_t> column)
{
    uint32_t lowest = EC_NO_RULE;
    if (!p_combiner->row_everywhere.empty())
        lowest = p_combiner->row_everywhere.back();
    for (size_t i = column.size(); i > 0 && column[i - 1] < lowest; i--) {
        if (p_combiner->row.has(column[i - 1])) {
            lowest = column[i - 1];
            break;
        }
    }
    if (lowest < p_combiner->common_lowest)
        p_combiner->p_ec->ec_bitvec.lists.push_back(lowest);
}

static void add_class(t_combiner *p_combiner, const t_fingerprint &fingerprint, uint32_t position)
{
    std::span<const uint32_t> column =
        ec_classes_list(p_combiner->p_right, p_combiner->columns.order[position]);
    if (fingerprint != EMPTY_FINGERPRINT) {
        if (p_combiner->p_ec->ec_is_last)
            append_winner(p_combiner, column);
        else
            append_rules(p_combiner, column);
        tarn_context_work(p_combiner->p_context, column.size() / 4 + 1);
    }
    ec_classes_close_list(&p_combiner->p_ec->ec_bitvec, fingerprint);
}

static uint32_t class_of(t_combiner *p_combiner, const t_fingerprint &fingerprint, uint32_t position)
{
    bool added;
    uint32_t class_id = ec_classes_find_or_add(&p_combiner->p_ec->ec_bitvec, fingerprint, &added);
    if (added)
        add_class(p_combiner, fingerprint, position);
    return class_id;
}

// The classes of the row's pairs [begin, end) by position, written at p_row by class of ec2.
static void write_pairs(t_combiner *p_combiner, uint32_t begin, uint32_t end, uint32_t *p_row)
{
    static constexpr uint32_t ahead = 12;  // look-ups started before their turn
    t_class_index *p_index = p_combiner->p_ec->ec_bitvec.p_index;
    const t_fingerprint *p_fingerprints = p_combiner->fingerprints.data();
    const uint32_t *p_order = p_combiner->columns.order.data();
    const t_fingerprint base = p_combiner->base;
    for (uint32_t position = begin; position < end; position++) {
        p_index->prefetch(p_fingerprints[std::min(position + ahead, end - 1)] ^ base);
        t_fingerprint fingerprint = p_fingerprints[position] ^ base;
        uint32_t class_id = p_index->find(fingerprint)->class_id;
        if (class_id == EC_NO_CLASS)
            class_id = class_of(p_combiner, fingerprint, position);
        p_row[p_order[position]] = class_id;
    }
}

static void write_row(t_combiner *p_combiner, uint32_t *p_row)
{
    static constexpr uint32_t batch = 8192;
    const t_columns &columns = p_combiner->columns;
    uint32_t count = static_cast<uint32_t>(columns.order.size());
    if (columns.first == 1)
        p_row[columns.order[0]] = class_of(p_combiner, EMPTY_FINGERPRINT, 0);
    for (uint32_t begin = columns.first; begin < count; begin += batch) {
        uint32_t end = std::min(count, begin + batch);
        write_pairs(p_combiner, begin, end, p_row);
        tarn_context_work(p_combiner->p_context, end - begin);
    }
}

// The row of a class that no rule matches: no pair of it matches any.
static void write_empty_row(t_combiner *p_combiner, uint32_t *p_row)
{
    std::fill_n(p_row, p_combiner->columns.order.size(), class_of(p_combiner, EMPTY_FINGERPRINT, 0));
    tarn_context_work(p_combiner->p_context, p_combiner->columns.order.size() / 8);
}

static void write_row_of(t_combiner *p_combiner, uint32_t row_class, uint32_t *p_row)
{
    if (row_class == p_combiner->p_left->empty_class) {
        write_empty_row(p_combiner, p_row);
        return;
    }
    std::span<const uint32_t> list = ec_classes_list(p_combiner->p_left, row_class);
    enter_row(p_combiner, list);
    write_row(p_combiner, p_row);
    leave_row(p_combiner, list);
}

// Counts the classes found since the last call; false when the program would pass its limit.
static bool count_classes(t_combiner *p_combiner)
{
    t_compile_budget *p_budget = &p_combiner->p_context->c_budget;
    uint32_t count = ec_classes_count(&p_combiner->p_ec->ec_bitvec);
    p_budget->known_size += (count - p_combiner->p_ec->ec_values) * p_budget->bytes_per_class;
    p_combiner->p_ec->ec_values = count;
    return p_budget->known_size <= p_budget->limit;
}

bool eclass_combine(t_tarn_context *p_context, t_ec *p_ec, const t_ec *p_ec1, const t_ec *p_ec2)
{
    // The size of the table is known before it is made.
    size_t row_size = p_ec2->ec_values;
    t_compile_budget *p_budget = &p_context->c_budget;
    p_ec->ival_ec.count = p_ec1->ec_values * row_size;
    p_budget->known_size += eclass_table_size(p_ec);
    if (p_budget->known_size > p_budget->limit)
        return false;
    ec_table_reserve(&p_ec->ival_ec, p_ec->ival_ec.count);
    ec_classes_init(p_context, &p_ec->ec_bitvec);

    t_combiner combiner = {};
    combiner.p_context = p_context;
    combiner.p_ec = p_ec;
    combiner.p_left = &p_ec1->ec_bitvec;
    combiner.p_right = &p_ec2->ec_bitvec;
    build_common(&combiner);
    build_columns(&combiner);
    combiner.row = combiner.p_left->common;
    for (uint32_t row_class : ec_classes_order(p_context, combiner.p_left)) {
        write_row_of(&combiner, row_class, &p_ec->ival_ec.classes[row_class * row_size]);
        if (!count_classes(&combiner))
            return false;
    }
    p_ec->ec_bitvec.p_index = nullptr;
    p_ec->ec_is_complete = 1;
    return true;
}
