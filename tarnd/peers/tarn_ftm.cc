#include "tarnd/peers/tarn_ftm.h"

#include "common/msgq_util.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ftm_message.h"

#include <cerrno>
#include <cstdlib>
#include <sys/socket.h>
#include <syslog.h>
#include <utility>

// Room that the buffer has for an interface; an entry itself is shorter.
static constexpr size_t intf_alloc_size = 40;

static_assert(TARN_FTM_MSG_FIXED_SIZE == 3 + 4 + TARN_NAME_SIZE + 4);
static_assert(TARN_FTM_INTF_ENTRY_SIZE == 4 + 1 + TARN_INTF_NAME_SIZE);

// A peer that is down learns of the binding when it comes up.
static void send_or_drop(msgq_handle_t *p_msgq, uint8_t *p_buf, const uint8_t *p_end)
{
    if (msgq_write(p_msgq, p_buf, static_cast<uint16_t>(p_end - p_buf)) != ERR_OK)
        msgq_msg_free(p_msgq, p_buf);
}

static uint8_t *new_buffer(msgq_handle_t *p_msgq, size_t count, size_t entry_size, size_t alloc_size)
{
    uint16_t size = tarn_ftm_alloc_size(count, entry_size, alloc_size);
    return size != 0 ? static_cast<uint8_t *>(msgq_msg_malloc(p_msgq, size)) : nullptr;
}

// ---- Policies ----

static t_tarn_vpn_list *list_of(const t_tarn *p_tarn, const t_tarn_policy_vpn_list *p_context)
{
    return static_cast<t_tarn_vpn_list *>(avl_find(&p_tarn->vpn_list_db, p_context));
}

// One range, or all of the list's. No range sends nothing.
static int send_vpn_filter(const t_tarn *p_tarn, e_tarn_msg_type type, const char *name,
                           const t_tarn_policy_vpn_list *p_context, const t_tarn_vpn_list *p_list,
                           const t_tarn_vpn *p_only)
{
    size_t count = p_only != nullptr ? 1 : avl_numnodes(&p_list->vpn_db);
    if (count == 0)
        return 0;
    uint8_t *p_buf = new_buffer(p_tarn->p_ftm_msgq, count, TARN_FTM_VPN_ENTRY_SIZE, TARN_FTM_VPN_ENTRY_SIZE);
    if (p_buf == nullptr)
        return ENOMEM;
    uint8_t *p_end = tarn_ftm_put_fixed(p_buf, {.type = type,
                                                .kind = static_cast<uint8_t>(p_context->filter_type),
                                                .side = static_cast<uint8_t>(p_context->direction),
                                                .filter_id = static_cast<uint32_t>(p_context->filter_id),
                                                .name = name,
                                                .count = static_cast<uint32_t>(count)});
    if (p_only != nullptr) {
        p_end = tarn_ftm_put_vpn(p_end, p_only);
    } else {
        for (auto *p_vpn = static_cast<const t_tarn_vpn *>(avl_first(&p_list->vpn_db)); p_vpn != nullptr;
             p_vpn = static_cast<const t_tarn_vpn *>(avl_walk(&p_list->vpn_db, p_vpn)))
            p_end = tarn_ftm_put_vpn(p_end, p_vpn);
    }
    send_or_drop(p_tarn->p_ftm_msgq, p_buf, p_end);
    return 0;
}

static int tell_policy(t_tarn *p_tarn, e_tarn_msg_type type, const t_tarn_policy *p_policy,
                       const t_tarn_policy_vpn_list *p_context, const t_tarn_vpn *p_vpn)
{
    if (p_tarn == nullptr || p_tarn->p_ftm_msgq == nullptr || p_policy == nullptr || p_context == nullptr)
        return EBADMSG;
    const t_tarn_vpn_list *p_list = list_of(p_tarn, p_context);
    if (p_list == nullptr)
        return ENOENT;
    return send_vpn_filter(p_tarn, type, p_policy->key.name, p_context, p_list, p_vpn);
}

int tarn_bind_policy_to_vpnlist(t_tarn *p_tarn, t_tarn_policy *p_policy,
                                t_tarn_policy_vpn_list *p_policy_vpn_list, t_tarn_vpn *p_vpn)
{
    return tell_policy(p_tarn, TARN_MSG_VPN_FILTER_ADD, p_policy, p_policy_vpn_list, p_vpn);
}

int tarn_unbind_policy_from_vpnlist(t_tarn *p_tarn, t_tarn_policy *p_policy,
                                    t_tarn_policy_vpn_list *p_policy_vpn_list, t_tarn_vpn *p_vpn)
{
    return tell_policy(p_tarn, TARN_MSG_VPN_FILTER_DELETE, p_policy, p_policy_vpn_list, p_vpn);
}

// ---- Access lists ----

// The entries of one interface, or of all; null when a name does not fit.
static uint8_t *put_intfs(uint8_t *p_end, const t_tarn_access_list *p_access_list, const t_tarn_intf *p_only)
{
    if (p_only != nullptr)
        return tarn_ftm_put_intf(&p_end, p_only) == 0 ? p_end : nullptr;
    for (auto *p_intf = static_cast<const t_tarn_intf *>(avl_first(&p_access_list->intf_db));
         p_intf != nullptr;
         p_intf = static_cast<const t_tarn_intf *>(avl_walk(&p_access_list->intf_db, p_intf))) {
        if (tarn_ftm_put_intf(&p_end, p_intf) != 0)
            return nullptr;
    }
    return p_end;
}

// An emptied list still has the id of its last program and is told with it.
static int tell_access_list(const t_tarn *p_tarn, e_tarn_msg_type type,
                            const t_tarn_access_list *p_access_list, const t_tarn_intf *p_only)
{
    if (p_tarn == nullptr || p_tarn->p_ftm_msgq == nullptr)
        return 0;
    size_t count = p_only != nullptr ? 1 : avl_numnodes(&p_access_list->intf_db);
    if (count == 0)
        return 0;
    uint8_t *p_buf = new_buffer(p_tarn->p_ftm_msgq, count, TARN_FTM_INTF_ENTRY_SIZE, intf_alloc_size);
    if (p_buf == nullptr)
        return ENOMEM;
    uint8_t *p_end = tarn_ftm_put_fixed(p_buf, {.type = type,
                                                .kind = static_cast<uint8_t>(p_access_list->key.af_type),
                                                .side = 0,
                                                .filter_id = static_cast<uint32_t>(p_access_list->filter_id),
                                                .name = p_access_list->key.name,
                                                .count = static_cast<uint32_t>(count)});
    p_end = put_intfs(p_end, p_access_list, p_only);
    if (p_end == nullptr) {
        msgq_msg_free(p_tarn->p_ftm_msgq, p_buf);
        return EINVAL;
    }
    send_or_drop(p_tarn->p_ftm_msgq, p_buf, p_end);
    return 0;
}

int tarn_bind_acl(void *p_node, void *arg1, void *)
{
    return tell_access_list(static_cast<t_tarn *>(arg1), TARN_MSG_INTF_FILTER_ADD,
                            static_cast<t_tarn_access_list *>(p_node), nullptr);
}

int tarn_bind_acl_to_intf(t_tarn *p_tarn, t_tarn_access_list *p_access_list, t_tarn_intf *p_intf)
{
    return tell_access_list(p_tarn, TARN_MSG_INTF_FILTER_ADD, p_access_list, p_intf);
}

int tarn_unbind_acl(t_tarn *p_tarn, t_tarn_access_list *p_access_list)
{
    return tell_access_list(p_tarn, TARN_MSG_INTF_FILTER_DELETE, p_access_list, nullptr);
}

int tarn_unbind_acl_from_intf(t_tarn *p_tarn, t_tarn_access_list *p_access_list, t_tarn_intf *p_intf)
{
    return tell_access_list(p_tarn, TARN_MSG_INTF_FILTER_DELETE, p_access_list, p_intf);
}

// ---- The channel ----

// Contexts without a filter and zone-based ones are sent, too, and under the name of the list: FTM knows a
// binding by its VPNs and filter type, not by name.
static int replay_context(void *p_node, void *arg1, void *)
{
    const t_tarn *p_tarn = static_cast<const t_tarn *>(arg1);
    const t_tarn_policy_vpn_list *p_context = static_cast<const t_tarn_policy_vpn_list *>(p_node);
    const t_tarn_vpn_list *p_list = list_of(p_tarn, p_context);
    if (p_list == nullptr)
        return 0;
    return send_vpn_filter(p_tarn, TARN_MSG_VPN_FILTER_ADD, p_list->key.name, p_context, p_list, nullptr);
}

static int replay_policy(void *p_node, void *arg1, void *)
{
    return avl_foreach(&static_cast<t_tarn_policy *>(p_node)->vpn_list_db, replay_context, arg1, nullptr);
}

// One list that cannot be told does not keep the others back.
static void replay_access_lists(t_tarn *p_tarn, const avl_tree_t *p_lists)
{
    for (void *p_list = avl_first(p_lists); p_list != nullptr; p_list = avl_walk(p_lists, p_list))
        tarn_bind_acl(p_list, p_tarn, nullptr);
}

static void tarn_ftm_up(msgq_handle_t *, void *user_arg_p)
{
    t_tarn *p_tarn = static_cast<t_tarn *>(user_arg_p);
    avl_foreach(&p_tarn->policy_db, replay_policy, p_tarn, nullptr);
    replay_access_lists(p_tarn, &p_tarn->access_list_db);
    replay_access_lists(p_tarn, &p_tarn->access_list6_db);
}

static void tarn_ftm_down(msgq_handle_t *, void *) {}

static void tarn_ftm_write(msgq_handle_t *, void *) {}

// FTM sends nothing. What comes all the same is neither read nor given back.
static void tarn_ftm_read(msgq_handle_t *, void *, uint16_t, void *) {}

static void *tarn_ftm_malloc(size_t size)
{
    return calloc(1, size);
}

static void tarn_ftm_free(void *buf_p)
{
    free(buf_p);
}

int tarn_ftm_init(t_tarn *p_tarn)
{
    msgq_app_params_t params = {};
    params.app_evbase_p = p_tarn->p_event_base;
    params.timer_mgr_p = p_tarn->p_timer_mgr;
    params.syslog_id = LOG_LOCAL7;
    params.socket_type = AF_UNIX;
    msgq_app_cb_t callbacks = {};
    callbacks.conn_up_cb = tarn_ftm_up;
    callbacks.conn_down_cb = tarn_ftm_down;
    callbacks.msg_write_cb = tarn_ftm_write;
    callbacks.msg_read_cb = tarn_ftm_read;
    callbacks.malloc_cb = tarn_ftm_malloc;
    callbacks.free_cb = tarn_ftm_free;
    p_tarn->p_ftm_msgq =
        msgq_init(LUM_MODULE_TARN, LUM_MODULE_FTM, MSGQ_HANDLE_TYPE_SERVER, &params, &callbacks, p_tarn);
    return p_tarn->p_ftm_msgq != nullptr ? 0 : ENOMEM;
}

int tarn_ftm_destroy(t_tarn *p_tarn)
{
    msgq_destroy(std::exchange(p_tarn->p_ftm_msgq, nullptr));
    return 0;
}
