// What the data model's values mean to the filter.
#include "common/lum_assert.h"
#include "tarnd/config/tarn_rule.h"

namespace {

struct t_action_map {
    uint32_t value;
    e_tarn_filter_action action;
};

}  // namespace

// Enumerators of the base action and of loss protection, and tags of the leaves whose presence is the action.
static constexpr t_action_map action_map[] = {
    {0, TARN_FILTER_ACTION_ACCEPT},
    {1, TARN_FILTER_ACTION_REJECT},
    {2, TARN_FILTER_ACTION_INSPECT},
    {10, TARN_FILTER_ACTION_FEC_ADAPTIVE},
    {11, TARN_FILTER_ACTION_FEC_ALWAYS},
    {TARN_ACTION_TAG_LOCAL_TLOC_LIST, TARN_FILTER_ACTION_LOCAL_TLOC_LIST},
    {TARN_ACTION_TAG_SVC_LOCAL_STRICT, TARN_FILTER_ACTION_SVC_LOCAL_STRICT},
    {TARN_ACTION_TAG_PKT_DUP, TARN_FILTER_ACTION_PKT_DUP},
    {TARN_ACTION_TAG_REDIRECT_DNS, TARN_FILTER_ACTION_REDIRECT_DNS},
    {TARN_ACTION_TAG_BACKUP_PREFERRED_COLOR, TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR},
    {TARN_ACTION_TAG_TLOC, TARN_FILTER_ACTION_TLOC},
    {TARN_ACTION_TAG_TLOC_COLOR_ENCAP, TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP},
    {TARN_ACTION_TAG_DSCP, TARN_FILTER_ACTION_DSCP},
    {TARN_ACTION_TAG_LOG, TARN_FILTER_ACTION_LOG},
    {TARN_ACTION_TAG_FALLBACK, TARN_FILTER_ACTION_FALLBACK},
    {TARN_ACTION_TAG_TRAFFIC_CLASS, TARN_FILTER_ACTION_TRAFFIC_CLASS},
    {TARN_ACTION_TAG_SERVICE, TARN_FILTER_ACTION_SVC_TYPE},
    {TARN_ACTION_TAG_TCP_OPTIMIZATION, TARN_FILTER_ACTION_TCP_OPTIMIZATION},
    {TARN_ACTION_TAG_NEXT_HOP, TARN_FILTER_ACTION_NEXT_HOP},
    {TARN_ACTION_TAG_NAT_POOL, TARN_FILTER_ACTION_NAT_POOL},
    {TARN_ACTION_TAG_TLOC_LIST, TARN_FILTER_ACTION_TLOC_LIST},
    {TARN_ACTION_TAG_SSL_OPTIMIZATION, TARN_FILTER_ACTION_SSL_OPTIMIZATION},
    {TARN_ACTION_TAG_SVC_LOCAL, TARN_FILTER_ACTION_SVC_LOCAL},
};

uint32_t tarn_yang_action_to_filter_action(uint32_t value)
{
    for (const t_action_map &row : action_map)
        if (row.value == value)
            return row.action;
    return TARN_FILTER_ACTION_INVALID;
}

uint32_t tarn_yang_tcp_match_to_filter_tcp_match(uint32_t bits)
{
    return bits & 1 ? 2 : 0;
}

uint32_t tarn_yang_plp_match_to_filter_plp_match(uint32_t value)
{
    return value == 0 ? 0 : 1;
}

uint32_t tarn_yang_dns_match_to_filter_dns_match(uint32_t value)
{
    return value == 2 ? 2 : 1;
}

e_tarn_policy_dir tarn_yang_data_policy_direction_to_filter_direction(uint32_t value)
{
    switch (value) {
    case 0:
        return TARN_POLICY_DIR_SERVICE;
    case 1:
        return TARN_POLICY_DIR_TUNNEL;
    default:
        return TARN_POLICY_DIR_ALL;
    }
}

uint32_t tarn_yang_loss_protect_to_action(uint32_t value)
{
    switch (value) {
    case 2:
        return TARN_FILTER_ACTION_FEC_ALWAYS;
    case 3:
        return TARN_FILTER_ACTION_PKT_DUP;
    default:
        return TARN_FILTER_ACTION_FEC_ADAPTIVE;
    }
}

uint32_t tarn_yang_enum_to_filter_mask(uint32_t enum_val)
{
    LUM_ASSERT(enum_val < 32, "enum_val < 32");
    return enum_val == 0 ? 0 : uint32_t{1} << enum_val;
}
