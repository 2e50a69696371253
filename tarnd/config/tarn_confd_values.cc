// Keys and values of a change, for the parsers.
#include "tarnd/config/tarn_confd_private.h"

#include "common/strlcpy.h"
#include "fp_api/fp_tables.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

t_tarn *tarn_confd_tarn(const t_lconfd_sub_entry *p_lconfd_sub)
{
    return static_cast<t_tarn *>(p_lconfd_sub->lconfd_ctx_p->module_data.opaque_p);
}

t_tarn_confd_name::t_tarn_confd_name(const confd_value_t *p_value)
{
    size_t size = std::min(size_t{p_value->val.buf.size}, sizeof(text) - 1);
    if (size > 0)
        memcpy(text, p_value->val.buf.ptr, size);
}

std::span<const confd_tag_value_t> tarn_confd_values(int num_values, const confd_tag_value_t *p_val)
{
    return {p_val, num_values > 0 ? static_cast<size_t>(num_values) : 0};
}

std::span<const confd_value_t> tarn_confd_list(const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_LIST);
    return {p_value->val.list.ptr, p_value->val.list.size};
}

bool tarn_confd_scope::step(const confd_tag_value_t &value)
{
    if (value.v.type == C_XMLBEGIN) {
        LUM_ASSERT(depth < MAX_DEPTH, "depth < MAX_DEPTH");
        tags[depth++] = value.tag.tag;
        return true;
    }
    if (value.v.type != C_XMLEND)
        return false;
    LUM_ASSERT(depth > 0 && tags[depth - 1] == value.tag.tag, "tags[depth - 1] == value.tag.tag");
    depth--;
    return true;
}

bool tarn_confd_scope::inside(uint32_t tag) const
{
    return std::find(tags, tags + depth, tag) != tags + depth;
}

t_ipaddr tarn_confd_ipv4(const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_IPV4);
    t_ipaddr address = {};
    IPADDR_SET_V4(&address, ntohl(p_value->val.ip.s_addr));
    return address;
}

t_ipaddr tarn_confd_tloc_ipv4(const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_IPV4);
    t_ipaddr address = {};
    IPADDR_SET_V4(&address, p_value->val.ip.s_addr);
    return address;
}

void tarn_confd_count_policy_change()
{
    g_fp_global_ctrl->fp_cft_policy_gen_num++;
}
