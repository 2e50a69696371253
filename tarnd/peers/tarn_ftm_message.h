// The bytes of the messages to FTM, written one by one, big-endian and without padding. The layout stands in
// tarn_ftm.h. A buffer is as large as the caller's count of entries asks for; it comes zeroed, so that the
// name's field has no stray bytes behind its terminator.
#pragma once

#include "tarnd/peers/tarn_ftm.h"

#include <cstddef>
#include <cstdint>

// The fixed part. kind and side: filter type and direction of a VPN filter, family and 0 of an interface
// filter. The name is cut to 127 characters.
struct t_tarn_ftm_fixed {
    e_tarn_msg_type type;
    uint8_t kind;
    uint8_t side;
    uint32_t filter_id;
    const char *name;
    uint32_t count;  // entries
};

// Both give the place behind what they wrote.
uint8_t *tarn_ftm_put_fixed(uint8_t *p_buf, const t_tarn_ftm_fixed &fixed);
uint8_t *tarn_ftm_put_vpn(uint8_t *p_buf, const t_tarn_vpn *p_vpn);

// 22 for an interface name of more than 32 characters; nothing is written then.
int tarn_ftm_put_intf(uint8_t **pp_buf, const t_tarn_intf *p_intf);

// Bytes to allocate for a message of `count` entries of entry_size bytes, at alloc_size bytes each, or 0 when
// it would be larger than the queue's messages can be.
uint16_t tarn_ftm_alloc_size(size_t count, size_t entry_size, size_t alloc_size);
