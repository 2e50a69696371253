// Messages of the TLOC table manager (TTM): records, and their form on the wire.
//
// TTM knows which transport locators of the overlay can be reached. A daemon registers for announcements and
// gets a record for each TLOC that comes, changes or goes. A record in memory is an ordinary t_ttm_msg; the
// two calls below turn it into bytes and back. Messages that carry neither a registration nor a TLOC are
// known by their header only.
//
// On the wire all integers are big-endian. A message opens with a header of 8 bytes: version (1), message
// type, address family, 0, client id (2), length of the whole message (2). A registration adds 4 bytes. A
// TLOC adds a fixed part up to byte 140 and 24 bytes for each path; ttm_codec.cc has both as tables. Of a
// TLOC's attributes the addresses and keys of its tunnels are not carried.
//
// Plain functions on the caller's records, callable from any thread.
#pragma once

#include "common/ip_util.h"

#include <cstddef>
#include <cstdint>

enum e_ttm_msg_type : uint32_t {
    TTM_MSG_REGISTER = 1,
    TTM_MSG_UNREGISTER = 2,
    TTM_MSG_BFD_STATUS = 3,
    TTM_MSG_LINK_BFD_STATUS = 4,
    TTM_MSG_TLOC_ADD = 5,
    TTM_MSG_TLOC_DELETE = 6,
    TTM_MSG_LINK_ADD = 7,
    TTM_MSG_LINK_DELETE = 8,
    TTM_MSG_CTRL_DEVICE_ADD = 9,
    TTM_MSG_CTRL_DEVICE_DELETE = 10,
    TTM_MSG_DATA_DEVICE_ADD = 11,
    TTM_MSG_DATA_DEVICE_DELETE = 12,
    TTM_MSG_VPN_SEC_ADD = 13,
    TTM_MSG_VPN_SEC_DELETE = 14,
    TTM_MSG_PEER_SEC_ADD = 15,
    TTM_MSG_PEER_SEC_DELETE = 16,
    TTM_MSG_TRACKER_ADD = 17,
    TTM_MSG_TRACKER_DELETE = 18,
    TTM_MSG_TRACKER_STATUS = 19,
    TTM_MSG_MAX = 20,
};

enum e_ttm_af : uint32_t {
    TTM_AF_TLOC_IPV4 = 0,
    TTM_AF_TLOC_IPV6 = 1,
    TTM_AF_CTRL_DEVICE_IPV4 = 2,
    TTM_AF_CTRL_DEVICE_IPV6 = 3,
    TTM_AF_DATA_DEVICE_IPV4 = 4,
    TTM_AF_DATA_DEVICE_IPV6 = 5,
    TTM_AF_VPN_SEC = 6,
    TTM_AF_PEER_SEC = 7,
    TTM_AF_LINK = 8,
    TTM_AF_TRACKER = 9,
    TTM_AF_MAX = 10,
};

enum e_ttm_tloc_origin : uint8_t {
    TTM_TLOC_ORIGIN_INVALID = 0,
    TTM_TLOC_ORIGIN_LOCAL = 1,
    TTM_TLOC_ORIGIN_REMOTE = 2,
    TTM_TLOC_ORIGIN_FAR_REMOTE = 3,
};

enum e_ttm_tloc_status : uint32_t {
    TTM_TLOC_STATUS_INVALID = 0,
    TTM_TLOC_STATUS_UP = 1,
    TTM_TLOC_STATUS_DOWN = 2,
};

using t_ttm_client_id = uint32_t;  // e_lum_module, whatever number the sender gave

inline constexpr size_t TTM_PATHS_MAX = 8;
inline constexpr size_t TTM_LABELS_MAX = 2;
inline constexpr size_t TTM_GROUPS_MAX = 4;

struct t_ttm_register_msg {
    uint8_t announce;   // send me announcements
    uint8_t originate;  // I originate TLOCs
};

struct t_ttm_path_msg {
    t_tloc_index local_tloc_index;
    t_tloc_index border_tloc_index;
    uint16_t mtu;  // bytes
    uint8_t label_count;
    uint32_t labels[TTM_LABELS_MAX];
    uint32_t sla_bitmap;
};

struct t_lum_attr_sla {
    uint32_t loss;
    uint32_t latency;
    uint32_t jitter;
};

struct t_ttm_attr {
    uint64_t attr_flags;
    uint32_t preference;
    uint32_t weight;
    uint32_t site_id;
    uint32_t version;
    uint32_t gen_id;
    uint8_t tloc_stale;
    uint8_t carrier;
    uint8_t restrict1;
    uint8_t border;
    uint16_t group_count;
    uint32_t group[TTM_GROUPS_MAX];
    uint8_t lr_enabled;
    uint32_t lr_hold_time_down;
    t_lum_attr_sla sla;
    uint8_t tloc_installed;
};

struct t_ttm_tloc_msg {
    uint32_t epoch_id;
    t_tloc_id tloc;       // the IPv4 address in host order
    uint8_t tloc_origin;  // e_ttm_tloc_origin
    e_ttm_tloc_status tloc_status;
    t_tloc_index tloc_index;
    uint32_t tloc_label;
    uint8_t path_count;
    t_ttm_path_msg paths[TTM_PATHS_MAX];
    t_ttm_attr attr;
    uint8_t bfd_enabled;
    uint8_t lr_enabled;
    uint32_t lr_hold_time_down;
};

struct t_ttm_msg {
    e_ttm_msg_type msg_type;
    t_ttm_client_id client_id;
    e_ttm_af af;
    union {
        t_ttm_register_msg register_msg;  // TTM_MSG_REGISTER
        t_ttm_tloc_msg tloc_msg;          // TTM_MSG_TLOC_ADD, TTM_MSG_TLOC_DELETE
    } u;
};

// Sizes on the wire, in bytes.
inline constexpr size_t TTM_WIRE_HEADER_SIZE = 8;
inline constexpr size_t TTM_WIRE_REGISTER_SIZE = 12;  // header included, as in all below
inline constexpr size_t TTM_WIRE_TLOC_SIZE = 140;     // of a TLOC without paths
inline constexpr size_t TTM_WIRE_PATH_SIZE = 24;      // of one path
inline constexpr size_t TTM_WIRE_SIZE_MAX = TTM_WIRE_TLOC_SIZE + TTM_PATHS_MAX * TTM_WIRE_PATH_SIZE;
static_assert(TTM_WIRE_SIZE_MAX == 332);

// Writes the message to p_buf, which holds TTM_WIRE_SIZE_MAX bytes or more, and its length in bytes to
// *p_len. 22 for a type that isn't encoded, a family or address type that its type can't have, and counts out
// of range; the outputs are left alone then. A TLOC's `af` is not looked at: its address tells the family.
[[nodiscard]] int ttm_msg_encode(const t_ttm_msg *p_msg, uint8_t *p_buf, uint16_t *p_len);

// Reads a message of exactly len bytes. What the message doesn't carry is zero in the record. 74 for bytes
// that are no message, and the whole record is zero then: type 0 is no message's.
int ttm_msg_decode(t_ttm_msg *p_msg, const uint8_t *p_buf, size_t len);
