// What notifications are sent and told by: nobody is there to take one, and there is no schema to name values
// by. A test that listens defines all of these itself.
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"

int cdb_get_phase(int, cdb_phase *)
{
    return CONFD_ERR;
}

int confd_notification_send(confd_notification_ctx *, const confd_datetime *, const confd_tag_value_t *, int)
{
    return CONFD_ERR;
}

int confd_notification_set_snmp_notify_name(confd_notification_ctx *, const char *)
{
    return CONFD_ERR;
}

int confd_notification_send_snmp(confd_notification_ctx *, const char *, const confd_snmp_varbind *, int)
{
    return CONFD_ERR;
}

const char *confd_hash2str(uint32_t)
{
    return nullptr;
}

confd_cs_node *confd_cs_node_cd(const confd_cs_node *, const char *, ...)
{
    return nullptr;
}

int confd_pp_value(char *, int, const confd_value_t *)
{
    return CONFD_ERR;
}

int confd_val2str_ptr(confd_type *, const confd_value_t *, const char **)
{
    return CONFD_ERR;
}
