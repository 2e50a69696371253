// Mirrors: where copies of packets go, to an interface, through a tunnel, or both.
//
// A rule's action holds a copy of the mirror's record, which the pass refreshes; ref_db tells who uses the
// mirror, so that a change can mark its users.
#pragma once

#include "common/dll.h"
#include "fp_api/fp_ipaddr.h"
#include "platform/avl/avl.h"
#include "tarnd/compiler/tarn_program_format.h"
#include "tarnd/config/tarn_policy.h"

#include <cstddef>
#include <cstdint>

inline constexpr int TARN_MIRROR_MIN = 0;
inline constexpr int TARN_MIRROR_MAX = 4;

enum t_tarn_bind_type {
    TARN_BIND_TYPE_UNKNOWN = 0,
    TARN_BIND_TYPE_VPN = 1,   // a policy's context
    TARN_BIND_TYPE_INTF = 2,  // an access list
    TARN_BIND_TYPE_POLICY = 3,
    TARN_BIND_TYPE_MAX = 4,
};

struct t_tarn_mirror_config_key {
    char name[TARN_NAME_SIZE];
};

struct t_tarn_mirror_config {
    avl_node_t avl_node;
    t_tarn_mirror_config_key key;
    int mirror_type;    // e_tarn_mirror_type, not taken back when an element goes
    t_dll intf_list;    // t_tarn_mirror_intf_config
    t_dll tunnel_list;  // t_tarn_mirror_tunnel_config
    avl_tree_t ref_db;  // t_tarn_mirror_ref
};

struct t_tarn_mirror_intf_config {
    t_dlnode dlnode;
    char name[TARN_NAME_SIZE];  // the kernel's
};

// IPv4 words in network order, as programs have them.
struct t_tarn_mirror_tunnel_config {
    t_dlnode dlnode;
    t_fp_ipaddr src_ip;
    t_fp_ipaddr dst_ip;
};

// The two ends of a tunnel, as the parser hands them over.
struct t_tarn_mirror_tunnel {
    t_fp_ipaddr src_ip;
    t_fp_ipaddr dst_ip;
};

struct t_tarn_mirror_ref {
    avl_node_t avl_node;
    char name[TARN_NAME_SIZE];   // the VPN list or the access list
    char name2[TARN_NAME_SIZE];  // the policy, or empty
    int ref_type;                // t_tarn_bind_type
    int ref_count;
};
static_assert(sizeof(t_tarn_mirror_ref) == 288);

int tarn_mirror_key_cmp(const void *p_key, const void *p_object);      // name length, name
int tarn_mirror_ref_key_cmp(const void *p_key, const void *p_object);  // ref_type, name, name2

// intf_name (128 bytes, zero-padded) and p_tunnel may each be null. 74, 2, 12.
int tarn_config_mirror_add(t_tarn *p_tarn, const char *name, const char *intf_name,
                           const t_tarn_mirror_tunnel *p_tunnel);
int tarn_config_mirror_change(t_tarn *p_tarn, const char *name, const char *intf_name,
                              const t_tarn_mirror_tunnel *p_tunnel);
int tarn_config_mirror_delete(t_tarn *p_tarn, const char *name, const char *intf_name,
                              const t_tarn_mirror_tunnel *p_tunnel);
t_tarn_mirror_config *tarn_mirror_find(const t_tarn *p_tarn, const char *name);

// Marks one user; a step of avl_foreach over ref_db with the t_tarn as arg1.
int tarn_mirror_ref_change(void *p_node, void *arg1, void *arg2);

// Counts a use, and gives one back. name2 is empty for an access list. 12 without memory.
int tarn_mirror_ref_take(t_tarn_mirror_config *p_mirror, int ref_type, const char *name, const char *name2);
void tarn_mirror_ref_give(t_tarn_mirror_config *p_mirror, int ref_type, const char *name, const char *name2);

void tarn_config_mirror_destroy(t_tarn *p_tarn);  // frees all, tells nobody
