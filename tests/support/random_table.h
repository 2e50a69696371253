// Seeded random policies, the rule tables made of them, packet headers that look for their weak places, and
// the definition of the right answer: the first rule that matches.
//
// A policy is a table without a compiler context, so that a test can rewrite it and build it again. Every
// rule has an identity above 0, which is the first word of its action's payload; the default action's is 0.
// So a verdict can be read from a record of the program and survives a change of the rules' order.
#pragma once

#include "lab/fp/walker.h"
#include "tests/support/compile.h"

#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

inline constexpr int RANGE = -1;

struct t_policy_match {
    uint32_t type;   // e_tarn_ip_field_type
    uint32_t low;    // of a range, or the address of a prefix in host order
    uint32_t high;   // of a range; bounds may be reversed
    int prefix_len;  // 0 to 32, or RANGE
};

struct t_policy_rule {
    uint32_t identity;
    std::vector<t_policy_match> matches;
};

struct t_policy {
    std::string name;
    uint32_t action_data_len;  // bytes, 4 or more
    std::vector<t_policy_rule> rules;
};

// A table of the policy, filled through the context.
ruletable_ptr policy_build(const t_policy &policy, t_tarn_context *p_context);

struct t_policy_shape {
    int field_types;  // 1 to 18
    int rules;
    uint32_t action_data_len;
};

// field_types types in random order, each used by at least one rule (given enough rules): small values and
// large ones, values around 0, the type's maximum and 0xffffffff, several intervals to a field, prefixes of
// every length, rules without fields, duplicates of earlier rules.
t_policy policy_random(std::mt19937 *p_random, const t_policy_shape &shape);

uint32_t random_below(std::mt19937 *p_random, uint32_t bound);

// A rule table unpacked for fast linear search, with what the header generator needs.
struct t_linear_table {
    struct t_field {
        uint32_t type;
        std::vector<t_interval> intervals;
    };
    struct t_rule {
        uint32_t identity;
        std::vector<t_field> fields;
    };
    std::vector<t_rule> rules;
    std::vector<uint32_t> types;                            // that any rule names
    std::vector<uint32_t> borders[tarn_ip_field_type_max];  // by type
};

t_linear_table linear_table(const t_tarn_ruletable *p_table);

// Identity of the first rule that matches; 0, the default, if there is none or if a field of the table has
// the value 0xffffffff, which lies in no interval.
uint32_t linear_match(const t_linear_table &table, const t_fp_header &header);

// Half of the values lie on interval borders, one below or one above; the others inside intervals or
// anywhere. Most headers follow one rule, so that long conjunctions are met too.
t_fp_header random_header(std::mt19937 *p_random, const t_linear_table &table);

// Identity in the record that a program gives a header; 0 without a record.
uint32_t program_verdict(std::span<const std::byte> program, const t_fp_verdict &verdict);
