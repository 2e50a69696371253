// Sequences: members of "match" and "action", a row each.
#include "common/ip_util.h"
#include "lab/loader/loader_private.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_rule.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

// ---- Match ----

namespace {

struct t_match_row;

// Adds one element of a member's value.
using f_match_add = void (*)(t_tarn *p_tarn, const t_loader_sequence &where, t_tarn_config_rule *p_rule,
                             const t_match_row &row, const std::string &text);

struct t_match_row {
    const char *member;
    e_tarn_field_type type;
    f_match_add add;
    uint64_t max;  // of numbers and ranges
};

}  // namespace

static void add_field(t_tarn *p_tarn, t_tarn_config_rule *p_rule, const t_match_row &row, const void *p_data)
{
    loader_check(tarn_config_field_add(p_tarn, row.type, p_data, p_rule), row.member);
}

static void add_number(t_tarn *p_tarn, const t_loader_sequence &, t_tarn_config_rule *p_rule,
                       const t_match_row &row, const std::string &text)
{
    uint64_t min;
    uint64_t max;
    loader_range(text, row.max, &min, &max);
    auto value = static_cast<uint32_t>(min);
    add_field(p_tarn, p_rule, row, &value);
}

static void add_range(t_tarn *p_tarn, const t_loader_sequence &, t_tarn_config_rule *p_rule,
                      const t_match_row &row, const std::string &text)
{
    uint64_t min;
    uint64_t max;
    loader_range(text, row.max, &min, &max);
    t_tarn_range range = {static_cast<int>(min), static_cast<int>(max)};
    add_field(p_tarn, p_rule, row, &range);
}

static void add_prefix(t_tarn *p_tarn, const t_loader_sequence &, t_tarn_config_rule *p_rule,
                       const t_match_row &row, const std::string &text)
{
    confd_ipv4_prefix prefix = loader_prefix(text);
    add_field(p_tarn, p_rule, row, &prefix);
}

static void add_prefix_list(t_tarn *p_tarn, const t_loader_sequence &where, t_tarn_config_rule *p_rule,
                            const t_match_row &row, const std::string &text)
{
    t_tarn_pfx_list_key key = {};
    memcpy(key.name, text.c_str(), text.size());
    key.pfx_list_type = tarn_get_pfx_list_type_from_policy_type(where.type);
    add_field(p_tarn, p_rule, row, &key);
}

// The reference of a list of applications is the parser's to take.
static void add_app_list(t_tarn *p_tarn, const t_loader_sequence &where, t_tarn_config_rule *p_rule,
                         const t_match_row &row, const std::string &text)
{
    int status = tarn_config_add_app_list_to_policy(p_tarn, text.c_str(), TARN_DPI_KEY_LOC_KEELSON,
                                                    where.type, where.policy.c_str(), where.vpn_list.c_str());
    loader_check(status, row.member);
    t_tarn_dpi_app_list_key key = {};
    memcpy(key.name, text.c_str(), text.size());
    key.location = TARN_DPI_KEY_LOC_KEELSON;
    add_field(p_tarn, p_rule, row, &key);
}

static void add_class(t_tarn *p_tarn, const t_loader_sequence &, t_tarn_config_rule *p_rule,
                      const t_match_row &row, const std::string &text)
{
    add_field(p_tarn, p_rule, row, text.c_str());
}

static const t_match_row match_rows[] = {
    {"protocol", TARN_FIELD_TYPE_PROTOCOL, add_number, 255},
    {"source-port", TARN_FIELD_TYPE_SRC_PORT, add_range, 65535},
    {"destination-port", TARN_FIELD_TYPE_DST_PORT, add_range, 65535},
    {"source-ip", TARN_FIELD_TYPE_SRC_ADDR, add_prefix, 0},
    {"destination-ip", TARN_FIELD_TYPE_DST_ADDR, add_prefix, 0},
    {"source-data-prefix-list", TARN_FIELD_TYPE_SRC_PFX_LIST, add_prefix_list, 0},
    {"destination-data-prefix-list", TARN_FIELD_TYPE_DST_PFX_LIST, add_prefix_list, 0},
    {"dscp", TARN_FIELD_TYPE_DSCP, add_number, 63},
    {"class", TARN_FIELD_TYPE_FC, add_class, 0},
    {"tcp", TARN_FIELD_TYPE_TCP, add_number, 255},
    {"packet-length", TARN_FIELD_TYPE_PKT_LEN, add_range, 65535},
    {"app-list", TARN_FIELD_TYPE_DPI_APP_LIST, add_app_list, 0},
    {"traffic-class", TARN_FIELD_TYPE_TRAFFIC_CLASS, add_number, 255},
    {"next-header", TARN_FIELD_TYPE_NEXT_HEADER, add_number, 255},
    {"plp", TARN_FIELD_TYPE_PLP, add_number, 1},
    {"dns-app-list", TARN_FIELD_TYPE_DPI_DNS_APP_LIST, add_app_list, 0},
    {"dns", TARN_FIELD_TYPE_DNS, add_number, 2},
};

void loader_add_match(t_tarn *p_tarn, const t_loader_sequence &where, t_tarn_config_rule *p_rule,
                      const loader_json &match)
{
    for (const auto &item : match.items()) {
        const std::string &member = item.key();
        auto row = std::find_if(std::begin(match_rows), std::end(match_rows),
                                [&](const t_match_row &candidate) { return member == candidate.member; });
        if (row == std::end(match_rows))
            loader_refuse("match has no member " + member);
        for (const std::string &text : loader_texts(match, row->member))
            row->add(p_tarn, where, p_rule, *row, text);
    }
}

// ---- Actions ----

namespace {

// An action's value in the form that its tag calls for.
union t_action_value {
    uint8_t octet;
    uint32_t word;
    uint64_t vpn;
    t_ipaddr address;
    char name[TARN_NAME_SIZE];
    t_tarn_tloc_args tloc;
    t_tarn_tloc_color_encap color_encap;
    t_tarn_local_tloc_list local_tlocs;
    t_tarn_action_sla_class sla_class;
};

using f_action_read = void (*)(t_action_value *p_value, const loader_json &from, const char *member);

struct t_action_row {
    const char *member;
    uint32_t tag;
    f_action_read read;
};

}  // namespace

static void read_verdict(t_action_value *p_value, const loader_json &from, const char *member)
{
    p_value->word = loader_verdict(loader_text(from, member));
}

static void read_name(t_action_value *p_value, const loader_json &from, const char *member)
{
    std::string name = loader_text(from, member);
    memcpy(p_value->name, name.c_str(), name.size() + 1);
}

static void read_octet(t_action_value *p_value, const loader_json &from, const char *member)
{
    p_value->octet = static_cast<uint8_t>(loader_number(from, member, 255));
}

static void read_word(t_action_value *p_value, const loader_json &from, const char *member)
{
    p_value->word = static_cast<uint32_t>(loader_number(from, member, UINT32_MAX));
}

static void read_vpn(t_action_value *p_value, const loader_json &from, const char *member)
{
    p_value->vpn = loader_number(from, member, UINT32_MAX);
}

static void read_address(t_action_value *p_value, const loader_json &from, const char *member)
{
    std::string text = loader_text(from, member);
    if (!str_to_ip(text.c_str(), &p_value->address))
        loader_refuse(text + " is no address");
}

static void read_nothing(t_action_value *, const loader_json &from, const char *member)
{
    if (!from.at(member).is_boolean() || !from.at(member))
        loader_refuse(std::string(member) + " takes true");
}

static t_tloc_id tloc_of(const loader_json &from)
{
    t_tloc_id tloc = {};
    IPADDR_SET_V4(&tloc.addr, loader_ipv4(loader_text(from, "ip")));
    tloc.color = static_cast<uint8_t>(loader_color(loader_text(from, "color")));
    tloc.encap = static_cast<uint8_t>(loader_encap(loader_text(from, "encap")));
    return tloc;
}

static void read_tloc(t_action_value *p_value, const loader_json &from, const char *member)
{
    const loader_json &tloc = from.at(member);
    p_value->tloc = {tloc_of(tloc), static_cast<uint32_t>(loader_number(tloc, "label", UINT32_MAX))};
}

static uint32_t color_mask(const loader_json &from, const char *member)
{
    uint32_t mask = 0;
    for (const std::string &name : loader_texts(from, member))
        mask |= tarn_yang_enum_to_filter_mask(loader_color(name));
    return mask;
}

// In masks the encapsulations have bits of their own: GRE 6, IPsec 4.
static uint32_t encap_mask(const loader_json &from)
{
    uint32_t mask = 0;
    for (const std::string &name : loader_texts(from, "encap"))
        mask |= tarn_yang_enum_to_filter_mask(loader_encap(name) == 1 ? 6 : 4);
    return mask;
}

static void read_color_encap(t_action_value *p_value, const loader_json &from, const char *member)
{
    const loader_json &value = from.at(member);
    p_value->color_encap = {color_mask(value, "color"), encap_mask(value)};
}

static void read_local_tlocs(t_action_value *p_value, const loader_json &from, const char *member)
{
    const loader_json &value = from.at(member);
    p_value->local_tlocs = {color_mask(value, "color"), encap_mask(value),
                            static_cast<uint8_t>(value.value("restrict", false))};
}

static void read_sla_class(t_action_value *p_value, const loader_json &from, const char *member)
{
    const loader_json &value = from.at(member);
    std::string name = loader_text(value, "name");
    if (name.size() >= TARN_CLASS_NAME_SIZE)
        loader_refuse(name + " is too long for an SLA class");
    p_value->sla_class = {};
    memcpy(p_value->sla_class.name, name.c_str(), name.size() + 1);
    p_value->sla_class.strict = value.value("strict", false);
    p_value->sla_class.preferred_color = color_mask(value, "preferred-color");
}

static void read_backup_color(t_action_value *p_value, const loader_json &from, const char *member)
{
    p_value->word = color_mask(from, member);
}

static void read_loss_protect(t_action_value *p_value, const loader_json &from, const char *member)
{
    std::string name = loader_text(from, member);
    if (name != "fec-adaptive" && name != "fec-always")
        loader_refuse(name + " is neither fec-adaptive nor fec-always");
    p_value->word = name == "fec-adaptive" ? 10 : 11;
}

static const t_action_row action_rows[] = {
    {"base-action", TARN_ACTION_TAG_ACTION, read_verdict},
    {"count", TARN_ACTION_TAG_COUNT, read_name},
    {"policer", TARN_ACTION_TAG_POLICER, read_name},
    {"mirror", TARN_ACTION_TAG_MIRROR, read_name},
    {"class", TARN_ACTION_TAG_CLASS, read_name},
    {"dscp", TARN_ACTION_TAG_DSCP, read_octet},
    {"traffic-class", TARN_ACTION_TAG_TRAFFIC_CLASS, read_octet},
    {"service-type", TARN_ACTION_TAG_SERVICE, read_octet},
    {"local", TARN_ACTION_TAG_SVC_LOCAL, read_nothing},
    {"restrict", TARN_ACTION_TAG_SVC_LOCAL_STRICT, read_nothing},
    {"next-hop", TARN_ACTION_TAG_NEXT_HOP, read_address},
    {"redirect-dns", TARN_ACTION_TAG_REDIRECT_DNS, read_address},
    {"use-vpn", TARN_ACTION_TAG_NAT_VPN, read_vpn},
    {"pool", TARN_ACTION_TAG_NAT_POOL, read_word},
    {"log", TARN_ACTION_TAG_LOG, read_nothing},
    {"cflowd", TARN_ACTION_TAG_CFLOWD, read_nothing},
    {"fallback", TARN_ACTION_TAG_FALLBACK, read_nothing},
    {"tcp-optimization", TARN_ACTION_TAG_TCP_OPTIMIZATION, read_nothing},
    {"ssl-optimization", TARN_ACTION_TAG_SSL_OPTIMIZATION, read_nothing},
    {"packet-duplication", TARN_ACTION_TAG_PKT_DUP, read_nothing},
    {"loss-protect", TARN_ACTION_TAG_LOSS_PROTECT, read_loss_protect},
    {"tloc", TARN_ACTION_TAG_TLOC, read_tloc},
    {"tloc-list", TARN_ACTION_TAG_TLOC_LIST, read_nothing},
    {"color-encap", TARN_ACTION_TAG_TLOC_COLOR_ENCAP, read_color_encap},
    {"local-tloc-list", TARN_ACTION_TAG_LOCAL_TLOC_LIST, read_local_tlocs},
    {"sla-class", TARN_ACTION_TAG_SLA_CLASS, read_sla_class},
    {"backup-preferred-color", TARN_ACTION_TAG_BACKUP_PREFERRED_COLOR, read_backup_color},
};

void loader_add_actions(t_tarn *p_tarn, const t_loader_sequence &where, const loader_json &actions)
{
    for (const auto &item : actions.items()) {
        const std::string &member = item.key();
        auto row = std::find_if(std::begin(action_rows), std::end(action_rows),
                                [&](const t_action_row &candidate) { return member == candidate.member; });
        if (row == std::end(action_rows))
            loader_refuse("action has no member " + member);
        t_action_value action = {};
        row->read(&action, actions, row->member);
        int status = tarn_config_action_add(p_tarn, where.type, where.policy.c_str(), where.vpn_list.c_str(),
                                            where.id, row->tag, &action, nullptr);
        loader_check(status, member);
    }
}
