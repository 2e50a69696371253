// Kinds of objects: how each is created, changed and deleted.
#include "fp_api/fp_ipaddr.h"
#include "lab/loader/loader_private.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_flow.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>

namespace {

using f_object_run = void (*)(t_tarn *p_tarn, const std::string &name, const loader_json &operation);

// A null function: the kind has no such operation.
struct t_object_kind {
    const char *member;
    f_object_run create;
    f_object_run change;
    f_object_run remove;
};

}  // namespace

// ---- Classes ----

static std::string class_name(const std::string &name)
{
    if (name.size() >= TARN_CLASS_NAME_SIZE)
        loader_refuse(name + " has more than 32 characters");
    return name;
}

static t_tarn_class_params class_params(const std::string &name, const loader_json &operation)
{
    auto queue = operation.contains("queue") ? loader_number(operation, "queue", 7) : 0;
    return {class_name(name).empty() ? nullptr : name.c_str(), static_cast<uint8_t>(queue)};
}

static void create_class(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    t_tarn_class_params params = class_params(name, operation);
    loader_check(tarn_class_add(p_tarn, &params), "class");
}

static void change_class(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    t_tarn_class_params params = class_params(name, operation);
    loader_check(tarn_class_modify(p_tarn, &params), "class");
}

static void remove_class(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    t_tarn_class_params params = class_params(name, operation);
    loader_check(tarn_class_delete(p_tarn, &params), "class");
}

static void create_sla_class(t_tarn *p_tarn, const std::string &name, const loader_json &)
{
    loader_check(tarn_sla_class_add(p_tarn, class_name(name).c_str()), "SLA class");
}

static void remove_sla_class(t_tarn *p_tarn, const std::string &name, const loader_json &)
{
    loader_check(tarn_sla_class_delete(p_tarn, name.c_str()), "SLA class");
}

// ---- Prefix lists ----

static e_tarn_policy_pfx_list_type prefix_list_type(const loader_json &operation)
{
    return loader_is_local(operation) ? TARN_POLICY_PFX_LIST_TYPE_LOCAL : TARN_POLICY_PFX_LIST_TYPE_KEELSON;
}

static bool has_prefix(const t_tarn *p_tarn, const std::string &name, e_tarn_policy_pfx_list_type type,
                       const confd_ipv4_prefix &prefix)
{
    const t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, name.c_str(), type);
    if (p_list == nullptr)
        loader_refuse("there is no such list");
    t_tarn_ip_pfx wanted = {};
    memcpy(wanted.key.prefix_str, &prefix.ip, sizeof(wanted.key.prefix_str));
    wanted.key.prefix_len = prefix.len;
    return avl_find(&p_list->ip_pfx_db, &wanted) != nullptr;
}

// Members to "remove", then to "add".
static void change_prefix_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    e_tarn_policy_pfx_list_type type = prefix_list_type(operation);
    for (const std::string &text : loader_texts(operation, "remove")) {
        confd_ipv4_prefix prefix = loader_prefix(text);
        if (!has_prefix(p_tarn, name, type, prefix))
            loader_refuse(text + " is not in the list");
        tarn_config_ip_pfx_delete(p_tarn, name.c_str(), type, &prefix);
    }
    for (const std::string &text : loader_texts(operation, "add")) {
        confd_ipv4_prefix prefix = loader_prefix(text);
        if (has_prefix(p_tarn, name, type, prefix))
            loader_refuse(text + " is in the list already");
        loader_check(tarn_config_ip_pfx_add(p_tarn, name.c_str(), type, &prefix), text);
    }
    loader_check(tarn_config_pfx_list_change(p_tarn, name.c_str(), type), "prefix list");
}

static void create_prefix_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    loader_check(tarn_config_pfx_list_add(p_tarn, name.c_str(), prefix_list_type(operation)), "prefix list");
    change_prefix_list(p_tarn, name, operation);
}

static void remove_prefix_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    e_tarn_policy_pfx_list_type type = prefix_list_type(operation);
    const t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, name.c_str(), type);
    if (p_list != nullptr && avl_numnodes(&p_list->vpn_list_db) != 0)
        loader_refuse("rules name the list");
    loader_check(tarn_config_pfx_list_delete(p_tarn, name.c_str(), type), "prefix list");
}

// ---- Application lists ----

static e_tarn_dpi_app_list_loc_type app_list_location(const loader_json &operation)
{
    return loader_is_local(operation) ? TARN_DPI_KEY_LOC_LOCAL : TARN_DPI_KEY_LOC_KEELSON;
}

static void change_app_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    e_tarn_dpi_app_list_loc_type where = app_list_location(operation);
    e_tarn_dpi_app_list_type kind =
        operation.value("families", false) ? TARN_DPI_TYPE_APP_FAMILY : TARN_DPI_TYPE_APP;
    loader_check(tarn_config_app_list_change(p_tarn, name.c_str(), where), "application list");
    for (const std::string &app : loader_texts(operation, "remove"))
        loader_check(tarn_config_app_list_delete_app(p_tarn, name.c_str(), where, kind, app.c_str()), app);
    for (const std::string &app : loader_texts(operation, "add"))
        loader_check(tarn_config_app_list_add_app(p_tarn, name.c_str(), where, kind, app.c_str()), app);
}

static void create_app_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    int status = tarn_config_app_list_add(p_tarn, name.c_str(), app_list_location(operation));
    loader_check(status, "application list");
    change_app_list(p_tarn, name, operation);
}

static void remove_app_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    int status = tarn_config_app_list_delete(p_tarn, name.c_str(), app_list_location(operation));
    loader_check(status, "application list");
}

// ---- VPN lists ----

static void change_vpn_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    uint64_t min;
    uint64_t max;
    for (const std::string &text : loader_texts(operation, "remove")) {
        loader_range(text, UINT16_MAX, &min, &max);
        loader_check(tarn_vpn_delete(p_tarn, name.c_str(), min, max), text);
    }
    for (const std::string &text : loader_texts(operation, "add")) {
        loader_range(text, UINT16_MAX, &min, &max);
        loader_check(tarn_vpn_add(p_tarn, name.c_str(), min, max), text);
    }
}

static void create_vpn_list(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    loader_check(tarn_vpn_list_add(p_tarn, name.c_str()), "VPN list");
    change_vpn_list(p_tarn, name, operation);
}

static void remove_vpn_list(t_tarn *p_tarn, const std::string &name, const loader_json &)
{
    t_tarn_vpn_list *p_list = nullptr;
    loader_check(tarn_vpn_list_lookup(p_tarn, name.c_str(), &p_list) != 0 ? ENOENT : 0, "VPN list");
    if (avl_numnodes(&p_list->policy_db) != 0)
        loader_refuse("policies name the list");
    loader_check(tarn_vpn_list_delete(p_tarn, name.c_str()), "VPN list");
}

// ---- Mirrors ----

static t_fp_ipaddr tunnel_end(const loader_json &tunnel, const char *member)
{
    std::string text = loader_text(tunnel, member);
    t_fp_ipaddr end = {};
    if (inet_pton(AF_INET6, text.c_str(), end.addr) == 1) {
        end.addr_type = FP_AF_INET6;
        return end;
    }
    uint32_t word = loader_ipv4(text);
    memcpy(end.addr, &word, sizeof(word));
    end.addr_type = FP_AF_INET;
    return end;
}

static void create_mirror(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    loader_check(tarn_config_mirror_add(p_tarn, name.c_str(), nullptr, nullptr), "mirror");
    for (const std::string &interface : loader_texts(operation, "interfaces")) {
        char padded[TARN_NAME_SIZE] = {};
        memcpy(padded, interface.c_str(), interface.size());
        loader_check(tarn_config_mirror_add(p_tarn, name.c_str(), padded, nullptr), interface);
    }
    if (!operation.contains("tunnel"))
        return;
    const loader_json &ends = operation.at("tunnel");
    t_tarn_mirror_tunnel tunnel = {tunnel_end(ends, "source"), tunnel_end(ends, "destination")};
    loader_check(tarn_config_mirror_add(p_tarn, name.c_str(), nullptr, &tunnel), "tunnel");
}

static void change_mirror(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    if (!operation.contains("tunnel"))
        loader_refuse("tunnel is missing");
    const loader_json &ends = operation.at("tunnel");
    t_tarn_mirror_tunnel tunnel = {tunnel_end(ends, "source"), tunnel_end(ends, "destination")};
    loader_check(tarn_config_mirror_change(p_tarn, name.c_str(), nullptr, &tunnel), "mirror");
}

static void remove_mirror(t_tarn *p_tarn, const std::string &name, const loader_json &)
{
    const t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, name.c_str());
    if (p_mirror != nullptr && avl_numnodes(&p_mirror->ref_db) != 0)
        loader_refuse("rules name the mirror");
    loader_check(tarn_config_mirror_delete(p_tarn, name.c_str(), nullptr, nullptr), "mirror");
}

// ---- Policers ----

// 1: packets above the rate are remarked instead of dropped.
static uint8_t exceed_of(const loader_json &operation)
{
    std::string name = loader_text(operation, "exceed");
    if (name != "drop" && name != "remark")
        loader_refuse("exceed " + name + " is neither drop nor remark");
    return name == "remark";
}

static uint8_t read_policer(t_tarn_policer_config *p_policer, const std::string &name,
                            const loader_json &operation)
{
    *p_policer = {};
    memcpy(p_policer->key.name, name.c_str(), name.size() + 1);
    p_policer->key.sequence_id = -1;
    p_policer->key.type =
        loader_is_local(operation) ? TARN_POLICY_POLICER_TYPE_LOCAL : TARN_POLICY_POLICER_TYPE_KEELSON;
    uint8_t present = 0;
    if (operation.contains("rate")) {
        p_policer->bandwidth = loader_number(operation, "rate", UINT64_MAX);
        if (p_policer->bandwidth < 8)
            loader_refuse("rate is below 8 bits per second");
        present |= POLICER_BW;
    }
    if (operation.contains("burst")) {
        p_policer->burst = static_cast<uint32_t>(loader_number(operation, "burst", UINT32_MAX));
        present |= POLICER_BURST;
    }
    if (operation.contains("exceed")) {
        p_policer->oob_action = exceed_of(operation);
        present |= POLICER_ACTION;
    }
    return present;
}

static void create_policer(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    t_tarn_policer_config policer;
    if (read_policer(&policer, name, operation) != (POLICER_BW | POLICER_BURST | POLICER_ACTION))
        loader_refuse("a policer has rate, burst and exceed");
    loader_check(tarn_config_policer_add(p_tarn, &policer), "policer");
}

static void change_policer(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    t_tarn_policer_config policer;
    uint8_t present = read_policer(&policer, name, operation);
    loader_check(tarn_config_policer_change(p_tarn, present, &policer), "policer");
}

static void remove_policer(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    t_tarn_policer_config policer;
    read_policer(&policer, name, operation);
    loader_check(tarn_config_policer_delete(p_tarn, &policer), "policer");
}

// ---- Policies and contexts ----

static e_tarn_policy_dir direction_of(const loader_json &operation)
{
    std::string name = operation.value("direction", "all");
    if (name == "service")
        return TARN_POLICY_DIR_SERVICE;
    if (name == "tunnel")
        return TARN_POLICY_DIR_TUNNEL;
    if (name != "all")
        loader_refuse("direction " + name + " is none of service, tunnel and all");
    return TARN_POLICY_DIR_ALL;
}

static void create_policy(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    int status =
        tarn_policy_add(p_tarn, loader_policy_type(operation), name.c_str(), direction_of(operation), 0);
    loader_check(status, "policy");
}

static void change_policy(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    t_tarn_policy *p_policy = nullptr;
    int status = tarn_policy_lookup(p_tarn, loader_policy_type(operation), name.c_str(), &p_policy);
    loader_check(status, "policy");
    loader_check(tarn_policy_update_direction(p_tarn, p_policy, direction_of(operation)), "direction");
}

static void remove_policy(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    loader_check(tarn_policy_delete(p_tarn, loader_policy_type(operation), name.c_str()), "policy");
}

// A context is named by its VPN list; "policy" and "type" tell the policy.
static void write_context(t_tarn *p_tarn, const std::string &name, const loader_json &operation,
                          decltype(tarn_vpn_list_add_to_policy) write)
{
    std::string policy = loader_text(operation, "policy");
    std::string sla_class = operation.value("sla-class", std::string());
    if (tarn_vpn_list_lookup(p_tarn, name.c_str(), nullptr) != 0)
        loader_refuse("there is no such VPN list");
    int status = write(p_tarn, loader_policy_type(operation), policy.c_str(), name.c_str(),
                       loader_verdict(loader_text(operation, "default-action")),
                       sla_class.empty() ? nullptr : class_name(sla_class).c_str());
    loader_check(status, "context");
}

static void create_context(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    write_context(p_tarn, name, operation, tarn_vpn_list_add_to_policy);
}

static void change_context(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    write_context(p_tarn, name, operation, tarn_policy_vpn_list_change);
}

static void remove_context(t_tarn *p_tarn, const std::string &name, const loader_json &operation)
{
    int status = tarn_vpn_list_remove_from_policy(p_tarn, loader_policy_type(operation),
                                                  loader_text(operation, "policy").c_str(), name.c_str());
    loader_check(status, "context");
}

// ---- Sequences and their TLOC lists ----

static t_tarn_vpn_list_key2 tloc_list_key(const t_loader_sequence &where)
{
    t_tarn_vpn_list_key2 key = {};
    memcpy(key.name, where.vpn_list.c_str(), where.vpn_list.size());
    memcpy(key.pol_name, where.policy.c_str(), where.policy.size());
    key.pol_type = where.type;
    return key;
}

static t_tarn_tloc_elem tloc_elem_of(const loader_json &from, uint32_t list_num)
{
    t_tarn_tloc_elem elem = {};
    elem.list_num = list_num;
    IPADDR_SET_V4(&elem.tloc.addr, loader_ipv4(loader_text(from, "ip")));
    elem.tloc.color = static_cast<uint8_t>(loader_color(loader_text(from, "color")));
    elem.tloc.encap = static_cast<uint8_t>(loader_encap(loader_text(from, "encap")));
    elem.vpn_label = static_cast<uint32_t>(loader_number(from, "label", UINT32_MAX));
    elem.preference = static_cast<uint32_t>(loader_number(from, "preference", UINT32_MAX));
    return elem;
}

// The elements of "tlocs", numbered from 1, come before the rule, as they do in a commit.
static void create_tloc_list(t_tarn *p_tarn, const t_loader_sequence &where, const loader_json &operation)
{
    if (!operation.contains("tlocs"))
        return;
    t_tarn_vpn_list_key2 key = tloc_list_key(where);
    t_tarn_tloc_list *p_list = tarn_tloc_list_find_or_make(p_tarn, &key, where.id);
    uint32_t list_num = 0;
    for (const loader_json &from : operation.at("tlocs")) {
        t_tarn_tloc_elem elem = tloc_elem_of(from, ++list_num);
        loader_check(tarn_tloc_list_elem_add(p_list, &elem), "tlocs");
    }
}

static void create_sequence(t_tarn *p_tarn, const std::string &, const loader_json &operation)
{
    t_loader_sequence where = loader_sequence_of(operation);
    const loader_json nothing = loader_json::object();
    const loader_json &actions = operation.contains("action") ? operation.at("action") : nothing;
    if (!actions.contains("base-action"))
        loader_refuse("a sequence has a base-action");
    create_tloc_list(p_tarn, where, operation);
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_config_rule_add(p_tarn, where.type, where.policy.c_str(), where.vpn_list.c_str(),
                                      where.id, &p_rule);
    loader_check(status, "sequence");
    if (operation.contains("vpn"))
        p_rule->rule_vpn_id = static_cast<uint16_t>(loader_number(operation, "vpn", UINT16_MAX));
    loader_add_match(p_tarn, where, p_rule, operation.contains("match") ? operation.at("match") : nothing);
    loader_add_actions(p_tarn, where, actions);
}

static void remove_sequence(t_tarn *p_tarn, const std::string &, const loader_json &operation)
{
    t_loader_sequence where = loader_sequence_of(operation);
    int status =
        tarn_config_rule_delete(p_tarn, where.type, where.policy.c_str(), where.vpn_list.c_str(), where.id);
    loader_check(status, "sequence");
}

// ---- Settings ----

static void create_vpn(t_tarn *p_tarn, const std::string &, const loader_json &operation)
{
    loader_check(tarn_vpn_bind_policy(p_tarn, loader_number(operation, "vpn", UINT16_MAX)), "VPN");
}

static void change_visibility(t_tarn *p_tarn, const std::string &what, const loader_json &operation)
{
    int value = operation.value("value", false);
    if (what == "applications")
        tarn_dpi_config_change(p_tarn, value);
    else if (what == "flows")
        tarn_config_flow_change(p_tarn, value);
    else
        loader_refuse("neither applications nor flows");
}

static const t_object_kind kinds[] = {
    {"sequence", create_sequence, nullptr, remove_sequence},
    {"context", create_context, change_context, remove_context},
    {"policy", create_policy, change_policy, remove_policy},
    {"class", create_class, change_class, remove_class},
    {"sla-class", create_sla_class, nullptr, remove_sla_class},
    {"prefix-list", create_prefix_list, change_prefix_list, remove_prefix_list},
    {"app-list", create_app_list, change_app_list, remove_app_list},
    {"vpn-list", create_vpn_list, change_vpn_list, remove_vpn_list},
    {"mirror", create_mirror, change_mirror, remove_mirror},
    {"policer", create_policer, change_policer, remove_policer},
    {"vpn", create_vpn, nullptr, nullptr},
    {"visibility", nullptr, change_visibility, nullptr},
};

static f_object_run run_of(const t_object_kind &kind, const std::string &op)
{
    if (op == "create")
        return kind.create;
    if (op == "change")
        return kind.change;
    return op == "delete" ? kind.remove : nullptr;
}

// The kind is the first of the table that the operation has a member for: sequences and contexts also name
// their policy.
void loader_run(t_tarn *p_tarn, const loader_json &operation)
{
    if (!operation.is_object())
        loader_refuse("an operation is an object");
    auto kind = std::find_if(std::begin(kinds), std::end(kinds), [&](const t_object_kind &candidate) {
        return operation.contains(candidate.member);
    });
    if (kind == std::end(kinds))
        loader_refuse("no object is named");
    std::string op = loader_text(operation, "op");
    f_object_run run = run_of(*kind, op);
    if (run == nullptr)
        loader_refuse(op + " is no operation on a " + kind->member);
    const loader_json &value = operation.at(kind->member);
    run(p_tarn, value.is_string() ? loader_text(operation, kind->member) : std::string(), operation);
}
