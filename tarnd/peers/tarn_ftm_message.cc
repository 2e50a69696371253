#include "tarnd/peers/tarn_ftm_message.h"

#include "common/msgq_util.h"
#include "common/strlcpy.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_policy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

static constexpr size_t body_max = 65535 - sizeof(msgq_hdr_t);

static uint8_t *put_32(uint8_t *p_buf, uint64_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        *p_buf++ = static_cast<uint8_t>(value >> shift);
    return p_buf;
}

uint8_t *tarn_ftm_put_fixed(uint8_t *p_buf, const t_tarn_ftm_fixed &fixed)
{
    *p_buf++ = fixed.type;
    *p_buf++ = fixed.kind;
    *p_buf++ = fixed.side;
    p_buf = put_32(p_buf, fixed.filter_id);
    lum_strlcpy(reinterpret_cast<char *>(p_buf), fixed.name, TARN_NAME_SIZE);
    return put_32(p_buf + TARN_NAME_SIZE, fixed.count);
}

uint8_t *tarn_ftm_put_vpn(uint8_t *p_buf, const t_tarn_vpn *p_vpn)
{
    return put_32(put_32(p_buf, p_vpn->key.min_vpn_id), p_vpn->key.max_vpn_id);
}

int tarn_ftm_put_intf(uint8_t **pp_buf, const t_tarn_intf *p_intf)
{
    size_t length = strnlen(p_intf->key.name, TARN_INTF_NAME_SIZE);
    if (length >= TARN_INTF_NAME_SIZE)
        return EINVAL;
    uint8_t *p_buf = put_32(*pp_buf, p_intf->vpn_id);
    *p_buf++ = p_intf->key.direction;
    memcpy(p_buf, p_intf->key.name, length + 1);
    *pp_buf = p_buf + TARN_INTF_NAME_SIZE;
    return 0;
}

uint16_t tarn_ftm_alloc_size(size_t count, size_t entry_size, size_t alloc_size)
{
    if (count > body_max || TARN_FTM_MSG_FIXED_SIZE + count * entry_size > body_max)
        return 0;
    return static_cast<uint16_t>(std::min(TARN_FTM_MSG_ALLOC_SIZE + count * alloc_size, body_max));
}
