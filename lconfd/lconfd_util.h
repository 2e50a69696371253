// The adapter's toolbox: keys out of keypaths, addresses and prefixes out of values, reading and writing the
// operational store, labels, list walks.
//
// Functions with a socket or a context run on the main thread, the only one that uses the context's sockets.
// Writing opens a socket of its own: lconfd_vset_cdb_oper_value blocks its caller, lconfd_set_cdb_oper_value
// leaves that to a thread, so that the event loop goes on. Background writes reach the store in the order of
// their calls: each thread waits for the one before it.
//
// Results are the framework's (0, -1, -2, with confd_errno), unless a comment says otherwise. Outputs stay
// untouched on failure.
#pragma once

#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_maapi.h"

#include <cstdarg>
#include <sys/socket.h>

// ---- Connecting ----

// cdb_connect, tried four times with 100 ms behind each failure. The last result.
int lconfd_cdb_connect(int sock, cdb_sock_type type, const sockaddr *addr, socklen_t addr_len);

// ---- Keys and values ----

// Copies the keys of the list with that tag, as many as num_keys, to key_buf, or to an array from malloc,
// which is then the caller's to free. The copies point into the keypath. Null when the path has no such list
// or another number of keys, or num_keys is 0.
confd_value_t *lconfd_keypath_get_keys(const confd_hkeypath_t *keypath, confd_value_t *key_buf, int num_keys,
                                       uint32_t tag);

// Frees the values and the array.
void lconfd_free_confd_list(confd_value_t *values, int count);

// Read an address. A value of another type fails an assertion.
int lconfd_maapi_get_ip(int maapi_sock, int th, t_ipaddr *p_addr, const char *fmt, ...);
int lconfd_cdb_get_ip(int sock, t_ipaddr *p_addr, const char *fmt, ...);

// Reads a prefix's text. A value that is no text fails an assertion.
int lconfd_cdb_get_ip_prefix_from_str(int sock, t_ipprefix *p_prefix, const char *fmt, ...);

// "ADDRESS/LENGTH", or an address with all bits. Nothing validates the text, whose address part counts up to
// 127 characters.
void lconfd_ipv4_prefix_str_to_confd(const char *text, confd_ipv4_prefix *p_prefix);
void lconfd_ipv6_prefix_str_to_confd(const char *text, confd_ipv6_prefix *p_prefix);
void lconfd_ip_prefix_str_to_t_ipprefix(const char *text, t_ipprefix *p_prefix);
void lconfd_ip_addr_str_to_t_ipaddr(const char *text, t_ipaddr *p_addr);

// In UTC. Of the present time with microseconds.
void lconfd_time_to_confd(const time_t *p_time, confd_datetime *p_datetime);
void lconfd_get_date_time(confd_datetime *p_datetime);

// The kind of device of a configured personality.
e_lum_device lconfd_get_device_type(uint32_t value);

// ---- The operational store ----

enum e_lconfd_oper_type {
    E_LCONFD_OPER_CREATE = 1,
    E_LCONFD_OPER_ADD = 2,  // sets a value
    E_LCONFD_OPER_DEL = 3,
};

// Writes and waits. With notify_subscribers 1 until those who subscribe to it have heard of it. From any
// thread. 0, 1 when there is no session to be had, or the framework's error number; CONFD_ERR_ALREADY_EXISTS
// of a creation and CONFD_ERR_NOEXISTS of a deletion are expected. p_val may be null but for
// E_LCONFD_OPER_ADD.
int lconfd_vset_cdb_oper_value(t_lconfd_context *ctx, confd_value_t *p_val, e_lconfd_oper_type oper,
                               int notify_subscribers, const char *fmt, ...);

// The same in the background, for a whole path of up to 99 characters. The value, which may be null, is
// copied, with the text of a C_STR or C_BUF. 0 once the thread runs, 1, or 2 without memory.
int lconfd_set_cdb_oper_value(t_lconfd_context *ctx, const confd_value_t *p_val, const char *path,
                              e_lconfd_oper_type oper, int notify_subscribers);

// Reads on the context's data socket, with a lock if lock is 1. 0 or 1.
int lconfd_get_cdb_int32_value(t_lconfd_context *ctx, int32_t *p_value, const char *path, int lock);

// ---- Labels of VPNs and services ----
// service is an e_vpn_svc_type. Setting waits for the store and gives 0 or -1, reading gives the label or -1.

int lconfd_set_vpn_label(t_lconfd_context *ctx, uint64_t vpn_id, int32_t label);
int lconfd_get_vpn_label(t_lconfd_context *ctx, uint64_t vpn_id);
int lconfd_set_service_label(t_lconfd_context *ctx, uint64_t vpn_id, uint32_t service, int32_t label);
int lconfd_get_service_label(t_lconfd_context *ctx, uint64_t vpn_id, uint32_t service);
int lconfd_set_service_tracker_state(t_lconfd_context *ctx, uint64_t vpn_id, uint32_t service, bool state);

// ---- Addresses of SNMP ----

// A local transport address, "127.0.0.1." and the two bytes of the next of 16 ports from 55000. The text is
// good until the next call.
const char *lconfd_snmp_get_transport_addr();

// Address and port, in host order, of a transport address of len bytes. 0, or ERR_BAD_PARAM below 6 bytes.
int lconfd_snmp_ipport_fm_transport_addr(const uint8_t *buf, size_t len, uint32_t *p_ip, uint16_t *p_port);

// ---- Lists ----

// ITER_CONTINUE goes on, ITER_STOP ends the walk as failed, anything else ends it.
using lconfd_maapi_walk_cb = int (*)(t_lconfd_context *ctx, confd_trans_ctx *tctx, confd_value_t *keys,
                                     void *arg);

// Calls cb with the keys of each entry of a list in a transaction that is attached to the context's MAAPI
// socket. 0, or 1 when the walk failed.
int lconfd_maapi_walk_list(t_lconfd_context *ctx, confd_trans_ctx *tctx, const char *path,
                           lconfd_maapi_walk_cb cb, void *arg);
