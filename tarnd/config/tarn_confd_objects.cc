// Parsers of forwarding classes, SLA classes, mirrors and policers.
#include "chmgr_api/chmgr_api.h"
#include "common/strlcpy.h"
#include "fp_api/fp_ipaddr.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/core/tarn.h"

#include <cstring>

// ---- Classes ----

static uint8_t class_queue(std::span<const confd_tag_value_t> values)
{
    uint8_t queue = 0;
    for (const confd_tag_value_t &value : values)
        if (value.tag.tag == LUMORA_TAG_QUEUE && value.v.type != C_NOEXISTS) {
            TARN_CONFD_TYPE(&value.v, C_UINT8);
            queue = value.v.val.u8;
        }
    return queue;
}

// 1 when the store refuses.
int tarn_config_class(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                      const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Class: %s, oper:%d, num_values:%d", name.text, oper, num_values);
    t_tarn_class_params params = {.class_name = name, .queue = 0};
    if (oper == MOP_DELETED)
        return tarn_class_delete(p_tarn, &params) != 0;
    params.queue = class_queue(tarn_confd_values(num_values, p_val));
    if (oper == MOP_CREATED)
        return tarn_class_add(p_tarn, &params) != 0;
    if (oper == MOP_MODIFIED)
        return tarn_class_modify(p_tarn, &params) != 0;
    return 0;
}

int tarn_config_policy_sla_class(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                 const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "SLA class: %s, oper:%d", name.text, oper);
    if (oper == MOP_CREATED) {
        int status = tarn_sla_class_add(p_tarn, name);
        TARN_CONFD_CHECK(status, "Failed to add sla class '%s', err(%d)\n", name.text, status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_sla_class_delete(p_tarn, name);
        TARN_CONFD_CHECK(status, "Failed to delete SLA class %s, err(%d)\n", name.text, status);
    }
    return 0;
}

// ---- Mirrors ----

static void write_mirror(t_tarn *p_tarn, confd_iter_op oper, const char *name, const char *intf_name,
                         const t_tarn_mirror_tunnel *p_tunnel)
{
    if (oper == MOP_CREATED) {
        int status = tarn_config_mirror_add(p_tarn, name, intf_name, p_tunnel);
        TARN_CONFD_CHECK(status, "Failed to add mirror %s, err(%d)\n", name, status);
    } else if (oper == MOP_MODIFIED && p_tunnel != nullptr) {
        int status = tarn_config_mirror_change(p_tarn, name, intf_name, p_tunnel);
        TARN_CONFD_CHECK(status, "Failed to change mirror %s, err(%d)\n", name, status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_config_mirror_delete(p_tarn, name, intf_name, p_tunnel);
        TARN_CONFD_CHECK(status, "Failed to delete mirror %s, err(%d)\n", name, status);
    }
}

int tarn_config_mirror_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                            const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Mirror: %s, oper:%d", name.text, oper);
    write_mirror(p_tarn, oper, name, nullptr, nullptr);
    return 0;
}

int tarn_config_mirror_list_interface(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                      const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_BUF);
    t_tarn_confd_name name(p_key);
    t_tarn_confd_name user_name(p_key + 1);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Mirror: %s, interface: %s, oper:%d", name.text, user_name.text, oper);
    // A name that the box doesn't know stands as the operator wrote it.
    char kernel_name[TARN_NAME_SIZE] = {};
    lum_strlcpy(kernel_name, user_name.text, sizeof(kernel_name));
    chmgr_user_to_kernel_ifname(user_name, kernel_name, sizeof(kernel_name), nullptr);
    write_mirror(p_tarn, oper, name, kernel_name, nullptr);
    return 0;
}

// A tunnel's end keeps the IPv4 word in network order.
static t_fp_ipaddr tunnel_end(const confd_value_t *p_value)
{
    t_fp_ipaddr end = {};
    if (p_value->type == C_IPV6) {
        end.addr_type = FP_AF_INET6;
        memcpy(end.addr, &p_value->val.ip6, sizeof(end.addr));
        return end;
    }
    TARN_CONFD_TYPE(p_value, C_IPV4);
    end.addr_type = FP_AF_INET;
    memcpy(end.addr, &p_value->val.ip.s_addr, sizeof(p_value->val.ip.s_addr));
    return end;
}

int tarn_config_mirror_list_remote_dest(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                        const confd_value_t *p_key, int num_values,
                                        const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Mirror: %s, remote destination, oper:%d, num_values:%d", name.text, oper,
               num_values);
    t_tarn_mirror_tunnel tunnel = {.src_ip = {}, .dst_ip = tunnel_end(p_key + 1)};
    for (const confd_tag_value_t &value : tarn_confd_values(num_values, p_val))
        if (value.tag.tag == LUMORA_TAG_SOURCE && value.v.type != C_NOEXISTS)
            tunnel.src_ip = tunnel_end(&value.v);
    write_mirror(p_tarn, oper, name, nullptr, &tunnel);
    return 0;
}

// ---- Policers ----

// What the leaves set of a policer; the result tells which were there.
static uint8_t read_policer(std::span<const confd_tag_value_t> values, t_tarn_policer_config *p_policer)
{
    uint8_t present = 0;
    for (const confd_tag_value_t &value : values) {
        if (value.v.type == C_NOEXISTS)
            continue;
        switch (value.tag.tag) {
        case LUMORA_TAG_RATE:
            TARN_CONFD_TYPE(&value.v, C_UINT64);
            p_policer->bandwidth = value.v.val.u64;
            present |= POLICER_BW;
            break;
        case LUMORA_TAG_BURST:
            TARN_CONFD_TYPE(&value.v, C_UINT32);
            p_policer->burst = value.v.val.u32;
            present |= POLICER_BURST;
            break;
        case LUMORA_TAG_EXCEED:
            TARN_CONFD_TYPE(&value.v, C_ENUM_VALUE);
            p_policer->oob_action = static_cast<uint8_t>(value.v.val.enumvalue);
            present |= POLICER_ACTION;
            break;
        default:
            break;
        }
    }
    return present;
}

static void write_policer(t_tarn *p_tarn, confd_iter_op oper, uint8_t present,
                          const t_tarn_policer_config &policer)
{
    if (oper == MOP_CREATED) {
        int status = tarn_config_policer_add(p_tarn, &policer);
        TARN_CONFD_CHECK(status, "Failed to add policer %s, err(%d)\n", policer.key.name, status);
    } else if (oper == MOP_MODIFIED) {
        int status = tarn_config_policer_change(p_tarn, present, &policer);
        TARN_CONFD_CHECK(status, "Failed to change policer %s, err(%d)\n", policer.key.name, status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_config_policer_delete(p_tarn, &policer);
        TARN_CONFD_CHECK(status, "Failed to delete policer %s, err(%d)\n", policer.key.name, status);
    }
}

static int tarn_config_policer(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                               const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val,
                               int data_policer)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Policer: %s, oper:%d, num_values:%d", name.text, oper, num_values);
    t_tarn_policer_config policer = {};
    memcpy(policer.key.name, name.text, sizeof(policer.key.name));
    policer.key.sequence_id = -1;
    policer.key.type = data_policer != 0 ? TARN_POLICY_POLICER_TYPE_KEELSON : TARN_POLICY_POLICER_TYPE_LOCAL;
    uint8_t present = read_policer(tarn_confd_values(num_values, p_val), &policer);
    write_policer(p_tarn, oper, present, policer);
    tarn_confd_count_policy_change();
    return 0;
}

int tarn_config_data_policy_policer(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                    const confd_value_t *p_key, int num_values,
                                    const confd_tag_value_t *p_val)
{
    return tarn_config_policer(p_lconfd_sub, oper, num_keys, p_key, num_values, p_val, 1);
}

int tarn_config_access_list_policer(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                    const confd_value_t *p_key, int num_values,
                                    const confd_tag_value_t *p_val)
{
    return tarn_config_policer(p_lconfd_sub, oper, num_keys, p_key, num_values, p_val, 0);
}
