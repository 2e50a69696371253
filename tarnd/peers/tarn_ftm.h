// The channel to the forwarding table manager (FTM): which filter applies to which VPNs and interfaces.
//
// The compiled filters stand in shared memory; FTM learns by messages where each one applies. This daemon
// serves, FTM calls, and the channel runs one way. Every time FTM comes up, all bindings are sent anew, so a
// message that can't be sent is dropped without a word.
//
// Messages are packed, big-endian, written byte by byte behind the queue's header:
//   VPN filter        type, filter type, direction, 4 filter id, 128 name, 4 count, count * (4 min, 4 max)
//   interface filter  type, family, 0, 4 filter id, 128 name, 4 count, count * (4 VPN, direction, 33 name)
//   flow clearing     type
#pragma once

#include <cstddef>
#include <cstdint>

struct t_tarn;
struct t_tarn_access_list;
struct t_tarn_intf;
struct t_tarn_policy;
struct t_tarn_policy_vpn_list;
struct t_tarn_vpn;

enum e_tarn_msg_type : uint8_t {
    TARN_MSG_MIN = 0,
    TARN_MSG_VPN_FILTER_ADD = 1,
    TARN_MSG_VPN_FILTER_DELETE = 2,
    TARN_MSG_INTF_FILTER_ADD = 3,
    TARN_MSG_INTF_FILTER_DELETE = 4,
    TARN_MSG_DPI_CLEAR_FLOWS = 5,
    TARN_MSG_CFLOWD_CLEAR_FLOWS = 6,
    TARN_MSG_MAX = 7,
};

inline constexpr size_t TARN_FTM_MSG_FIXED_SIZE = 139;  // bytes before the entries
inline constexpr size_t TARN_FTM_VPN_ENTRY_SIZE = 8;
inline constexpr size_t TARN_FTM_INTF_ENTRY_SIZE = 38;
inline constexpr size_t TARN_FTM_MSG_ALLOC_SIZE = 140;  // allocated for the fixed part

// 12 without memory.
int tarn_ftm_init(t_tarn *p_tarn);
int tarn_ftm_destroy(t_tarn *p_tarn);

// Announce or withdraw the context's filter: for p_vpn alone if given, else for every range of its list (none
// sends nothing). 74 for a null argument or no channel, 2 when the list is missing, 12 without memory or for
// more entries than a message holds. A peer that is down is no error.
int tarn_bind_policy_to_vpnlist(t_tarn *p_tarn, t_tarn_policy *p_policy,
                                t_tarn_policy_vpn_list *p_policy_vpn_list, t_tarn_vpn *p_vpn);
int tarn_unbind_policy_from_vpnlist(t_tarn *p_tarn, t_tarn_policy *p_policy,
                                    t_tarn_policy_vpn_list *p_policy_vpn_list, t_tarn_vpn *p_vpn);

// The same for access lists: all interfaces, or one. 0 without a channel, 12, and 22 for a name of more than
// 32 characters, which keeps the whole message back. tarn_bind_acl is a step of avl_foreach with the t_tarn
// as arg1.
int tarn_bind_acl(void *p_node, void *arg1, void *arg2);
int tarn_bind_acl_to_intf(t_tarn *p_tarn, t_tarn_access_list *p_access_list, t_tarn_intf *p_intf);
int tarn_unbind_acl(t_tarn *p_tarn, t_tarn_access_list *p_access_list);
int tarn_unbind_acl_from_intf(t_tarn *p_tarn, t_tarn_access_list *p_access_list, t_tarn_intf *p_intf);
