// The rest of the client library's names, for programs that link the adapter with the double: nobody is
// there, so every connection fails and whatever stands on one does too.
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"
#include "platform/confd/confd_maapi.h"

int cdb_close(int)
{
    return CONFD_ERR;
}

int cdb_diff_iterate(int, int, f_cdb_iter, int, void *)
{
    return CONFD_ERR;
}

int cdb_get(int, confd_value_t *, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_get_int32(int, int32_t *, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_get_modifications(int, int, int, confd_tag_value_t **, int *, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_get_modifications_iter(int, int, confd_tag_value_t **, int *)
{
    return CONFD_ERR;
}

int cdb_oper_subscribe(int, int, int *, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_read_subscription_socket2(int, cdb_sub_notification *, int *, int *[], int *)
{
    return CONFD_ERR;
}

int cdb_set_elem(int, confd_value_t *, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_sub_abort_trans(int, confd_errcode, uint32_t, uint32_t, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_subscribe(int, int, int, int *, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_subscribe2(int, cdb_sub_type, int, int, int *, int, const char *, ...)
{
    return CONFD_ERR;
}

int cdb_subscribe_done(int)
{
    return CONFD_ERR;
}

int cdb_sync_subscription_socket(int, cdb_subscription_sync_type)
{
    return CONFD_ERR;
}

int cdb_trigger_oper_subscriptions(int, int[], int, int)
{
    return CONFD_ERR;
}

int cdb_trigger_subscriptions(int, int[], int)
{
    return CONFD_ERR;
}

int cdb_vcreate(int, const char *, va_list)
{
    return CONFD_ERR;
}

int cdb_vdelete(int, const char *, va_list)
{
    return CONFD_ERR;
}

int cdb_vset_elem(int, confd_value_t *, const char *, va_list)
{
    return CONFD_ERR;
}

void confd_action_set_fd(confd_user_info *, int) {}

int confd_connect(confd_daemon_ctx *, int, confd_sock_type, const struct sockaddr *, int)
{
    return CONFD_ERR;
}

int confd_fd_ready(confd_daemon_ctx *, int)
{
    return CONFD_ERR;
}

void confd_free_notification(confd_notification *) {}

confd_daemon_ctx *confd_init_daemon(const char *)
{
    return nullptr;
}

int confd_init_vsn_sz(const char *, FILE *, confd_debug_level, int, int, int)
{
    return CONFD_ERR;
}

int confd_load_schemas(const struct sockaddr *, int)
{
    return CONFD_ERR;
}

int confd_notifications_connect2(int, const struct sockaddr *, int, int, const confd_notifications_data *)
{
    return CONFD_ERR;
}

int confd_pp_kpath(char *, int, const confd_hkeypath_t *)
{
    return CONFD_ERR;
}

int confd_read_notification(int, confd_notification *)
{
    return CONFD_ERR;
}

int confd_register_action_cbs(confd_daemon_ctx *, const confd_action_cbs *)
{
    return CONFD_ERR;
}

int confd_register_done(confd_daemon_ctx *)
{
    return CONFD_ERR;
}

int confd_register_notification_stream(confd_daemon_ctx *, const confd_notification_stream_cbs *,
                                       confd_notification_ctx **)
{
    return CONFD_ERR;
}

int confd_register_snmp_notification(confd_daemon_ctx *, int, const char *, const char *,
                                     confd_notification_ctx **)
{
    return CONFD_ERR;
}

int confd_register_trans_cb(confd_daemon_ctx *, const confd_trans_cbs *)
{
    return CONFD_ERR;
}

int confd_register_trans_validate_cb(confd_daemon_ctx *, const confd_trans_validate_cbs *)
{
    return CONFD_ERR;
}

int confd_register_valpoint_cb(confd_daemon_ctx *, const confd_valpoint_cb *)
{
    return CONFD_ERR;
}

void confd_release_daemon(confd_daemon_ctx *) {}

int confd_set_daemon_flags(confd_daemon_ctx *, int)
{
    return CONFD_ERR;
}

void confd_trans_set_fd(confd_trans_ctx *, int) {}

int maapi_connect(int, const struct sockaddr *, int)
{
    return CONFD_ERR;
}

int maapi_install_crypto_keys(int)
{
    return CONFD_ERR;
}

int maapi_wait_start(int, int)
{
    return CONFD_ERR;
}
