#include "tools/box_set.h"
#include "tools/rule_check.h"
#include "tools/rule_fields.h"
#include "tools/rule_file_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

t_rule_set read_rules(const std::string &text)
{
    t_rule_set set;
    t_text_error error;
    EXPECT_TRUE(rule_file_read(text, "f", &set, &error)) << text_error_print(error);
    return set;
}

// Fields with few values, so that every packet can be tried.
constexpr uint32_t small_fields[] = {tarn_ip_plp, tarn_ip_dns, tarn_ip_fc};

using t_point = std::array<uint32_t, std::size(small_fields)>;

bool holds(const t_set_rule &rule, const t_point &point)
{
    for (size_t d = 0; d < point.size(); d++) {
        const t_rule_condition *p_condition = set_rule_condition(rule, small_fields[d]);
        if (p_condition != nullptr && !ranges_hold(p_condition->ranges, point[d]))
            return false;
    }
    return true;
}

// All packets; with beyond, one value behind each natural range stands for all that no rule names.
std::vector<t_point> all_points(bool beyond)
{
    std::vector<t_point> points;
    uint32_t more = beyond ? 1 : 0;
    for (uint32_t a = 0; a <= rule_field_by_type(small_fields[0])->max_value + more; a++)
        for (uint32_t b = 0; b <= rule_field_by_type(small_fields[1])->max_value + more; b++)
            for (uint32_t c = 0; c <= rule_field_by_type(small_fields[2])->max_value + more; c++)
                points.push_back({a, b, c});
    return points;
}

bool covered(const t_rule_set &set, size_t rule, const std::vector<uint32_t> &by,
             const std::vector<t_point> &points)
{
    return std::all_of(points.begin(), points.end(), [&](const t_point &point) {
        return !holds(set.rules[rule], point) || std::any_of(by.begin(), by.end(), [&](uint32_t number) {
            return holds(set.rules[number - 1], point);
        });
    });
}

t_rule_set random_set(std::mt19937 &random)
{
    t_rule_set set = {.file = "f", .table = "t", .rules = {}, .default_actions = {}};
    for (uint32_t i = 0, count = 2 + static_cast<uint32_t>(random()) % 14; i < count; i++) {
        t_set_rule rule = {.name = std::to_string(i), .line = i, .conditions = {}, .actions = {}};
        for (uint32_t type : small_fields) {
            if (random() % 4 == 0)
                continue;
            uint32_t max = rule_field_by_type(type)->max_value;
            t_value_ranges ranges;
            for (uint32_t r = 1 + static_cast<uint32_t>(random()) % 2; r > 0; r--) {
                uint32_t low = static_cast<uint32_t>(random()) % (max + 1);
                ranges.push_back({low, std::min(max, low + static_cast<uint32_t>(random()) % (max + 1))});
            }
            set_rule_add_condition(&rule, type, ranges);
        }
        rule.actions.resize(1);
        rule.actions[0].action = random() % 2 == 0 ? TARN_FILTER_ACTION_ACCEPT : TARN_FILTER_ACTION_REJECT;
        set.rules.push_back(rule);
    }
    return set;
}

std::vector<uint32_t> numbers_before(uint32_t rule)
{
    std::vector<uint32_t> numbers;
    for (uint32_t n = 1; n <= rule; n++)
        numbers.push_back(n);
    return numbers;
}

void expect_good_cover(const t_rule_set &set, const t_dead_rule &dead, const std::vector<t_point> &points)
{
    EXPECT_TRUE(covered(set, dead.rule - 1, dead.cover, points));
    for (uint32_t left_out : dead.cover) {
        EXPECT_LT(left_out, dead.rule);
        std::vector<uint32_t> rest = dead.cover;
        std::erase(rest, left_out);
        EXPECT_FALSE(covered(set, dead.rule - 1, rest, points)) << "rule " << left_out << " can be left out";
    }
}

}  // namespace

TEST(RuleCheck, AgreesWithTryingEveryPacket)
{
    std::vector<t_point> natural = all_points(false);
    std::vector<t_point> full = all_points(true);
    int dead_rules = 0;
    int natural_only = 0;
    for (uint32_t seed = 1; seed <= 120; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        t_rule_set set = random_set(random);
        t_rule_check check = rule_set_check(set);
        EXPECT_TRUE(check.match_nothing.empty());
        EXPECT_TRUE(check.undecided.empty());
        for (uint32_t rule = 0; rule < set.rules.size(); rule++) {
            SCOPED_TRACE("rule " + std::to_string(rule + 1));
            auto found = std::find_if(check.dead.begin(), check.dead.end(),
                                      [rule](const t_dead_rule &dead) { return dead.rule == rule + 1; });
            bool is_dead = covered(set, rule, numbers_before(rule), natural);
            ASSERT_EQ(found != check.dead.end(), is_dead);
            if (!is_dead)
                continue;
            dead_rules++;
            natural_only += found->natural_only;
            EXPECT_EQ(found->natural_only, !covered(set, rule, numbers_before(rule), full));
            expect_good_cover(set, *found, found->natural_only ? natural : full);
            bool differs = std::any_of(found->cover.begin(), found->cover.end(), [&](uint32_t number) {
                return set.rules[number - 1].actions[0].action != set.rules[rule].actions[0].action;
            });
            EXPECT_EQ(found->action_differs, differs);
        }
    }
    EXPECT_GT(dead_rules, 100) << "the sets are too tame to prove anything";
    EXPECT_GT(natural_only, 5);
}

TEST(RuleCheck, FindsWhatPeopleGetWrong)
{
    struct t_case {
        const char *behaviour;
        const char *rules;
        std::vector<uint32_t> dead;
        std::vector<uint32_t> cover;  // of the last dead rule
        bool differs;
        bool natural_only;
        std::vector<uint32_t> nothing;
    };
    static const t_case cases[] = {
        {"two halves of a prefix cover it",
         "rule a src 10.0.0.0/9 reject\nrule b src 10.128.0.0/9 accept\nrule c src 10.0.0.0/8 dport 80 "
         "accept",
         {3},
         {1, 2},
         true,
         false,
         {}},
        {"a rule that covers alone is named alone",
         "rule a src 10.0.0.0/9 dport 80 accept\nrule b src 10.0.0.0/8 accept\nrule c src 10.0.0.0/16 accept",
         {3},
         {2},
         false,
         false,
         {}},
        {"a rule without conditions kills what follows",
         "rule a reject\nrule b src 1.2.3.4 accept\nrule c accept",
         {2, 3},
         {1},
         true,
         false,
         {}},
        {"ports below and above 1023 cover any port of a packet, not every value",
         "rule a dport 0-1023 accept\nrule b dport 1024-65535 accept\nrule c accept",
         {3},
         {1, 2},
         false,
         true,
         {}},
        {"halves of the address space cover all of it",
         "rule a src 0.0.0.0/1 accept\nrule b src 128.0.0.0/1 accept\nrule c accept",
         {3},
         {1, 2},
         false,
         false,
         {}},
        {"the last address is in no table",
         "rule a src 255.255.255.255/32 accept\nrule b src 255.255.255.254/31 accept",
         {},
         {},
         false,
         false,
         {1}},
        {"a rule for the last address and one more is covered by that one",
         "rule a dst 255.255.255.254 accept\nrule b dst 255.255.255.254/31 accept",
         {2},
         {1},
         false,
         false,
         {}},
        {"counters of different names are different actions",
         "rule a proto tcp accept count x\nrule b proto tcp dport 1 accept count y",
         {2},
         {1},
         true,
         false,
         {}},
        {"rules that only overlap are alive",
         "rule a src 10.0.0.0/8 dport 80 accept\nrule b src 10.0.0.0/8 proto tcp reject\nrule c dport 80 "
         "accept",
         {},
         {},
         false,
         false,
         {}},
    };
    for (const t_case &c : cases) {
        SCOPED_TRACE(c.behaviour);
        t_rule_check check = rule_set_check(read_rules(c.rules));
        std::vector<uint32_t> dead;
        for (const t_dead_rule &rule : check.dead)
            dead.push_back(rule.rule);
        EXPECT_EQ(dead, c.dead);
        EXPECT_EQ(check.match_nothing, c.nothing);
        if (check.dead.empty())
            continue;
        EXPECT_EQ(check.dead.back().cover, c.cover);
        EXPECT_EQ(check.dead.back().action_differs, c.differs);
        EXPECT_EQ(check.dead.back().natural_only, c.natural_only);
    }
}

TEST(RuleCheck, ARuleThatCostsTooMuchIsUndecided)
{
    // Only one value of each pair of fields stays open, and the sample does not find it.
    std::string rules;
    for (uint32_t i = 0; i < 64; i++)
        rules += "rule r" + std::to_string(i) + " src 0.0.0." + std::to_string(i) + " dport 0-" +
                 std::to_string(65534 - i) + " accept\n" + "rule s" + std::to_string(i) + " src 0.0.0." +
                 std::to_string(i) + " dport " + std::to_string(65535 - i) + "-65535 accept\n";
    t_rule_set set = read_rules(rules + "rule last src 0.0.0.0/26 reject\n");
    EXPECT_EQ(rule_set_check(set, 50).undecided, (std::vector<uint32_t>{129}));
    t_rule_check check = rule_set_check(set);
    ASSERT_EQ(check.dead.size(), 1u);
    EXPECT_EQ(check.dead[0].cover.size(), 128u);
    EXPECT_TRUE(check.dead[0].natural_only);
}
