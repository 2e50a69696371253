#include "lab/fp/fp_flows.h"

#include <algorithm>
#include <arpa/inet.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

// ---- Keys ----

static uint64_t mixed(uint64_t hash, uint64_t value)
{
    static constexpr uint64_t prime = 0x9e3779b97f4a7c15;
    hash = (hash ^ value) * prime;
    return hash ^ hash >> 29;
}

static uint64_t address_mixed(uint64_t hash, const t_fp_address6 &address)
{
    for (uint8_t byte : address)
        hash = mixed(hash, byte);
    return hash;
}

size_t t_fp_inspected_hash::operator()(const t_fp_inspected_key &key) const
{
    uint64_t hash = mixed(key.family, uint64_t{key.src} << 32 | key.dst);
    hash = mixed(hash, uint64_t{key.protocol} << 32 | uint32_t{key.src_port} << 16 | key.dst_port);
    hash = mixed(hash, uint64_t{key.src_vpn} << 32 | key.dst_vpn);
    if (key.family == FP_FAMILY_IPV6)
        hash = address_mixed(address_mixed(hash, key.addresses6.src), key.addresses6.dst);
    return hash;
}

t_fp_inspected_key fp_flow_key_of(const t_fp_header &header, const t_fp_place &place, uint32_t dst_vpn)
{
    const uint32_t *values = header.values;
    t_fp_inspected_key key = {};
    key.family = place.family;
    key.protocol = static_cast<uint8_t>(values[tarn_ip_protocol]);
    key.src_port = static_cast<uint16_t>(values[tarn_ip_src_port]);
    key.dst_port = static_cast<uint16_t>(values[tarn_ip_dst_port]);
    key.src_vpn = place.vpn;
    key.dst_vpn = dst_vpn;
    key.src = values[tarn_ip_src_addr];
    key.dst = values[tarn_ip_dst_addr];
    if (place.family == FP_FAMILY_IPV6)
        key.addresses6 = place.addresses6;
    return key;
}

static t_fp_inspected_key turned(t_fp_inspected_key key)
{
    std::swap(key.src_port, key.dst_port);
    std::swap(key.src_vpn, key.dst_vpn);
    std::swap(key.src, key.dst);
    std::swap(key.addresses6.src, key.addresses6.dst);
    return key;
}

// ---- The table ----

static void first_remove(t_fp_flows *p_flows)
{
    p_flows->by_key.erase(p_flows->flows.front().key);
    p_flows->flows.pop_front();
}

void fp_flows_idle_after(t_fp_flows *p_flows, uint64_t seconds, uint64_t ticks_per_second)
{
    p_flows->idle_ticks = seconds * ticks_per_second;
}

static void idle_remove(t_fp_flows *p_flows, uint64_t now)
{
    if (p_flows->idle_ticks == 0)
        return;
    while (!p_flows->flows.empty() && now - p_flows->flows.front().used > p_flows->idle_ticks) {
        first_remove(p_flows);
        p_flows->stats.idle++;
    }
}

// The open flow of that key, which now was used last, or null.
static t_fp_inspected *flow_use(t_fp_flows *p_flows, const t_fp_inspected_key &key, uint64_t now)
{
    idle_remove(p_flows, now);
    auto found = p_flows->by_key.find(key);
    if (found == p_flows->by_key.end())
        return nullptr;
    p_flows->flows.splice(p_flows->flows.end(), p_flows->flows, found->second);
    found->second->used = now;
    return &*found->second;
}

void fp_flows_open(t_fp_flows *p_flows, const t_fp_inspected_key &key, uint32_t pair_id, uint64_t now)
{
    if (t_fp_inspected *p_flow = flow_use(p_flows, key, now)) {
        p_flow->pair_id = pair_id;
        p_flow->packets++;
        return;
    }
    while (!p_flows->flows.empty() && p_flows->flows.size() >= p_flows->limit) {
        first_remove(p_flows);
        p_flows->stats.evicted++;
    }
    p_flows->flows.push_back({.key = key, .pair_id = pair_id, .used = now, .packets = 1, .answers = 0});
    p_flows->by_key[key] = std::prev(p_flows->flows.end());
    p_flows->stats.opened++;
}

void fp_flows_close(t_fp_flows *p_flows, const t_fp_inspected_key &key)
{
    auto found = p_flows->by_key.find(key);
    if (found == p_flows->by_key.end())
        return;
    p_flows->flows.erase(found->second);
    p_flows->by_key.erase(found);
    p_flows->stats.closed++;
}

const t_fp_inspected *fp_flows_answer(t_fp_flows *p_flows, const t_fp_inspected_key &key, uint64_t now)
{
    t_fp_inspected *p_flow = flow_use(p_flows, turned(key), now);
    if (p_flow != nullptr)
        p_flow->answers++;
    return p_flow;
}

// ---- JSON ----

static std::string address_text(e_fp_family family, uint32_t address, const t_fp_address6 &address6)
{
    char text[INET6_ADDRSTRLEN];
    in_addr v4 = {htonl(address)};
    if (family == FP_FAMILY_IPV6)
        return inet_ntop(AF_INET6, address6.data(), text, sizeof(text));
    return inet_ntop(AF_INET, &v4, text, sizeof(text));
}

static uint64_t seconds_of(uint64_t ticks, uint64_t ticks_per_second)
{
    return ticks_per_second != 0 ? ticks / ticks_per_second : 0;
}

static nlohmann::ordered_json flow_json(const t_fp_inspected &flow, uint64_t unused_seconds)
{
    const t_fp_inspected_key &key = flow.key;
    return {{"pair", flow.pair_id},
            {"family", fp_family_name(key.family)},
            {"protocol", key.protocol},
            {"source", address_text(key.family, key.src, key.addresses6.src)},
            {"source-port", key.src_port},
            {"source-vpn", key.src_vpn},
            {"destination", address_text(key.family, key.dst, key.addresses6.dst)},
            {"destination-port", key.dst_port},
            {"destination-vpn", key.dst_vpn},
            {"packets", flow.packets},
            {"answers", flow.answers},
            {"unused", unused_seconds}};
}

nlohmann::ordered_json fp_flows_json(t_fp_flows *p_flows, uint64_t now, uint64_t ticks_per_second)
{
    idle_remove(p_flows, now);
    nlohmann::ordered_json json = {{"count", p_flows->flows.size()},
                                   {"limit", p_flows->limit},
                                   {"idle-timeout", seconds_of(p_flows->idle_ticks, ticks_per_second)},
                                   {"opened", p_flows->stats.opened},
                                   {"closed", p_flows->stats.closed},
                                   {"idle", p_flows->stats.idle},
                                   {"evicted", p_flows->stats.evicted}};
    json["flows"] = nlohmann::ordered_json::array();
    for (const t_fp_inspected &flow : p_flows->flows)
        json["flows"].push_back(flow_json(flow, seconds_of(now - flow.used, ticks_per_second)));
    return json;
}
