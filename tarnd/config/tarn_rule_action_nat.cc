// The NAT action: the number of a VPN's VRF, read from the datastore while the rule is being made.
#include "common/lum_log.h"
#include "platform/confd/confd_cdb.h"
#include "tarnd/config/tarn_rule_private.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

static constexpr uint32_t datastore_address = INADDR_LOOPBACK;
static constexpr uint16_t datastore_port = 4565;

// In a session of its own, which ends before the call does.
static int read_vrf_id(int sock, uint64_t vpn_id, int16_t *p_vrf_id)
{
    int status = cdb_start_session2(sock, CDB_OPERATIONAL, 0);
    if (status != CONFD_OK) {
        TARN_LOG("Cannot start session with CDB (%d)%s (%d) : %s", status, confd_strerror(confd_errno),
                 confd_errno, confd_lasterr());
        return status;
    }
    char key[24];
    snprintf(key, sizeof(key), "%" PRIu64, vpn_id);
    status = cdb_get_int16(sock, p_vrf_id, "/vpn/vpn-instance{%s}/vrf-id", key);
    if (status != CONFD_OK)
        TARN_LOG("Failed to get vrf-id for vpn-id %" PRIu64 " (%d)%s (%d) : %s", vpn_id, status,
                 confd_strerror(confd_errno), confd_errno, confd_lasterr());
    cdb_end_session(sock);
    return status;
}

static int connect_and_read(int sock, uint64_t vpn_id, int16_t *p_vrf_id)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(datastore_port);
    address.sin_addr.s_addr = htonl(datastore_address);
    int status =
        cdb_connect(sock, CDB_DATA_SOCKET, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    if (status != CONFD_OK) {
        TARN_LOG("Cannot connect with CDB (%d)%s (%d) : %s", status, confd_strerror(confd_errno), confd_errno,
                 confd_lasterr());
        return status;
    }
    return read_vrf_id(sock, vpn_id, p_vrf_id);
}

int tarn_action_nat_read(t_tarn *, t_tarn_config_rule *, t_tarn_config_action *p_action, const void *value)
{
    int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        TARN_LOG("Cannot open a socket for CDB (%d)", errno);
        return -1;
    }
    int16_t vrf_id = 0;
    int status = connect_and_read(sock, *static_cast<const uint64_t *>(value), &vrf_id);
    close(sock);
    if (status == CONFD_OK)
        p_action->nat_vrid = static_cast<uint16_t>(vrf_id);
    return status;
}
