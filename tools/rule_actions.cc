#include "tools/rule_actions.h"

#include "tools/rule_symbols.h"
#include "tools/text_scan.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <span>

// Policer names get the rule's number in front when they enter a program.
static constexpr size_t max_policer_name = 48;
static constexpr size_t max_interface_name = 32;

// The nominal clock that a policer's rate is expressed in. A forwarding plane scales it to its own.
static constexpr uint64_t clock_hz = 1000000000;

struct t_action_words {
    std::string_view *p_rest;
    std::string *p_reason;
};

static bool refuse(const t_action_words &words, std::string reason)
{
    *words.p_reason = std::move(reason);
    return false;
}

static bool take_word(const t_action_words &words, std::string_view what, std::string_view *p_word)
{
    return text_next_word(words.p_rest, p_word) || refuse(words, "missing " + std::string(what));
}

static bool take_keyword(const t_action_words &words, std::string_view keyword)
{
    std::string_view word;
    if (!take_word(words, text_quote(keyword), &word))
        return false;
    return word == keyword || refuse(words, text_quote(keyword) + " expected, not " + text_quote(word));
}

static bool take_number(const t_action_words &words, std::string_view what, uint64_t min, uint64_t max,
                        uint64_t *p_value)
{
    std::string_view word;
    if (!take_word(words, what, &word))
        return false;
    if (!text_number(word, p_value))
        return refuse(words, std::string(what) + " is no number: " + text_quote(word));
    if (*p_value < min || *p_value > max)
        return refuse(words, std::string(what) + ' ' + std::string(word) + " not in " + std::to_string(min) +
                                 '-' + std::to_string(max));
    return true;
}

static bool take_name(const t_action_words &words, std::string_view what, size_t max_size, char *p_name)
{
    std::string_view word;
    if (!take_word(words, what, &word) || !rule_name_valid(what, word, max_size, words.p_reason))
        return false;
    memcpy(p_name, word.data(), word.size());
    p_name[word.size()] = '\0';
    return true;
}

static bool take_address(const t_action_words &words, uint32_t *p_address)
{
    std::string_view word;
    return take_word(words, "address", &word) && text_ipv4(word, p_address, words.p_reason);
}

bool rule_name_valid(std::string_view what, std::string_view name, size_t max_size, std::string *p_reason)
{
    static constexpr std::string_view marks = "._-:/+";
    auto valid = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               marks.find(c) != std::string_view::npos;
    };
    if (name.size() > max_size)
        *p_reason =
            std::string(what) + " is longer than " + std::to_string(max_size) + " bytes: " + text_quote(name);
    else if (name.empty() || !std::all_of(name.begin(), name.end(), valid))
        *p_reason =
            std::string(what) + " has other characters than letters, digits and ._-:/+ : " + text_quote(name);
    else
        return true;
    return false;
}

static bool read_nothing(const t_action_words &, t_tarn_filter_action *)
{
    return true;
}

static bool read_verdict(const t_action_words &, t_tarn_filter_action *p_slot)
{
    std::swap(p_slot->action, p_slot->fwding_action);
    return true;
}

static bool read_counter(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    return take_name(words, "counter name", TARN_COUNTER_NAME_SIZE - 1, p_slot->counter.name);
}

static bool read_policer(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    t_fp_policer *p_policer = &p_slot->policer;
    uint64_t rate = 0;
    uint64_t burst = 0;
    if (!take_name(words, "policer name", max_policer_name, p_policer->name) ||
        !take_keyword(words, "rate") || !take_number(words, "rate", 1, clock_hz, &rate) ||
        !take_keyword(words, "burst") || !take_number(words, "burst", 1, clock_hz, &burst))
        return false;
    p_policer->rate = clock_hz / rate;
    p_policer->burst = burst * p_policer->rate;
    p_policer->record_valid = 1;
    std::string_view ahead = *words.p_rest;
    std::string_view word;
    if (text_next_word(&ahead, &word) && word == "mark") {
        p_policer->oob_action = FP_POLICER_ACTION_MARK_PLP_HIGH;
        *words.p_rest = ahead;
    }
    return true;
}

static bool read_mirror(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    t_tarn_mirror_info *p_mirror = &p_slot->mirror_info;
    std::string_view word;
    if (!take_word(words, "'interface' or 'tunnel'", &word))
        return false;
    if (word == "interface") {
        p_mirror->mirror_type = TARN_MIRROR_INTF;
        return take_name(words, "interface name", max_interface_name, p_mirror->intf_name);
    }
    if (word != "tunnel")
        return refuse(words, "'interface' or 'tunnel' expected, not " + text_quote(word));
    uint32_t src = 0;
    uint32_t dst = 0;
    if (!take_address(words, &src) || !take_address(words, &dst))
        return false;
    p_mirror->mirror_type = TARN_MIRROR_TUNNEL;
    fp_ipaddr_set_v4(&p_mirror->tunnel.src_ip, htonl(src));  // the one place in network order
    fp_ipaddr_set_v4(&p_mirror->tunnel.dst_ip, htonl(dst));
    return true;
}

static bool read_address(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    uint32_t address = 0;
    if (!take_address(words, &address))
        return false;
    fp_ipaddr_set_v4(&p_slot->nh_ip_addr, address);  // redirect_dns_nh_addr lies at the same place
    return true;
}

static bool read_class(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    uint64_t value = 0;
    if (!take_number(words, "class", 0, 64, &value))
        return false;
    p_slot->_class = static_cast<int32_t>(value);
    return true;
}

static bool read_dscp(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    std::string_view ahead = *words.p_rest;
    std::string_view word;
    uint32_t symbol = 0;
    if (text_next_word(&ahead, &word) && rule_symbol_value(e_rule_field_kind::dscp, word, &symbol)) {
        *words.p_rest = ahead;
        p_slot->dscp = static_cast<uint8_t>(symbol);
        return true;
    }
    uint64_t value = 0;
    if (!take_number(words, "dscp", 0, 63, &value))
        return false;
    p_slot->dscp = static_cast<uint8_t>(value);
    return true;
}

static bool read_traffic_class(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    uint64_t value = 0;
    if (!take_number(words, "traffic class", 0, 255, &value))
        return false;
    p_slot->traffic_class = static_cast<uint8_t>(value);
    return true;
}

static bool read_nat_vpn(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    uint64_t value = 0;
    if (!take_number(words, "VPN", 0, 65535, &value))
        return false;
    p_slot->nat_vrid = static_cast<uint16_t>(value);
    return true;
}

static bool read_nat_pool(const t_action_words &words, t_tarn_filter_action *p_slot)
{
    uint64_t value = 0;
    if (!take_number(words, "NAT pool", 0, 0xffffffff, &value))
        return false;
    p_slot->nat_pool_id = static_cast<uint32_t>(value);
    return true;
}

using f_print = std::string (*)(const t_tarn_filter_action &slot);

static std::string print_nothing(const t_tarn_filter_action &)
{
    return {};
}

static std::string print_name(const char *p_name, size_t size)
{
    return ' ' + std::string(p_name, strnlen(p_name, size));
}

static std::string print_counter(const t_tarn_filter_action &slot)
{
    return print_name(slot.counter.name, sizeof(slot.counter.name));
}

static std::string print_policer(const t_tarn_filter_action &slot)
{
    const t_fp_policer &policer = slot.policer;
    return print_name(policer.name, sizeof(policer.name)) + " rate " + std::to_string(policer.rate) +
           " burst " + std::to_string(policer.burst) +
           (policer.oob_action == FP_POLICER_ACTION_MARK_PLP_HIGH ? " mark" : "");
}

static std::string print_mirror(const t_tarn_filter_action &slot)
{
    const t_tarn_mirror_info &mirror = slot.mirror_info;
    if (mirror.mirror_type == TARN_MIRROR_INTF)
        return " interface" + print_name(mirror.intf_name, sizeof(mirror.intf_name));
    return " tunnel " + text_ipv4_print(ntohl(fp_ipaddr_v4(&mirror.tunnel.src_ip))) + ' ' +
           text_ipv4_print(ntohl(fp_ipaddr_v4(&mirror.tunnel.dst_ip)));
}

static std::string print_address(const t_tarn_filter_action &slot)
{
    return ' ' + text_ipv4_print(fp_ipaddr_v4(&slot.nh_ip_addr));
}

static std::string print_class(const t_tarn_filter_action &slot)
{
    return ' ' + std::to_string(slot._class);
}

static std::string print_byte(const t_tarn_filter_action &slot)
{
    return ' ' + std::to_string(slot.dscp);  // traffic_class lies at the same place
}

static std::string print_nat_vpn(const t_tarn_filter_action &slot)
{
    return ' ' + std::to_string(slot.nat_vrid);
}

static std::string print_nat_pool(const t_tarn_filter_action &slot)
{
    return ' ' + std::to_string(slot.nat_pool_id);
}

namespace {

// One row an action: its words, and how the rest of it is read into a cleared slot and printed. No entry is
// null.
struct t_action_row {
    std::string_view words;
    e_tarn_filter_action action;
    bool (*read)(const t_action_words &words, t_tarn_filter_action *p_slot);
    f_print print;
};

}  // namespace

static const t_action_row action_rows[] = {
    {"accept", TARN_FILTER_ACTION_ACCEPT, read_verdict, print_nothing},
    {"reject", TARN_FILTER_ACTION_REJECT, read_verdict, print_nothing},
    {"count", TARN_FILTER_ACTION_COUNT, read_counter, print_counter},
    {"log", TARN_FILTER_ACTION_LOG, read_nothing, print_nothing},
    {"cflowd", TARN_FILTER_ACTION_CFLOWD, read_nothing, print_nothing},
    {"fallback", TARN_FILTER_ACTION_FALLBACK, read_nothing, print_nothing},
    {"inspect", TARN_FILTER_ACTION_INSPECT, read_nothing, print_nothing},
    {"tcp-optimization", TARN_FILTER_ACTION_TCP_OPTIMIZATION, read_nothing, print_nothing},
    {"ssl-optimization", TARN_FILTER_ACTION_SSL_OPTIMIZATION, read_nothing, print_nothing},
    {"fec-adaptive", TARN_FILTER_ACTION_FEC_ADAPTIVE, read_nothing, print_nothing},
    {"fec-always", TARN_FILTER_ACTION_FEC_ALWAYS, read_nothing, print_nothing},
    {"packet-duplication", TARN_FILTER_ACTION_PKT_DUP, read_nothing, print_nothing},
    {"police", TARN_FILTER_ACTION_POLICE, read_policer, print_policer},
    {"mirror", TARN_FILTER_ACTION_MIRROR, read_mirror, print_mirror},
    {"redirect-dns", TARN_FILTER_ACTION_REDIRECT_DNS, read_address, print_address},
    {"set class", TARN_FILTER_ACTION_CLASS, read_class, print_class},
    {"set dscp", TARN_FILTER_ACTION_DSCP, read_dscp, print_byte},
    {"set traffic-class", TARN_FILTER_ACTION_TRAFFIC_CLASS, read_traffic_class, print_byte},
    {"set next-hop", TARN_FILTER_ACTION_NEXT_HOP, read_address, print_address},
    {"set nat-vpn", TARN_FILTER_ACTION_NAT, read_nat_vpn, print_nat_vpn},
    {"set nat-pool", TARN_FILTER_ACTION_NAT_POOL, read_nat_pool, print_nat_pool},
};

e_action_read rule_action_read(std::string_view word, std::string_view *p_rest, t_tarn_filter_action *p_slot,
                               std::string *p_reason)
{
    t_action_words words = {p_rest, p_reason};
    std::string key(word);
    if (word == "set") {
        std::string_view what;
        if (!take_word(words, "what to set", &what))
            return ACTION_REFUSED;
        key += ' ' + std::string(what);
    }
    for (const t_action_row &row : action_rows) {
        if (row.words != key)
            continue;
        memset(p_slot, 0, sizeof(*p_slot));
        p_slot->fwding_action = row.action;
        return row.read(words, p_slot) ? ACTION_READ : ACTION_REFUSED;
    }
    if (word != "set")
        return ACTION_UNKNOWN;
    refuse(words, "unknown action " + text_quote(key));
    return ACTION_REFUSED;
}

static std::string print_one(uint32_t action, const t_tarn_filter_action &slot)
{
    for (const t_action_row &row : action_rows)
        if (row.action == action)
            return std::string(row.words) + row.print(slot);
    return action == TARN_FILTER_ACTION_INVALID ? "" : tarn_filter_action_str(action);
}

std::string rule_action_print(const t_tarn_filter_action &slot)
{
    std::string verdict = print_one(slot.action, slot);
    std::string further = print_one(slot.fwding_action, slot);
    return verdict.empty() || further.empty() ? verdict + further : verdict + ' ' + further;
}
