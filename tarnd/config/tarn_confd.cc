#include "tarnd/config/tarn_confd.h"

#include "common/lum_assert.h"
#include "common/lum_util.h"
#include "generated/lumora_schema.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn.h"
#include "tarnd/oper/tarn_action_table.h"

#include <string_view>

// ---- The table ----

static constexpr t_lconfd_sub_entry row_of(uint32_t name_space, std::string_view path,
                                           lconfd_config_cb_fn config_cb, uint8_t num_keys, unsigned priority,
                                           unsigned del_priority)
{
    t_lconfd_sub_entry row = {};
    path.copy(row.path, sizeof(row.path) - 1);
    row.config_cb = config_cb;
    row.name_space = static_cast<int>(name_space);
    row.num_keys = num_keys;
    row.priority = priority & 15;
    row.del_priority = del_priority & 15;
    return row;
}

static constexpr t_lconfd_sub_entry policy_row(std::string_view path, lconfd_config_cb_fn config_cb,
                                               uint8_t num_keys, unsigned priority, unsigned del_priority)
{
    return row_of(LUMORA_NS_POLICY, path, config_cb, num_keys, priority, del_priority);
}

static constexpr t_lconfd_sub_entry vpn_row(std::string_view path, lconfd_config_cb_fn config_cb,
                                            uint8_t num_keys, unsigned priority, unsigned del_priority)
{
    return row_of(LUMORA_NS_VPN, path, config_cb, num_keys, priority, del_priority);
}

// Keys, priority, priority of deletions (0: deletions come with the rest). Lists, VPN lists, policers,
// mirrors, zones and settings are there before policies, those before their contexts and TLOC lists, and
// those before sequences and zone pairs; last come classes, SLA classes, access lists and bindings, which
// name any of them. Deletions go the other way. Rows of one priority run in this order: a list before its
// members.
t_lconfd_sub_entry tarn_subscription_points[] = {
    policy_row("policy/class-map/class", tarn_config_class, 1, 6, 0),
    policy_row("policy/lists/data-prefix-list", tarn_config_policy_local_pfx_list, 1, 1, 6),
    policy_row("policy/lists/data-prefix-list/ip-prefix", tarn_config_policy_local_pfx_list_ip, 2, 1, 6),
    policy_row("policy/lists/app-list", tarn_config_policy_local_app_list, 1, 1, 6),
    policy_row("policy/lists/app-list/app", tarn_config_policy_local_app_list_app, 2, 1, 6),
    policy_row("policy/lists/app-list/app-family", tarn_config_policy_local_app_list_app_family, 2, 1, 6),
    policy_row("policy-from-keelson/sla-class", tarn_config_policy_sla_class, 1, 6, 1),
    policy_row("policy-from-keelson/lists/vpn-list", tarn_config_policy_vpn_list, 1, 1, 6),
    policy_row("policy-from-keelson/lists/vpn-list/vpn", tarn_config_policy_vpn_id, 2, 1, 6),
    policy_row("policy-from-keelson/lists/data-prefix-list", tarn_config_policy_pfx_list, 1, 1, 6),
    policy_row("policy-from-keelson/lists/data-prefix-list/ip-prefix", tarn_config_policy_pfx_list_ip, 2, 1,
               6),
    policy_row("policy-from-keelson/lists/app-list", tarn_config_policy_app_list, 1, 1, 6),
    policy_row("policy-from-keelson/lists/app-list/app", tarn_config_policy_app_list_app, 2, 1, 6),
    policy_row("policy-from-keelson/lists/app-list/app-family", tarn_config_policy_app_list_app_family, 2, 1,
               6),
    policy_row("policy-from-keelson/policer", tarn_config_data_policy_policer, 1, 1, 6),
    policy_row("policy-from-keelson/data-policy", tarn_config_data_policy, 1, 2, 5),
    policy_row("policy-from-keelson/data-policy/vpn-list", tarn_config_data_policy_vpn_list, 2, 3, 4),
    policy_row("policy-from-keelson/data-policy/vpn-list/sequence/action/set/lum-tloc-pref-list",
               tarn_config_data_policy_seq_tloc_pref_list, 4, 3, 4),
    policy_row("policy-from-keelson/data-policy/vpn-list/sequence", tarn_config_data_policy_seq, 3, 4, 3),
    policy_row("policy-from-keelson/app-route-policy", tarn_config_app_route_policy, 1, 2, 5),
    policy_row("policy-from-keelson/app-route-policy/vpn-list", tarn_config_app_route_policy_vpn_list, 2, 3,
               4),
    policy_row("policy-from-keelson/app-route-policy/vpn-list/sequence", tarn_config_app_route_policy_seq, 3,
               4, 3),
    policy_row("policy", tarn_config_policy, 0, 1, 6),
    policy_row("policy/zone", tarn_config_zone, 1, 1, 6),
    policy_row("policy/zone/vpn", tarn_config_zone_vpn, 2, 2, 1),
    policy_row("policy/zone-pair", tarn_config_zone_pair, 1, 4, 3),
    policy_row("policy/zone-based-policy", tarn_config_zone_based_policy, 1, 2, 5),
    policy_row("policy/zone-based-policy/sequence", tarn_config_zone_policy_seq, 2, 3, 4),
    policy_row("policy/mirror", tarn_config_mirror_list, 1, 1, 6),
    policy_row("policy/mirror/interface", tarn_config_mirror_list_interface, 2, 1, 6),
    policy_row("policy/mirror/remote-dest", tarn_config_mirror_list_remote_dest, 2, 1, 6),
    policy_row("policy/policer", tarn_config_access_list_policer, 1, 1, 6),
    policy_row("policy/access-list", tarn_config_access_list_v4, 1, 6, 1),
    policy_row("policy/access-list/sequence", tarn_config_access_list_v4_seq, 2, 6, 1),
    policy_row("policy/ipv6/access-list", tarn_config_access_list_v6, 1, 6, 1),
    policy_row("policy/ipv6/access-list/sequence", tarn_config_access_list_v6_seq, 2, 6, 1),
    vpn_row("vpn/vpn-instance", tarn_config_vpn, 1, 6, 1),
    vpn_row("vpn/vpn-instance/interface", tarn_config_vpn_if, 2, 6, 1),
    vpn_row("vpn/vpn-instance/interface/access-list", tarn_config_intf_access_list_v4, 3, 6, 1),
    vpn_row("vpn/vpn-instance/interface/ipv6/access-list", tarn_config_intf_access_list_v6, 3, 6, 1),
    {},
};

confd_valpoint_cb tarn_validation_points[] = {{}};

// ---- Start and stop ----

// The adapter going on by itself is as good as connected.
static void expect_started(int status)
{
    LUM_ASSERT(status == LCONFD_STATUS_OK || status == LCONFD_STATUS_IN_RETRY,
               "status == LCONFD_STATUS_OK || status == LCONFD_STATUS_IN_RETRY");
}

int tarn_confd_init(t_tarn *p_tarn)
{
    t_lconfd_module_data module_data = {};
    module_data.opaque_p = p_tarn;
    module_data.sub_point_arr = tarn_subscription_points;
    module_data.val_point_arr = tarn_validation_points;
    module_data.action_cmd_arr = tarn_action_commands;
    module_data.data_register_cb = tarn_confd_register_data_cbs;
    module_data.sub_end_cb = tarn_confd_sub_end_cb;
    module_data.evt_base_p = p_tarn->p_event_base;
    module_data.timer_mgr_p = p_tarn->p_timer_mgr;
    module_data.mod_id = LUM_MODULE_TARN;
    expect_started(lconfd_module_init(&module_data, nullptr, &p_tarn->p_tarn_lconfd_ctx));
    expect_started(tarn_confd_zone_pair_id_count_init(p_tarn->p_tarn_lconfd_ctx));
    return 0;
}

void tarn_confd_destroy(t_tarn *p_tarn)
{
    lconfd_module_deinit(&p_tarn->p_tarn_lconfd_ctx);
}
