// Judging a rule set: which rules can never win, and why.
//
// A rule is dead when the rules before it together take every packet that it matches; the report names such
// rules, of which none can be left out. The question is decided over all 32-bit values of a field but
// 0xffffffff, as a program sees them: there a rule for ports 0-1023 and one for 1024-65535 leave something to
// a rule for any port. Since no packet carries that rest, a rule that is dead only within the fields' natural
// ranges is found as well, and marked. No program is made, so a table may be as large as it likes.
//
// Every finding is about one rule: a rule that matches nothing is not asked whether it is dead, and dead
// rules are left out of the search for covers, since what they match is covered without them.
#pragma once

#include "tools/rule_set.h"

#include <cstdint>
#include <vector>

struct t_dead_rule {
    uint32_t rule;                // number, from 1
    std::vector<uint32_t> cover;  // numbers of earlier rules, ascending
    bool action_differs;          // from that of some rule of the cover
    bool natural_only;            // dead for what packets carry, not for every value
};

struct t_rule_check {
    std::vector<t_dead_rule> dead;
    std::vector<uint32_t> match_nothing;  // e.g. the one address 255.255.255.255, which is in no table
    std::vector<uint32_t> undecided;      // rules that the budget did not suffice for
};

// Work that one rule may cost before it is reported as undecided; a unit is a look at one earlier rule.
inline constexpr uint64_t RULE_CHECK_BUDGET = 20'000'000;

t_rule_check rule_set_check(const t_rule_set &set, uint64_t budget_per_rule = RULE_CHECK_BUDGET);

// Whether two rules do the same to a packet, counters and policers by name included.
bool rule_actions_equal(const t_set_rule &a, const t_set_rule &b);
