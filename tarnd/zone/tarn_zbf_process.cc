// The rebuild of the forwarding plane's table of zone pairs.
#include "common/lum_log.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/core/tarn.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"
#include "tarnd/zone/tarn_zbf_private.h"

#include <atomic>
#include <cerrno>

namespace {

// What a pair's names lead to.
struct t_pair_ends {
    const t_tarn_zone *p_src;
    const t_tarn_zone *p_dst;
    const t_tarn_policy_vpn_list *p_context;  // the policy's one program
};

}  // namespace

static int find_context(t_tarn *p_tarn, const t_tarn_zone_pair &pair, t_pair_ends *p_ends)
{
    if (tarn_policy_lookup(p_tarn, TARN_POLICY_TYPE_ZBF, pair.zb_policy_name, nullptr) != 0) {
        TARN_LOG("zbf policy %s not found for zone pair %s\n", pair.zb_policy_name, pair.zone_pair_name);
        return EINVAL;
    }
    t_tarn_policy_vpn_list *p_context = nullptr;
    if (tarn_vpn_list_lookup_in_policy(p_tarn, TARN_POLICY_TYPE_ZBF, pair.zb_policy_name, TARN_ZBF_VPN_LIST,
                                       &p_context) != 0) {
        TARN_LOG("vpn list %s not found in policy %s for zone-pair %s\n", TARN_ZBF_VPN_LIST,
                 pair.zb_policy_name, pair.zone_pair_name);
        return EINVAL;
    }
    p_ends->p_context = p_context;
    return 0;
}

static int find_ends(t_tarn *p_tarn, const t_tarn_zone_pair &pair, t_pair_ends *p_ends)
{
    p_ends->p_src = tarn_zone_find(p_tarn, pair.src_zone);
    if (p_ends->p_src == nullptr) {
        TARN_LOG("src zone %s not found for zone pair %s\n", pair.src_zone, pair.zone_pair_name);
        return EINVAL;
    }
    p_ends->p_dst = tarn_zone_find(p_tarn, pair.dst_zone);
    if (p_ends->p_dst == nullptr) {
        TARN_LOG("dst zone %s not found for zone pair %s\n", pair.dst_zone, pair.zone_pair_name);
        return EINVAL;
    }
    return find_context(p_tarn, pair, p_ends);
}

#define PAIR_TEXT                                                                                            \
    " src_zone_name %s dst_zone_name %s src_zone_id %d dst_zone_id %d zone_pair_id %d filter_id %d "         \
    "zone_pair %s\n"

int tarn_process_zone_pair(void *node, void *arg1, void *)
{
    const t_tarn_zone_pair &pair = *static_cast<const t_tarn_zone_pair *>(node);
    t_pair_ends ends = {};
    int status = find_ends(static_cast<t_tarn *>(arg1), pair, &ends);
    if (status != 0)
        return status;
    int filter_id = ends.p_context->filter_id;
    int pair_id = static_cast<int>(pair.zb_pair_id);
    if (fp_create_zb_pair_hash_record(ends.p_src->id, ends.p_dst->id, static_cast<uint32_t>(filter_id),
                                      pair.zb_pair_id) == nullptr)
        TARN_LOG("fp zbf record failed for" PAIR_TEXT, pair.src_zone, pair.dst_zone, ends.p_src->id,
                 ends.p_dst->id, pair_id, filter_id, pair.zone_pair_name);
    else
        TARN_TRACE(TARN_DEBUG_CONFIG, "fp zbf record created for" PAIR_TEXT, pair.src_zone, pair.dst_zone,
                   ends.p_src->id, ends.p_dst->id, pair_id, filter_id, pair.zone_pair_name);
    return 0;
}

#undef PAIR_TEXT

int tarn_process_zbf_config(t_tarn *p_tarn)
{
    if (p_tarn == nullptr)
        return EBADMSG;
    if (p_tarn->process_zbf_config == 0)
        return 0;
    fp_destroy_zbf_mappings();
    int status = avl_foreach(&p_tarn->zone_pair_db, tarn_process_zone_pair, p_tarn, nullptr);
    p_tarn->process_zbf_config = 0;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return status;
}
