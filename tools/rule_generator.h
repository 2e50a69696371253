// A seeded generator of rule sets with the shape of real ones.
//
// Three families: access lists (acl) name specific hosts and networks, any source port and a few destination
// ports; firewalls (fw) have many wildcards, exact ports and high port ranges on both sides; chains (ipc) lie
// between. Addresses come from a tree: a few large networks, sites in them, hosts in the sites, and a few
// hosts are in most rules; a rule names a host or a network around it, so prefixes nest. Ports come from
// short menus. Rules are distinct and stand in order of specificity with some disorder, the broad ones last.
//
// Equal arguments give equal sets on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum class e_rule_family { acl, fw, ipc };

struct t_generated_prefix {
    uint32_t address;  // host order; bits behind the length are 0
    uint32_t length;
    bool operator==(const t_generated_prefix &) const = default;
};

struct t_generated_ports {
    uint32_t low;
    uint32_t high;
    bool operator==(const t_generated_ports &) const = default;
};

struct t_generated_rule {
    t_generated_prefix src;
    t_generated_prefix dst;
    t_generated_ports sport;
    t_generated_ports dport;
    uint32_t protocol;       // number
    uint32_t protocol_mask;  // 0xff, or 0 for any
    bool operator==(const t_generated_rule &) const = default;
};

inline constexpr size_t GENERATOR_MAX_RULES = 524280;

// "acl", "fw" or "ipc".
bool rule_family_read(std::string_view name, e_rule_family *p_family);

// count rules, 1 to GENERATOR_MAX_RULES.
std::vector<t_generated_rule> rules_generate(e_rule_family family, size_t count, uint64_t seed);

// The rules as a filter set in ClassBench format.
std::string generated_rules_print(const std::vector<t_generated_rule> &rules);
