// The callpoints and what stands behind each.
#include "tarnd/oper/tarn_show.h"

#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "generated/lumora_schema.h"
#include "lconfd/lconfd_api.h"
#include "tarnd/oper/tarn_show_private.h"

#include <iterator>
#include <utility>

static constexpr char no_data_cb[] = "Failed to register data cb";
static constexpr char no_interface_cb[] = "Failed to register data cb for access-list interfaces";
static constexpr char no_memory_cb[] = "Failed to register data cb for filter memory usage";

// ---- The table ----

static constexpr t_tarn_show_list policy_list(const char *callpoint, e_tarn_policy_type type,
                                              const t_tarn_show_family *p_family, uint32_t policy_tag,
                                              uint32_t vpn_list_tag = 0, uint32_t inner_tag = 0)
{
    t_tarn_show_list list = {};
    list.callpoint = callpoint;
    list.p_family = p_family;
    list.policy_type = type;
    list.owner_tag = policy_tag;
    list.vpn_list_tag = vpn_list_tag;
    list.inner_tag = inner_tag;
    list.failure = no_data_cb;
    return list;
}

static constexpr t_tarn_show_list acl_list(const char *callpoint, e_tarn_af_type af_type,
                                           const t_tarn_show_family *p_family, uint32_t acl_tag,
                                           uint32_t inner_tag = 0, const char *failure = no_data_cb)
{
    t_tarn_show_list list = {};
    list.callpoint = callpoint;
    list.p_family = p_family;
    list.af_type = af_type;
    list.owner_tag = acl_tag;
    list.inner_tag = inner_tag;
    list.failure = failure;
    return list;
}

static constexpr e_tarn_policy_type data = TARN_POLICY_TYPE_DATA;
static constexpr e_tarn_policy_type pfr = TARN_POLICY_TYPE_PFR;
static constexpr e_tarn_policy_type zone = TARN_POLICY_TYPE_ZBF;
static constexpr e_tarn_af_type ipv4 = TARN_AF_TYPE_IPV4;
static constexpr e_tarn_af_type ipv6 = TARN_AF_TYPE_IPV6;

static constexpr t_tarn_show_list show_lists[] = {
    policy_list("app-route-policy-filters", pfr, &tarn_show_policies, LUMORA_TAG_APP_ROUTE_POLICY_FILTER),
    policy_list("app-route-policy-vpnlist", pfr, &tarn_show_policy_vpnlists,
                LUMORA_TAG_APP_ROUTE_POLICY_FILTER, LUMORA_TAG_APP_ROUTE_POLICY_VPNLIST),
    policy_list("app-route-policy-counters", pfr, &tarn_show_policy_counters,
                LUMORA_TAG_APP_ROUTE_POLICY_FILTER, LUMORA_TAG_APP_ROUTE_POLICY_VPNLIST,
                LUMORA_TAG_APP_ROUTE_POLICY_COUNTER),
    policy_list("data-policy-filters", data, &tarn_show_policies, LUMORA_TAG_DATA_POLICY_FILTER),
    policy_list("data-policy-vpnlist", data, &tarn_show_policy_vpnlists, LUMORA_TAG_DATA_POLICY_FILTER,
                LUMORA_TAG_DATA_POLICY_VPNLIST),
    policy_list("data-policy-counters", data, &tarn_show_policy_counters, LUMORA_TAG_DATA_POLICY_FILTER,
                LUMORA_TAG_DATA_POLICY_VPNLIST, LUMORA_TAG_DATA_POLICY_COUNTER),
    policy_list("data-policy-policers", data, &tarn_show_policy_policers, LUMORA_TAG_DATA_POLICY_FILTER,
                LUMORA_TAG_DATA_POLICY_VPNLIST, LUMORA_TAG_DATA_POLICY_POLICER),
    policy_list("zbfw-filter-statistics", zone, &tarn_show_policies, LUMORA_TAG_ZBFW_FILTER_STATISTICS),
    policy_list("zbfw-policy-counters", zone, &tarn_show_policy_counters, LUMORA_TAG_ZBFW_FILTER_STATISTICS,
                0, LUMORA_TAG_ZBFW_POLICY_COUNTER),
    acl_list("access-list-names", ipv4, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_NAMES),
    acl_list("access-list-names-v6", ipv6, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_NAMES),
    acl_list("access-list-counters", ipv4, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_COUNTERS),
    acl_list("access-list-counters-v6", ipv6, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_COUNTERS),
    acl_list("access-policy-counter-list", ipv4, &tarn_show_acl_counters, LUMORA_TAG_ACCESS_LIST_COUNTERS,
             LUMORA_TAG_COUNTER_LIST),
    acl_list("access-policy-counter-list-v6", ipv6, &tarn_show_acl_counters, LUMORA_TAG_ACCESS_LIST_COUNTERS,
             LUMORA_TAG_COUNTER_LIST),
    acl_list("policer-policy-name", ipv4, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_POLICERS),
    acl_list("access-list-policers-v6", ipv6, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_POLICERS),
    acl_list("access-policy-policer-list", ipv4, &tarn_show_acl_policers, LUMORA_TAG_ACCESS_LIST_POLICERS,
             LUMORA_TAG_POLICER_LIST),
    acl_list("access-policy-policer-list-v6", ipv6, &tarn_show_acl_policers, LUMORA_TAG_ACCESS_LIST_POLICERS,
             LUMORA_TAG_POLICER_LIST),
    acl_list("access-policy-list-for-interface", ipv4, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_ASSOCIATIONS,
             0, no_interface_cb),
    acl_list("access-list-associations-v6", ipv6, &tarn_show_acls, LUMORA_TAG_ACCESS_LIST_ASSOCIATIONS, 0,
             no_interface_cb),
    acl_list("access-policy-interface-list", ipv4, &tarn_show_acl_interfaces,
             LUMORA_TAG_ACCESS_LIST_ASSOCIATIONS, LUMORA_TAG_INTERFACE_LIST, no_interface_cb),
    acl_list("access-policy-interface-list-v6", ipv6, &tarn_show_acl_interfaces,
             LUMORA_TAG_ACCESS_LIST_ASSOCIATIONS, LUMORA_TAG_INTERFACE_LIST, no_interface_cb),
};

// ---- Registering ----

static int register_point(t_lconfd_context *p_ctx, const char *callpoint, confd_data_cbs cbs,
                          const char *failure)
{
    lum_strlcpy(cbs.callpoint, callpoint, sizeof(cbs.callpoint));
    if (confd_register_data_cb(p_ctx->confd_dctx_p, &cbs) == CONFD_OK)
        return 0;
    TARN_LOG("%s", failure);
    return -1;
}

// A callback is not told its callpoint, so each line of the table has callbacks of its own.
template <size_t index>
static confd_data_cbs callbacks_of()
{
    confd_data_cbs cbs = {};
    cbs.get_object = [](confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath) {
        return tarn_show_get_object(show_lists[index], p_tctx, p_keypath);
    };
    cbs.get_next_object = [](confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath, long next) {
        return tarn_show_get_next_object(show_lists[index], p_tctx, p_keypath, next);
    };
    cbs.find_next_object = [](confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath, confd_find_next_type type,
                              confd_value_t *keys, int n) {
        return tarn_show_find_next_object(show_lists[index], p_tctx, p_keypath, type, keys, n);
    };
    return cbs;
}

template <size_t... index>
static int register_lists(t_lconfd_context *p_ctx, std::index_sequence<index...>)
{
    bool is_done = ((register_point(p_ctx, show_lists[index].callpoint, callbacks_of<index>(),
                                    show_lists[index].failure) == 0) &&
                    ...);
    return is_done ? 0 : -1;
}

static int register_memory(t_lconfd_context *p_ctx)
{
    confd_data_cbs cbs = {};
    cbs.get_object = tarn_filter_memory_usage_get_object;
    cbs.get_next_object = tarn_filter_memory_usage_get_next_object;
    cbs.find_next_object = tarn_filter_memory_usage_find_next_object;
    return register_point(p_ctx, "filter-memory-usage", cbs, no_memory_cb);
}

int tarn_show_init(t_lconfd_context *p_ctx)
{
    int status = register_lists(p_ctx, std::make_index_sequence<std::size(show_lists)>());
    return status == 0 ? register_memory(p_ctx) : status;
}
