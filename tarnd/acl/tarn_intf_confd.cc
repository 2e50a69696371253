// Access lists and their bindings as the configuration brings them. What the store refuses here is logged,
// and the daemon goes on.
#include "tarnd/acl/tarn_intf_confd.h"
#include "common/lum_log.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/core/tarn.h"

#include <arpa/inet.h>
#include <cerrno>
#include <span>
#include <sys/socket.h>
#include <unistd.h>

// ---- Lists ----

// 0 when the leaf is absent or was deleted.
static uint32_t read_default_action(std::span<const confd_tag_value_t> values)
{
    uint32_t action = TARN_FILTER_ACTION_INVALID;
    for (const confd_tag_value_t &value : values)
        if (value.tag.tag == LUMORA_TAG_DEFAULT_ACTION && value.v.type != C_NOEXISTS) {
            TARN_CONFD_TYPE(&value.v, C_ENUM_VALUE);
            action = tarn_yang_action_to_filter_action(static_cast<uint32_t>(value.v.val.enumvalue));
        }
    return action;
}

static int tarn_config_access_list(e_tarn_af_type af_type, t_lconfd_sub_entry *p_lconfd_sub,
                                   confd_iter_op oper, int num_keys, const confd_value_t *p_key,
                                   int num_values, const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Access list: %s, oper:%d, num_values:%d", name.text, oper, num_values);
    if (oper == MOP_DELETED) {
        int status = tarn_access_list_delete(p_tarn, name, af_type);
        if (status != 0)
            TARN_LOG("Failed to delete access list %s, err(%d)\n", name.text, status);
    } else if (oper == MOP_CREATED || oper == MOP_MODIFIED) {
        uint32_t action = read_default_action(tarn_confd_values(num_values, p_val));
        int status = oper == MOP_CREATED ? tarn_access_list_add(p_tarn, name, af_type, action)
                                         : tarn_access_list_change(p_tarn, name, af_type, action);
        if (status != 0)
            TARN_LOG("Failed to add access list %s, err(%d)\n", name.text, status);
    }
    return 0;
}

int tarn_config_access_list_v4(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                               const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    return tarn_config_access_list(TARN_AF_TYPE_IPV4, p_lconfd_sub, oper, num_keys, p_key, num_values, p_val);
}

int tarn_config_access_list_v6(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                               const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    return tarn_config_access_list(TARN_AF_TYPE_IPV6, p_lconfd_sub, oper, num_keys, p_key, num_values, p_val);
}

// ---- What a binding named before the commit ----

static int read_pre_commit_name(int sock, e_tarn_af_type af_type, const confd_value_t *p_keys, char *buf,
                                int size)
{
    if (cdb_start_session2(sock, CDB_PRE_COMMIT_RUNNING, 0) != CONFD_OK) {
        TARN_LOG("Failed to start cdb session %s (%d) : %s", confd_strerror(confd_errno), confd_errno,
                 confd_lasterr());
        return 1;
    }
    const char *path = af_type == TARN_AF_TYPE_IPV6
                           ? "/vpn/vpn-instance{%x}/interface{%x}/ipv6/access-list{%x}/acl-name"
                           : "/vpn/vpn-instance{%x}/interface{%x}/access-list{%x}/acl-name";
    int status = cdb_get_str(sock, buf, size, path, &p_keys[0], &p_keys[1], &p_keys[2]);
    if (status != CONFD_OK)
        TARN_LOG("Failed to get access-list name %s (%d) : %s", confd_strerror(confd_errno), confd_errno,
                 confd_lasterr());
    cdb_end_session(sock);
    return status == CONFD_OK ? 0 : 1;
}

int tarn_config_get_pre_commit_access_list(e_tarn_af_type af_type, const confd_value_t *p_keys, char *buf,
                                           int size)
{
    int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        TARN_LOG("Cannot open data socket to confd : %d", errno);
        return 1;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(CONFD_PORT);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int status =
        cdb_connect(sock, CDB_DATA_SOCKET, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    if (status != CONFD_OK)
        TARN_LOG("Cannot connect to CDB (%d) %s (%d) : %s", status, confd_strerror(confd_errno), confd_errno,
                 confd_lasterr());
    else
        status = read_pre_commit_name(sock, af_type, p_keys, buf, size);
    close(sock);
    return status == 0 ? 0 : 1;
}

// ---- Bindings ----

static t_tarn_confd_name read_acl_name(std::span<const confd_tag_value_t> values)
{
    confd_value_t none = {};
    t_tarn_confd_name name(&none);
    for (const confd_tag_value_t &value : values)
        if (value.tag.tag == LUMORA_TAG_ACL_NAME && value.v.type != C_NOEXISTS) {
            TARN_CONFD_TYPE(&value.v, C_BUF);
            name = t_tarn_confd_name(&value.v);
        }
    return name;
}

// A change of name comes as one call. The name before it is the datastore's to tell.
static int tarn_config_intf_access_list(e_tarn_af_type af_type, t_lconfd_sub_entry *p_lconfd_sub,
                                        confd_iter_op oper, int num_keys, const confd_value_t *p_key,
                                        int num_values, const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 3, "num_keys == 3");
    TARN_CONFD_TYPE(p_key, C_UINT64);
    TARN_CONFD_TYPE(p_key + 1, C_BUF);
    TARN_CONFD_TYPE(p_key + 2, C_ENUM_VALUE);
    t_tarn_confd_name intf_name(p_key + 1);
    auto direction = static_cast<uint32_t>(p_key[2].val.enumvalue);
    t_tarn_acl_bind_param param = {p_key[0].val.u64, intf_name,
                                   tarn_yang_direction_to_filter_direction(direction)};
    char old_name[TARN_PRE_COMMIT_NAME_SIZE] = "";
    if (oper != MOP_CREATED &&
        tarn_config_get_pre_commit_access_list(af_type, p_key, old_name, sizeof(old_name)) == 0 &&
        tarn_access_list_unbind(p_tarn, af_type, old_name, &param) != 0)
        TARN_LOG("Failed to unbind acl : %s", old_name);
    if (oper != MOP_DELETED) {
        t_tarn_confd_name name = read_acl_name(tarn_confd_values(num_values, p_val));
        if (tarn_access_list_bind(p_tarn, af_type, name, &param) != 0)
            TARN_LOG("Failed to bind acl: %s", name.text);
    }
    tarn_confd_count_policy_change();
    return 0;
}

int tarn_config_intf_access_list_v4(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                    const confd_value_t *p_key, int num_values,
                                    const confd_tag_value_t *p_val)
{
    return tarn_config_intf_access_list(TARN_AF_TYPE_IPV4, p_lconfd_sub, oper, num_keys, p_key, num_values,
                                        p_val);
}

int tarn_config_intf_access_list_v6(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                    const confd_value_t *p_key, int num_values,
                                    const confd_tag_value_t *p_val)
{
    return tarn_config_intf_access_list(TARN_AF_TYPE_IPV6, p_lconfd_sub, oper, num_keys, p_key, num_values,
                                        p_val);
}

// ---- Interfaces and VPNs ----

int tarn_config_vpn_if(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                       const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key + 1, C_BUF);
    if (oper == MOP_DELETED)
        tarn_access_list_unbind_from_intf(p_tarn, t_tarn_confd_name(p_key + 1));
    return 0;
}

int tarn_config_vpn(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                    const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_UINT64);
    if (oper == MOP_DELETED)
        tarn_access_list_unbind_from_vpn(p_tarn, p_key->val.u64);
    else
        tarn_vpn_bind_policy(p_tarn, p_key->val.u64);
    return 0;
}
