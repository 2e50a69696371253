#include "fp_api/fp_filter_action.h"

static const char *const action_names[TARN_FILTER_ACTION_MAX] = {
    "-",
    "reject",
    "accept",
    "set tloc",
    "set tloc-color-encap",
    "mirror",
    "cflowd-v9",
    "police",
    "count",
    "set fc",
    "set next-hop",
    "set nat use-vpn",
    "sla-class",
    "tloc-list",
    "set dscp",
    "set svc-type",
    "set nat pool-id",
    "log",
    "set svc-local",
    "set svc-local-strict",
    "set backup-preferred-color",
    "set traffic-class",
    "set local-tloc-list",
    "tcp optimization",
    "-",  // SSL optimization has no name
    "fallback",
    "redirect-dns",
    "-",  // neither has inspect
    "fec adaptive",
    "fec always",
    "pkt dup",
};

const char *tarn_filter_action_str(uint32_t value)
{
    return value < TARN_FILTER_ACTION_MAX ? action_names[value] : "-";
}
