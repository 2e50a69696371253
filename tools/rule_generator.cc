#include "tools/rule_generator.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <span>
#include <unordered_set>

struct t_weighted {
    uint32_t value;
    uint32_t weight;
};

// One side of an address pair.
struct t_side_profile {
    double hosts_per_rule;                // size of the tree
    int skew;                             // 2 or 3: how much the first hosts are preferred
    std::span<const t_weighted> lengths;  // of prefixes
};

enum e_port_kind : uint32_t { PORT_ANY, PORT_EXACT, PORT_HIGH, PORT_RANGE };

struct t_port_profile {
    size_t exact_ports;  // size of the menus
    size_t ranges;
    std::span<const t_weighted> kinds;  // e_port_kind
};

struct t_family_profile {
    t_side_profile src;
    t_side_profile dst;
    t_port_profile sport;
    t_port_profile dport;
    std::span<const t_weighted> protocols;  // 0 for any
    uint32_t networks;                      // large networks at the top of the tree

    // Rules from everywhere to a host name a service, rules from a host to everywhere rarely do. Empty: no
    // difference.
    std::span<const t_weighted> inbound_protocols;
    std::span<const t_weighted> inbound_dports;
    std::span<const t_weighted> outbound_dports;
};

static const t_weighted acl_src_lengths[] = {{0, 1},  {7, 1},  {22, 2},  {23, 8}, {24, 5},
                                             {25, 1}, {30, 4}, {31, 20}, {32, 58}};
static const t_weighted acl_dst_lengths[] = {{0, 1},  {3, 1},  {8, 1},  {15, 2}, {16, 2},  {21, 2}, {22, 7},
                                             {23, 4}, {24, 3}, {27, 1}, {30, 5}, {31, 19}, {32, 52}};
static const t_weighted fw_src_lengths[] = {{0, 38}, {1, 19}, {2, 3},  {11, 1}, {15, 1}, {21, 2}, {23, 1},
                                            {26, 1}, {28, 4}, {29, 3}, {30, 3}, {31, 9}, {32, 15}};
static const t_weighted fw_dst_lengths[] = {{0, 22}, {1, 9},  {2, 2},  {20, 1},  {21, 1}, {27, 2},
                                            {28, 2}, {29, 2}, {30, 6}, {31, 22}, {32, 31}};
static const t_weighted ipc_src_lengths[] = {{0, 8},  {1, 4},   {15, 1},  {16, 3}, {17, 4}, {21, 2},
                                             {22, 5}, {23, 12}, {24, 14}, {25, 8}, {26, 3}, {27, 2},
                                             {28, 2}, {30, 1},  {31, 9},  {32, 22}};
static const t_weighted ipc_dst_lengths[] = {{0, 4},  {1, 2},  {15, 3},  {16, 5},  {17, 2},
                                             {22, 2}, {23, 7}, {24, 13}, {25, 10}, {26, 4},
                                             {27, 3}, {28, 2}, {30, 2},  {31, 11}, {32, 30}};

static const t_weighted any_port[] = {{PORT_ANY, 1}};
static const t_weighted acl_dports[] = {{PORT_ANY, 19}, {PORT_EXACT, 69}, {PORT_RANGE, 12}};
static const t_weighted fw_sports[] = {{PORT_ANY, 76}, {PORT_EXACT, 15}, {PORT_HIGH, 9}};
static const t_weighted fw_dports[] = {{PORT_ANY, 30}, {PORT_EXACT, 55}, {PORT_HIGH, 15}};
static const t_weighted fw_inbound_dports[] = {{PORT_ANY, 1}, {PORT_EXACT, 95}, {PORT_HIGH, 4}};
static const t_weighted fw_outbound_dports[] = {{PORT_ANY, 89}, {PORT_EXACT, 8}, {PORT_HIGH, 3}};
static const t_weighted ipc_sports[] = {{PORT_ANY, 71}, {PORT_EXACT, 25}, {PORT_HIGH, 2}, {PORT_RANGE, 2}};
static const t_weighted ipc_dports[] = {{PORT_ANY, 36}, {PORT_EXACT, 51}, {PORT_HIGH, 8}, {PORT_RANGE, 5}};

static const t_weighted acl_protocols[] = {{6, 880}, {0, 80}, {1, 25}, {17, 15}};
static const t_weighted fw_protocols[] = {{6, 560}, {17, 320}, {47, 60}, {1, 45}, {0, 12}};
static const t_weighted fw_inbound_protocols[] = {{6, 680}, {17, 300}, {47, 5}, {1, 10}, {0, 5}};
static const t_weighted ipc_protocols[] = {{17, 375}, {0, 330}, {6, 270}, {1, 14}, {50, 4}, {51, 4}, {47, 3}};

// What real access lists, firewalls and chains of about a thousand rules show. Rows by e_rule_family.
static const t_family_profile profiles[] = {
    {.src = {0.016, 2, acl_src_lengths},
     .dst = {0.15, 3, acl_dst_lengths},
     .sport = {0, 0, any_port},
     .dport = {68, 16, acl_dports},
     .protocols = acl_protocols,
     .networks = 12,
     .inbound_protocols = {},
     .inbound_dports = {},
     .outbound_dports = {}},
    {.src = {0.018, 3, fw_src_lengths},
     .dst = {0.025, 3, fw_dst_lengths},
     .sport = {10, 0, fw_sports},
     .dport = {40, 0, fw_dports},
     .protocols = fw_protocols,
     .networks = 24,
     .inbound_protocols = fw_inbound_protocols,
     .inbound_dports = fw_inbound_dports,
     .outbound_dports = fw_outbound_dports},
    {.src = {0.16, 3, ipc_src_lengths},
     .dst = {0.42, 3, ipc_dst_lengths},
     .sport = {26, 2, ipc_sports},
     .dport = {40, 3, ipc_dports},
     .protocols = ipc_protocols,
     .networks = 16,
     .inbound_protocols = {},
     .inbound_dports = {},
     .outbound_dports = {}},
};

static const uint32_t usual_ports[] = {80,  443, 53,   25,   22,   1521, 161,  123, 21,  110,
                                       514, 69,  143,  389,  445,  1433, 3389, 179, 23,  8080,
                                       135, 993, 3306, 5060, 2049, 636,  88,   137, 750, 1526};

struct t_port_menu {
    std::vector<t_generated_ports> exact;
    std::vector<t_generated_ports> ranges;
};

struct t_generator {
    std::mt19937_64 random;
    const t_family_profile *p_profile;
    std::vector<uint32_t> src_hosts;
    std::vector<uint32_t> dst_hosts;
    t_port_menu sport_menu;
    t_port_menu dport_menu;
};

static uint32_t draw_below(t_generator *p_generator, size_t bound)
{
    return static_cast<uint32_t>(p_generator->random() % bound);
}

static uint32_t draw_weighted(t_generator *p_generator, std::span<const t_weighted> choices)
{
    uint32_t total = 0;
    for (const t_weighted &choice : choices)
        total += choice.weight;
    uint32_t point = draw_below(p_generator, total);
    for (const t_weighted &choice : choices) {
        if (point < choice.weight)
            return choice.value;
        point -= choice.weight;
    }
    return choices.back().value;
}

// An index below count that is small more often than not: count * u^skew for a uniform u.
static size_t draw_skewed(t_generator *p_generator, size_t count, int skew)
{
    double u = static_cast<double>(p_generator->random() >> 11) * 0x1p-53;
    double share = u;
    for (int i = 1; i < skew; i++)
        share *= u;
    return static_cast<size_t>(share * static_cast<double>(count));
}

// Hosts of a tree: networks of 16 bits, about one site of 10 bits for every 12 hosts, hosts in the sites.
static std::vector<uint32_t> tree_make(t_generator *p_generator, double size)
{
    size_t host_count = std::max<size_t>(2, static_cast<size_t>(size));
    std::vector<uint32_t> networks;
    for (uint32_t i = 0; i < p_generator->p_profile->networks; i++)
        networks.push_back((1 + draw_below(p_generator, 0xdffe)) << 16);
    std::vector<uint32_t> sites;
    for (size_t i = 0; i < host_count / 12 + 3; i++)
        sites.push_back(networks[draw_skewed(p_generator, networks.size(), 2)] | draw_below(p_generator, 64)
                                                                                     << 10);
    std::vector<uint32_t> hosts;
    for (size_t i = 0; i < host_count; i++)
        hosts.push_back(sites[draw_skewed(p_generator, sites.size(), 2)] | draw_below(p_generator, 1024));
    return hosts;
}

static t_port_menu menu_make(t_generator *p_generator, const t_port_profile &profile)
{
    t_port_menu menu;
    for (size_t i = 0; i < profile.exact_ports; i++) {
        uint32_t port = i < std::size(usual_ports) ? usual_ports[i] : 1024 + draw_below(p_generator, 32000);
        menu.exact.push_back({port, port});
    }
    for (size_t i = 0; i < profile.ranges; i++) {
        uint32_t low = 1024 + draw_below(p_generator, 40000);
        menu.ranges.push_back({low, low + 1 + draw_below(p_generator, i % 4 == 0 ? 20000 : 60)});
    }
    return menu;
}

static t_generated_prefix draw_prefix(t_generator *p_generator, const t_side_profile &profile,
                                      const std::vector<uint32_t> &hosts)
{
    uint32_t length = draw_weighted(p_generator, profile.lengths);
    uint32_t host = hosts[draw_skewed(p_generator, hosts.size(), profile.skew)];
    return {host & ~static_cast<uint32_t>(0xffffffffull >> length), length};
}

static t_generated_ports draw_ports(t_generator *p_generator, std::span<const t_weighted> kinds,
                                    const t_port_menu &menu)
{
    switch (draw_weighted(p_generator, kinds)) {
    case PORT_EXACT:
        return menu.exact[draw_skewed(p_generator, menu.exact.size(), 2)];
    case PORT_HIGH:
        return {1024, 65535};
    case PORT_RANGE:
        return menu.ranges[draw_skewed(p_generator, menu.ranges.size(), 2)];
    default:
        return {0, 65535};
    }
}

static bool is_broad(const t_generated_prefix &prefix)
{
    return prefix.length <= 2;
}

static void draw_addresses(t_generator *p_generator, t_generated_rule *p_rule)
{
    const t_family_profile &profile = *p_generator->p_profile;
    do {
        p_rule->src = draw_prefix(p_generator, profile.src, p_generator->src_hosts);
        p_rule->dst = draw_prefix(p_generator, profile.dst, p_generator->dst_hosts);
        // People rarely write rules with a wildcard on both sides.
    } while (is_broad(p_rule->src) && is_broad(p_rule->dst) && draw_below(p_generator, 12) != 0);
}

static t_generated_rule draw_rule(t_generator *p_generator)
{
    const t_family_profile &profile = *p_generator->p_profile;
    t_generated_rule rule = {};
    draw_addresses(p_generator, &rule);
    std::span<const t_weighted> protocols = profile.protocols;
    std::span<const t_weighted> dports = profile.dport.kinds;
    if (!profile.inbound_dports.empty() && is_broad(rule.src)) {
        protocols = profile.inbound_protocols;
        dports = profile.inbound_dports;
    } else if (!profile.outbound_dports.empty() && is_broad(rule.dst)) {
        dports = profile.outbound_dports;
    }
    rule.protocol = draw_weighted(p_generator, protocols);
    rule.protocol_mask = rule.protocol == 0 ? 0 : 0xff;
    rule.sport = {0, 65535};
    rule.dport = {0, 65535};
    if (rule.protocol == 6 || rule.protocol == 17) {
        rule.sport = draw_ports(p_generator, profile.sport.kinds, p_generator->sport_menu);
        rule.dport = draw_ports(p_generator, dports, p_generator->dport_menu);
    }
    return rule;
}

struct t_rule_hash {
    size_t operator()(const t_generated_rule &rule) const
    {
        uint64_t hash = 0;
        for (uint32_t part :
             {rule.src.address, rule.src.length, rule.dst.address, rule.dst.length, rule.sport.low,
              rule.sport.high, rule.dport.low, rule.dport.high, rule.protocol})
            hash = (hash ^ part) * 0x9e3779b97f4a7c15 + (hash >> 29);
        return hash;
    }
};

// How little a rule says: bits that its prefixes leave open, and as much again for open ports and protocol.
static uint32_t breadth(const t_generated_rule &rule)
{
    uint32_t open_bits = 64 - rule.src.length - rule.dst.length;
    for (const t_generated_ports &ports : {rule.sport, rule.dport})
        open_bits += ports.high - ports.low == 65535 ? 20 : ports.high > ports.low ? 10 : 0;
    return open_bits + (rule.protocol_mask == 0 ? 20 : 0);
}

// Specific rules first, with some disorder among neighbours.
static void order_by_specificity(t_generator *p_generator, std::vector<t_generated_rule> *p_rules)
{
    std::vector<std::pair<uint32_t, size_t>> keys;
    for (size_t i = 0; i < p_rules->size(); i++) {
        keys.emplace_back(breadth((*p_rules)[i]) + draw_below(p_generator, 12), i);
    }
    std::sort(keys.begin(), keys.end());
    std::vector<t_generated_rule> ordered;
    ordered.reserve(keys.size());
    for (const auto &[key, index] : keys)
        ordered.push_back((*p_rules)[index]);
    p_rules->swap(ordered);
}

bool rule_family_read(std::string_view name, e_rule_family *p_family)
{
    static constexpr std::string_view names[] = {"acl", "fw", "ipc"};
    auto found = std::find(std::begin(names), std::end(names), name);
    if (found == std::end(names))
        return false;
    *p_family = static_cast<e_rule_family>(found - std::begin(names));
    return true;
}

std::vector<t_generated_rule> rules_generate(e_rule_family family, size_t count, uint64_t seed)
{
    t_generator generator = {.random = std::mt19937_64(seed),
                             .p_profile = &profiles[static_cast<size_t>(family)],
                             .src_hosts = {},
                             .dst_hosts = {},
                             .sport_menu = {},
                             .dport_menu = {}};
    const t_family_profile &profile = *generator.p_profile;
    generator.src_hosts = tree_make(&generator, profile.src.hosts_per_rule * static_cast<double>(count));
    generator.dst_hosts = tree_make(&generator, profile.dst.hosts_per_rule * static_cast<double>(count));
    generator.sport_menu = menu_make(&generator, profile.sport);
    generator.dport_menu = menu_make(&generator, profile.dport);

    std::vector<t_generated_rule> rules;
    std::unordered_set<t_generated_rule, t_rule_hash> seen;
    while (rules.size() < count) {
        t_generated_rule rule = draw_rule(&generator);
        if (seen.insert(rule).second)
            rules.push_back(rule);
    }
    order_by_specificity(&generator, &rules);
    return rules;
}

static std::string prefix_print(const t_generated_prefix &prefix)
{
    std::string text;
    for (int shift : {24, 16, 8, 0})
        text += std::to_string(prefix.address >> shift & 255) + (shift > 0 ? "." : "/");
    return text + std::to_string(prefix.length);
}

static std::string ports_print(const t_generated_ports &ports)
{
    return std::to_string(ports.low) + " : " + std::to_string(ports.high);
}

static std::string byte_print(uint32_t byte)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    return {'0', 'x', digits[byte >> 4 & 15], digits[byte & 15]};
}

std::string generated_rules_print(const std::vector<t_generated_rule> &rules)
{
    std::string text;
    for (const t_generated_rule &rule : rules)
        text += '@' + prefix_print(rule.src) + '\t' + prefix_print(rule.dst) + '\t' +
                ports_print(rule.sport) + '\t' + ports_print(rule.dport) + '\t' + byte_print(rule.protocol) +
                '/' + byte_print(rule.protocol_mask) + "\t0x0000/0x0000\t\n";
    return text;
}
