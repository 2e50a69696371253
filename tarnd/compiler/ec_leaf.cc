// Filling a leaf: a sweep over the end points.
//
// Between two neighbouring end points no rule begins or ends to match. The sweep keeps the set of rules that
// match and its fingerprint, and at each end point flips the rules that begin or end there; so the cost is
// the number of interval bounds, not rules times intervals. Rules without the field match everywhere and are
// common to all classes.
#include "common/lum_assert.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_field.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace {

// A rule's interval as positions of end points: it matches from interval `begin` up to interval `end`,
// exclusive.
struct t_span {
    uint32_t rule;
    uint32_t begin;
    uint32_t end;
};

// Which rules flip at each end point.
struct t_events {
    std::vector<uint32_t> start;  // by position; rules[start[p]] up to rules[start[p + 1]]
    std::vector<uint32_t> rules;
};

struct t_sweep {
    t_tarn_context *p_context;
    t_ec *p_ec;
    std::vector<uint32_t> covering;  // by rule: intervals of it that hold the present value
    t_rule_bits matching;            // rules with the field that match the present value
    t_fingerprint fingerprint;       // of all rules that match, those without the field included
};

}  // namespace

static std::vector<uint32_t> endpoint_values(const t_ec *p_ec)
{
    std::vector<uint32_t> values;
    for (t_rbst_node *p_node = rbst_first(&p_ec->endpoints); p_node != nullptr;
         p_node = rbst_getnext(&p_ec->endpoints, p_node))
        values.push_back(*static_cast<const uint32_t *>(p_node->key));
    return values;
}

// The rules' intervals in positions; a rule without the field becomes common. An interval that holds none of
// the starts (one that begins at the top value) matches nowhere.
static std::vector<t_span> collect_spans(t_sweep *p_sweep, const t_tarn_ruletable *p_table,
                                         const std::vector<uint32_t> &starts)
{
    std::vector<t_span> spans;
    auto last = starts.end() - 1;
    uint32_t index = 0;
    for (const t_tarn_rule *p_rule = p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next, index++) {
        const t_tarn_field *p_field = tarn_find_field_by_id(p_rule, p_sweep->p_ec->ec_id);
        if (p_field == nullptr) {
            p_sweep->p_ec->ec_bitvec.common.flip(index);
            p_sweep->fingerprint ^= p_sweep->p_context->p_rule_keys->keys[index];
            continue;
        }
        for (const t_interval *p_ival = p_field->f_intervals; p_ival != nullptr; p_ival = p_ival->i_next) {
            auto begin = std::lower_bound(starts.begin(), last, p_ival->i_min);
            auto end = std::upper_bound(begin, last, p_ival->i_max);
            if (begin < end)
                spans.push_back({index, static_cast<uint32_t>(begin - starts.begin()),
                                 static_cast<uint32_t>(end - starts.begin())});
        }
        tarn_context_work(p_sweep->p_context, 8);
    }
    return spans;
}

static t_events build_events(const std::vector<t_span> &spans, size_t positions)
{
    t_events events;
    events.start.assign(positions + 1, 0);
    for (const t_span &span : spans) {
        events.start[span.begin]++;
        events.start[span.end]++;
    }
    uint32_t sum = 0;
    for (uint32_t &count : events.start)
        sum += std::exchange(count, sum);
    events.rules.resize(spans.size() * 2);
    std::vector<uint32_t> next = events.start;
    for (const t_span &span : spans)
        events.rules[next[span.begin]++] = span.rule * 2 + 1;
    for (const t_span &span : spans)
        events.rules[next[span.end]++] = span.rule * 2;
    return events;
}

// Takes the present value to the next position. Intervals of one rule may overlap or touch, so they are
// counted.
static void sweep_step(t_sweep *p_sweep, std::span<const uint32_t> events)
{
    for (uint32_t event : events) {
        uint32_t rule = event / 2;
        bool begins = event % 2 == 1;
        uint32_t before = p_sweep->covering[rule];
        p_sweep->covering[rule] = begins ? before + 1 : before - 1;
        if ((before == 0) != (p_sweep->covering[rule] == 0)) {
            p_sweep->matching.flip(rule);
            p_sweep->fingerprint ^= p_sweep->p_context->p_rule_keys->keys[rule];
        }
    }
}

static void append_matching(t_sweep *p_sweep)
{
    const std::vector<uint64_t> &words = p_sweep->matching.words;
    for (size_t i = words.size(); i > 0; i--) {
        for (uint64_t word = words[i - 1]; word != 0;) {
            uint32_t bit = static_cast<uint32_t>(std::bit_width(word)) - 1;
            p_sweep->p_ec->ec_bitvec.lists.push_back(static_cast<uint32_t>((i - 1) * 64) + bit);
            word ^= uint64_t{1} << bit;
        }
    }
    tarn_context_work(p_sweep->p_context, words.size() / 8);
}

void tarn_compile_field(t_tarn_context *p_context, const t_tarn_ruletable *p_table, t_ec *p_ec)
{
    LUM_ASSERT(p_table->rules != nullptr, "rule != NULL");
    ec_classes_init(p_context, &p_ec->ec_bitvec);
    t_sweep sweep = {p_context, p_ec, std::vector<uint32_t>(p_context->c_num_rules),
                     rule_bits_create(p_context->c_num_rules), EMPTY_FINGERPRINT};
    std::vector<uint32_t> starts = endpoint_values(p_ec);
    size_t count = starts.size() - 1;
    t_events events = build_events(collect_spans(&sweep, p_table, starts), starts.size());
    ec_table_reserve(&p_ec->ival_ec, count);
    for (size_t i = 0; i < count; i++) {
        std::span<const uint32_t> here(events.rules.data() + events.start[i],
                                       events.start[i + 1] - events.start[i]);
        sweep_step(&sweep, here);
        bool added;
        uint32_t class_id = ec_classes_find_or_add(&p_ec->ec_bitvec, sweep.fingerprint, &added);
        if (added) {
            append_matching(&sweep);
            ec_classes_close_list(&p_ec->ec_bitvec, sweep.fingerprint);
        }
        p_ec->ival_ec.classes[i] = class_id;
        tarn_context_work(p_context, here.size() / 4 + 1);
    }
    p_ec->ival_ec.starts = std::move(starts);
    p_ec->ec_values = ec_classes_count(&p_ec->ec_bitvec);
    ec_classes_factor_common(p_context, &p_ec->ec_bitvec);
    p_ec->ec_is_complete = 1;
}
