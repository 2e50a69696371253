#include "bench/peer_classifier.h"

#include "bench/median.h"

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cstddef>
#include <cstring>
#include <memory>
#include <rte_acl.h>
#include <rte_eal.h>
#include <string>

namespace {

enum e_peer_field { PEER_PROTO, PEER_SRC, PEER_DST, PEER_SRC_PORT, PEER_DST_PORT, PEER_FIELDS };

// A header as the peer reads it: five fields in network order, ports last so that they share a word.
struct t_peer_key {
    uint8_t proto;
    uint8_t pad[3];
    uint32_t src;
    uint32_t dst;
    uint16_t sport;
    uint16_t dport;
};
static_assert(sizeof(t_peer_key) == 16);

RTE_ACL_RULE_DEF(t_peer_rule, PEER_FIELDS);

struct t_acl_deleter {
    void operator()(rte_acl_ctx *p_acl) const
    {
        rte_acl_free(p_acl);
    }
};
using acl_ptr = std::unique_ptr<rte_acl_ctx, t_acl_deleter>;

}  // namespace

static const rte_acl_field_def field_defs[PEER_FIELDS] = {
    {RTE_ACL_FIELD_TYPE_BITMASK, 1, PEER_PROTO, 0, offsetof(t_peer_key, proto)},
    {RTE_ACL_FIELD_TYPE_MASK, 4, PEER_SRC, 1, offsetof(t_peer_key, src)},
    {RTE_ACL_FIELD_TYPE_MASK, 4, PEER_DST, 2, offsetof(t_peer_key, dst)},
    {RTE_ACL_FIELD_TYPE_RANGE, 2, PEER_SRC_PORT, 3, offsetof(t_peer_key, sport)},
    {RTE_ACL_FIELD_TYPE_RANGE, 2, PEER_DST_PORT, 3, offsetof(t_peer_key, dport)},
};

bool peer_available()
{
    return true;
}

// The peer's memory comes from an environment that is started once a process.
static bool environment_start()
{
    static const bool started = [] {
        const char *words[] = {"bench",         "--no-huge",   "--no-pci",       "-m", "4096",
                               "--log-level=1", "--no-shconf", "--no-telemetry", "-l", "0"};
        std::vector<char *> args;
        for (const char *word : words)
            args.push_back(const_cast<char *>(word));
        return rte_eal_init(static_cast<int>(args.size()), args.data()) >= 0;
    }();
    return started;
}

// One condition as low and high bound; the whole range when there is none. False for several ranges.
static bool condition_bounds(const t_set_rule &rule, uint32_t type, uint32_t max, uint32_t *p_low,
                             uint32_t *p_high)
{
    *p_low = 0;
    *p_high = max;
    const t_rule_condition *p_condition = set_rule_condition(rule, type);
    if (p_condition == nullptr)
        return true;
    *p_low = p_condition->ranges[0].low;
    *p_high = p_condition->ranges[0].high;
    return p_condition->ranges.size() == 1;
}

static bool set_prefix(const t_set_rule &rule, uint32_t type, rte_acl_field *p_field)
{
    uint32_t low;
    uint32_t high;
    if (!condition_bounds(rule, type, 0xffffffff, &low, &high))
        return false;
    uint32_t host_bits = low ^ high;
    p_field->value.u32 = low;
    p_field->mask_range.u32 = static_cast<uint32_t>(std::countl_zero(host_bits));
    return (host_bits & (host_bits + 1)) == 0;
}

static bool set_range(const t_set_rule &rule, uint32_t type, rte_acl_field *p_field)
{
    uint32_t low;
    uint32_t high;
    bool single = condition_bounds(rule, type, 0xffff, &low, &high);
    p_field->value.u16 = static_cast<uint16_t>(low);
    p_field->mask_range.u16 = static_cast<uint16_t>(high);
    return single;
}

static bool set_protocol(const t_set_rule &rule, rte_acl_field *p_field)
{
    uint32_t low;
    uint32_t high;
    bool single = condition_bounds(rule, tarn_ip_protocol, 0xff, &low, &high);
    p_field->value.u8 = static_cast<uint8_t>(low);
    p_field->mask_range.u8 = low == high ? 0xff : 0;
    return single && (low == high || (low == 0 && high == 0xff));
}

static bool peer_rules(const t_rule_set &set, std::vector<t_peer_rule> *p_rules)
{
    uint32_t number = 0;
    for (const t_set_rule &rule : set.rules) {
        t_peer_rule peer = {};
        peer.data.category_mask = 1;
        peer.data.priority = RTE_ACL_MAX_PRIORITY - static_cast<int32_t>(number);
        peer.data.userdata = ++number;
        if (!set_protocol(rule, &peer.field[PEER_PROTO]) ||
            !set_prefix(rule, tarn_ip_src_addr, &peer.field[PEER_SRC]) ||
            !set_prefix(rule, tarn_ip_dst_addr, &peer.field[PEER_DST]) ||
            !set_range(rule, tarn_ip_src_port, &peer.field[PEER_SRC_PORT]) ||
            !set_range(rule, tarn_ip_dst_port, &peer.field[PEER_DST_PORT]))
            return false;
        p_rules->push_back(peer);
    }
    return true;
}

static acl_ptr peer_build(const std::vector<t_peer_rule> &rules, double *p_build_ms)
{
    rte_acl_param param = {"bench", 0, RTE_ACL_RULE_SZ(PEER_FIELDS), static_cast<uint32_t>(rules.size())};
    acl_ptr acl(rte_acl_create(&param));
    if (acl == nullptr)
        return nullptr;
    rte_acl_config config = {};
    config.num_categories = 1;
    config.num_fields = PEER_FIELDS;
    std::copy(std::begin(field_defs), std::end(field_defs), config.defs);
    auto start = bench_now();
    bool built = rte_acl_add_rules(acl.get(), reinterpret_cast<const rte_acl_rule *>(rules.data()),
                                   static_cast<uint32_t>(rules.size())) == 0 &&
                 rte_acl_build(acl.get(), &config) == 0;
    *p_build_ms = bench_ms_since(start);
    return built ? std::move(acl) : nullptr;
}

static std::vector<t_peer_key> peer_keys(std::span<const t_fp_header> headers)
{
    std::vector<t_peer_key> keys;
    for (const t_fp_header &header : headers) {
        t_peer_key key = {};
        key.proto = static_cast<uint8_t>(header.values[tarn_ip_protocol]);
        key.src = htonl(header.values[tarn_ip_src_addr]);
        key.dst = htonl(header.values[tarn_ip_dst_addr]);
        key.sport = htons(static_cast<uint16_t>(header.values[tarn_ip_src_port]));
        key.dport = htons(static_cast<uint16_t>(header.values[tarn_ip_dst_port]));
        keys.push_back(key);
    }
    return keys;
}

static double classify_seconds(const rte_acl_ctx *p_acl, const std::vector<t_peer_key> &keys,
                               std::vector<uint32_t> *p_verdicts)
{
    auto start = bench_now();
    for (size_t i = 0; i < keys.size(); i++) {
        const uint8_t *p_key = reinterpret_cast<const uint8_t *>(&keys[i]);
        rte_acl_classify_alg(p_acl, &p_key, &(*p_verdicts)[i], 1, 1, RTE_ACL_CLASSIFY_SCALAR);
    }
    return bench_ms_since(start) / 1000;
}

bool peer_measure(const t_rule_set &set, std::span<const t_fp_header> headers, int rounds,
                  t_peer_result *p_result)
{
    std::vector<t_peer_rule> rules;
    if (!environment_start() || !peer_rules(set, &rules))
        return false;
    std::vector<t_peer_key> keys = peer_keys(headers);
    p_result->verdicts.assign(keys.size(), 0);
    std::vector<double> build_ms;
    std::vector<double> seconds;
    for (int round = 0; round < rounds; round++) {
        double ms;
        acl_ptr acl = peer_build(rules, &ms);
        if (acl == nullptr)
            return false;
        build_ms.push_back(ms);
        seconds.push_back(classify_seconds(acl.get(), keys, &p_result->verdicts));
    }
    p_result->build_ms = bench_median(build_ms);
    p_result->lookups_per_second = static_cast<double>(keys.size()) / bench_median(seconds);
    return true;
}
