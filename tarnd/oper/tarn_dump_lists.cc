// Lists that rules name, and TLOCs.
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"
#include "tarnd/oper/tarn_dump_private.h"
#include "tarnd/peers/tarn_ttm.h"

// ---- VPN lists ----

static void dump_vpn_list(const t_tarn_dump &dump, const t_tarn_vpn_list &list)
{
    DUMP(dump, "  VPN list: %s\n", list.key.name);
    DUMP(dump, "    VPN [%d] Policy [%d]\n", tarn_dump_size(list.vpn_db), tarn_dump_size(list.policy_db));
    tarn_dump_tree<t_tarn_vpn>(list.vpn_db, [&](const t_tarn_vpn &vpn) {
        DUMP(dump, "      VPN: %lu-%lu\n", vpn.key.min_vpn_id, vpn.key.max_vpn_id);
    });
    tarn_dump_tree<t_tarn_policy_ref>(list.policy_db, [&](const t_tarn_policy_ref &policy) {
        DUMP(dump, "      Policy: %s Type: %d [#%d]\n", policy.key.name, static_cast<int>(policy.key.type),
             policy.ref_count);
    });
}

int tarn_dump_vpn_list(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nVPN List Database\n");
    tarn_dump_tree<t_tarn_vpn_list>(dump.p_tarn->vpn_list_db,
                                    [&](const t_tarn_vpn_list &list) { dump_vpn_list(dump, list); });
    return 0;
}

// ---- Prefix lists ----

static void dump_prefix_list(const t_tarn_dump &dump, const t_tarn_pfx_list &list)
{
    DUMP(dump, "  Prefix list: %s Type: %d\n", list.key.name, static_cast<int>(list.key.pfx_list_type));
    tarn_dump_tree<t_tarn_vpn_list_ref>(list.vpn_list_db, [&](const t_tarn_vpn_list_ref &user) {
        DUMP(dump, "    Policy: %s %s type: %d Ref: %d\n", user.key.pol_name, user.key.name,
             static_cast<int>(user.key.pol_type), static_cast<int>(user.ref_count));
    });
    tarn_dump_tree<t_tarn_pfx_access_ctx>(list.access_list_db, [&](const t_tarn_pfx_access_ctx &user) {
        DUMP(dump, "    ACL: %s Type: %d Ref: %d\n", user.p_access_list->key.name,
             static_cast<int>(user.p_access_list->key.af_type), static_cast<int>(user.ref_count));
    });
}

int tarn_dump_prefix_list(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nPrefix List Database\n");
    tarn_dump_tree<t_tarn_pfx_list>(dump.p_tarn->pfx_list_db,
                                    [&](const t_tarn_pfx_list &list) { dump_prefix_list(dump, list); });
    return 0;
}

// ---- Application lists ----

// What the classification engine calls a member. A family that only a fault can leave there prints as the
// bound.
static const char *engine_name(e_tarn_dpi_app_list_type type, uint32_t id)
{
    if (type == TARN_DPI_TYPE_APP)
        return tarn_dpi_confd_to_qosmos(id);
    return tarn_dpi_qosmos_app_family_str[id < E_TARN_DPI_MAX ? id : E_TARN_DPI_MAX];
}

static void dump_app_list(const t_tarn_dump &dump, const t_tarn_dpi_app_list &list)
{
    DUMP(dump, "  %s Loc: %d app-id db: %d vpn ref: %d acl ref: %d\n", list.key.name,
         static_cast<int>(list.key.location), tarn_dump_size(list.app_db), tarn_dump_size(list.vpn_list_db),
         tarn_dump_size(list.access_list_db));
    tarn_dump_tree<t_tarn_dpi_policy_vpn_list_ctx>(
        list.vpn_list_db, [&](const t_tarn_dpi_policy_vpn_list_ctx &user) {
            DUMP(dump, "        VPN list: %s Policy name: %s, Policy type: %d Ref: %d\n", user.key.name,
                 user.key.pol_name, static_cast<int>(user.key.pol_type), user.ref_count);
        });
    DUMP(dump, "    App-Id DB:\n");
    tarn_dump_tree<t_tarn_dpi_app>(list.app_db, [&](const t_tarn_dpi_app &app) {
        DUMP(dump, "        App: %d Qosmos: %s Name: %s\n", static_cast<int>(app.id),
             engine_name(list.type, app.id), app.name);
    });
}

int tarn_dump_app_list(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nAPP-List Database\n");
    tarn_dump_tree<t_tarn_dpi_app_list>(dump.p_tarn->dpi_app_list_db,
                                        [&](const t_tarn_dpi_app_list &list) { dump_app_list(dump, list); });
    return 0;
}

// ---- TLOC lists and TLOCs ----

static void dump_tloc_list(const t_tarn_dump &dump, const t_tarn_tloc_list &list)
{
    DUMP(dump, "  TLOC list [%d]: %s - %s Sequence: %d\n", static_cast<int>(list.key.pol_type),
         list.key.pol_name, list.key.name, list.seq_num);
    DUMP(dump, "    TLOCs [%d]\n", tarn_dump_size(list.tloc_db));
    tarn_dump_tree<t_tarn_tloc_elem>(list.tloc_db, [&](const t_tarn_tloc_elem &elem) {
        DUMP(dump, "        [Idx: %d] VPN Label: %d Preference: %d %s\n", static_cast<int>(elem.list_num),
             static_cast<int>(elem.vpn_label), static_cast<int>(elem.preference),
             tarn_dump_tloc_id(elem.tloc).text);
    });
}

int tarn_dump_tloc_list(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nTLOC List Database\n");
    tarn_dump_tree<t_tarn_tloc_list>(dump.p_tarn->tloc_list_db,
                                     [&](const t_tarn_tloc_list &list) { dump_tloc_list(dump, list); });
    return 0;
}

static void dump_tloc(const t_tarn_dump &dump, const t_tarn_tloc &tloc)
{
    DUMP(dump, "  Idx: %d %s\n", tloc.tloc_index, tarn_dump_tloc_id(tloc.tloc).text);
    DUMP(dump, "    Pref: %u, Weight: %u, Status: %u, Resolved: %u, Local: %u\n", tloc.preference,
         tloc.weight, tloc.tloc_status, tloc.resolved, tloc.local);
    tarn_dump_tree<t_tarn_tloc_rule_ctx>(tloc.rule_ctx_db, [&](const t_tarn_tloc_rule_ctx &user) {
        const t_tarn_config_rule &rule = *user.p_rule;
        DUMP(dump, "      Rule Name: [%d] %s - %s, Id: %u (#%d)\n", static_cast<int>(rule.policy->key.type),
             rule.policy->key.name, rule.key.name, rule.key.id, static_cast<int>(user.ref_count));
    });
}

int tarn_dump_tloc(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nTLOC Database\n");
    tarn_dump_tree<t_tarn_tloc>(dump.p_tarn->tloc_db,
                                [&](const t_tarn_tloc &tloc) { dump_tloc(dump, tloc); });
    return 0;
}
