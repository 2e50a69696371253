#include "tools/rule_check.h"

#include "tools/box_set.h"
#include "tools/live_rules.h"
#include "tools/rule_fields.h"

#include <algorithm>
#include <cstring>
#include <random>

// No table holds the value 0xffffffff.
static constexpr uint32_t last_value = 0xfffffffe;

// The rules as boxes over one domain, and the bounds of each for a quick look.
struct t_box_table {
    std::vector<uint32_t> fields;
    std::vector<t_value_range> domain;  // by dimension
    std::vector<t_box> boxes;           // by rule
    std::vector<t_value_range> bounds;  // by rule and dimension
    t_live_rules live;                  // rules so far that are neither empty nor dead here
};

static t_box box_of_rule(const t_set_rule &rule, std::span<const uint32_t> fields,
                         std::span<const t_value_range> domain)
{
    t_box box;
    for (size_t d = 0; d < fields.size(); d++) {
        const t_rule_condition *p_condition = set_rule_condition(rule, fields[d]);
        t_value_ranges ranges = p_condition != nullptr ? p_condition->ranges : t_value_ranges{domain[d]};
        ranges_normalise(&ranges);
        box.push_back(ranges_intersection(ranges, {&domain[d], 1}));
    }
    return box;
}

static t_box_table box_table_make(const t_rule_set &set, bool natural)
{
    t_box_table table;
    std::vector<uint32_t> order;
    std::string reason;
    rule_field_order_read("src,dst", &order, &reason);  // what tells rules apart soonest
    table.fields = rule_set_used_fields(set, order);
    for (uint32_t type : table.fields) {
        uint32_t max = rule_field_by_type(type)->max_value;
        table.domain.push_back({0, natural ? std::min(max, last_value) : last_value});
    }
    for (const t_set_rule &rule : set.rules) {
        table.boxes.push_back(box_of_rule(rule, table.fields, table.domain));
        for (const t_value_ranges &ranges : table.boxes.back())
            table.bounds.push_back(ranges.empty() ? t_value_range{1, 0}
                                                  : t_value_range{ranges.front().low, ranges.back().high});
    }
    return table;
}

static std::span<const t_value_range> bounds_of(const t_box_table &table, uint32_t rule)
{
    return std::span(table.bounds).subspan(rule * table.fields.size(), table.fields.size());
}

static bool bounds_meet(const t_box_table &table, uint32_t a, uint32_t b)
{
    std::span<const t_value_range> bounds_a = bounds_of(table, a);
    std::span<const t_value_range> bounds_b = bounds_of(table, b);
    for (size_t d = 0; d < bounds_a.size(); d++)
        if (bounds_a[d].high < bounds_b[d].low || bounds_b[d].high < bounds_a[d].low)
            return false;
    return true;
}

static bool box_holds_point(const t_box &box, std::span<const uint32_t> point)
{
    for (size_t d = 0; d < box.size(); d++)
        if (!ranges_hold(box[d], point[d]))
            return false;
    return true;
}

// Looks for a point of the target that no candidate holds: its corners, then random ones. Settles most live
// rules.
static bool sample_uncovered(const t_box &target, std::span<const t_box *const> boxes,
                             std::mt19937_64 *p_random)
{
    static constexpr int samples = 24;
    std::vector<uint32_t> point(target.size());
    for (int s = 0; s < samples; s++) {
        for (size_t d = 0; d < target.size(); d++) {
            uint64_t count = ranges_count(target[d]);
            uint64_t index = s == 0 ? 0 : s == 1 ? count - 1 : (*p_random)() % count;
            point[d] = ranges_value_at(target[d], index);
        }
        bool held = std::any_of(boxes.begin(), boxes.end(),
                                [&point](const t_box *p_box) { return box_holds_point(*p_box, point); });
        if (!held)
            return true;
    }
    return false;
}

// Whether the live rules before it cover the rule; then *p_cover has them by number.
static e_cover rule_cover(const t_box_table &table, uint32_t rule, uint64_t budget, std::mt19937_64 *p_random,
                          std::vector<uint32_t> *p_cover)
{
    const t_box &target = table.boxes[rule];
    std::vector<uint32_t> candidates;
    std::vector<const t_box *> boxes;
    for (uint32_t earlier : live_rules_near(table.live, bounds_of(table, rule))) {
        if (!bounds_meet(table, earlier, rule) || !box_intersects(table.boxes[earlier], target))
            continue;
        candidates.push_back(earlier);
        boxes.push_back(&table.boxes[earlier]);
        if (box_contains(*boxes.back(), target)) {
            *p_cover = {earlier + 1};
            return e_cover::covered;
        }
    }
    if (sample_uncovered(target, boxes, p_random))
        return e_cover::uncovered;
    t_cover_answer answer = box_cover(target, boxes, &budget);
    if (answer.state != e_cover::covered)
        return answer.state;
    std::vector<uint32_t> cover = box_cover_prune(target, boxes, answer.used, &budget);
    if (budget == 0)
        return e_cover::undecided;  // some rule of the cover may be one too many
    p_cover->clear();
    for (uint32_t c : cover)
        p_cover->push_back(candidates[c] + 1);
    return e_cover::covered;
}

bool rule_actions_equal(const t_set_rule &a, const t_set_rule &b)
{
    return std::equal(a.actions.begin(), a.actions.end(), b.actions.begin(), b.actions.end(),
                      [](const t_tarn_filter_action &x, const t_tarn_filter_action &y) {
                          // Slots are zeroed before they are filled, padding too.
                          // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
                          return memcmp(&x, &y, sizeof(x)) == 0;
                      });
}

static void report_dead(const t_rule_set &set, uint32_t rule, std::vector<uint32_t> cover, bool natural_only,
                        t_rule_check *p_check)
{
    bool differs = std::any_of(cover.begin(), cover.end(), [&set, rule](uint32_t number) {
        return !rule_actions_equal(set.rules[number - 1], set.rules[rule]);
    });
    p_check->dead.push_back({rule + 1, std::move(cover), differs, natural_only});
}

t_rule_check rule_set_check(const t_rule_set &set, uint64_t budget_per_rule)
{
    t_rule_check check;
    t_box_table natural = box_table_make(set, true);
    t_box_table full = box_table_make(set, false);
    std::mt19937_64 random(1);
    for (uint32_t rule = 0; rule < set.rules.size(); rule++) {
        if (box_is_empty(full.boxes[rule])) {
            check.match_nothing.push_back(rule + 1);
            continue;
        }
        // What is alive among packets is alive among all values, so the second question is rarely asked.
        std::vector<uint32_t> cover;
        std::vector<uint32_t> full_cover;
        e_cover state = rule_cover(natural, rule, budget_per_rule, &random, &cover);
        e_cover full_state = state;
        if (state == e_cover::covered)
            full_state = rule_cover(full, rule, budget_per_rule, &random, &full_cover);
        if (state != e_cover::covered)
            live_rules_add(&natural.live, rule, bounds_of(natural, rule));
        if (full_state != e_cover::covered)
            live_rules_add(&full.live, rule, bounds_of(full, rule));
        if (full_state == e_cover::covered)
            report_dead(set, rule, std::move(full_cover), false, &check);
        else if (state == e_cover::covered)
            report_dead(set, rule, std::move(cover), true, &check);
        else if (state == e_cover::undecided)
            check.undecided.push_back(rule + 1);
    }
    return check;
}
