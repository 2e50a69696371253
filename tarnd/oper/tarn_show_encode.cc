// What rows show: names from the configuration, numbers from the loaded program.
#include "common/strlcpy.h"
#include "fp_api/fp_scaling.h"
#include "fp_api/fp_tables.h"
#include "generated/lumora_schema.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/oper/tarn_oper_private.h"
#include "tarnd/oper/tarn_show.h"
#include "tarnd/oper/tarn_show_private.h"

#include <cstdio>
#include <cstring>

// Behind the texts of a row until its reply is sent.
static char str[TARN_NAME_SIZE];
static char g_policer_name[TARN_NAME_SIZE];

// ---- Counters ----

static void read_counter(int filter_id, const char *name, int64_t *p_pkts, int64_t *p_bytes)
{
    *p_pkts = 0;
    *p_bytes = 0;
    const void *p_program = tarn_oper_program(filter_id);
    if (p_program != nullptr)
        tarn_program_get_counter(p_program, name, p_pkts, p_bytes);
}

void tarn_policy_counter(const t_tarn_policy_vpn_list *p_vpn_list, const char *name, int64_t *p_pkts,
                         int64_t *p_bytes)
{
    read_counter(p_vpn_list->filter_id, name, p_pkts, p_bytes);
}

void tarn_acl_counter(const t_tarn_access_list *p_access_list, const char *name, int64_t *p_pkts,
                      int64_t *p_bytes)
{
    read_counter(p_access_list->filter_id, name, p_pkts, p_bytes);
}

// ---- Leaves ----

static confd_tag_value_t leaf_of(uint32_t tag, confd_vtype type)
{
    confd_tag_value_t leaf = {};
    leaf.tag.tag = tag;
    leaf.v.type = type;
    return leaf;
}

static confd_tag_value_t text_leaf(uint32_t tag, char *text)
{
    confd_tag_value_t leaf = leaf_of(tag, C_BUF);
    leaf.v.val.buf = {static_cast<unsigned>(strlen(text)), reinterpret_cast<unsigned char *>(text)};
    return leaf;
}

static confd_tag_value_t number_leaf(uint32_t tag, int64_t number)
{
    confd_tag_value_t leaf = leaf_of(tag, C_UINT64);
    leaf.v.val.u64 = static_cast<uint64_t>(number);
    return leaf;
}

static confd_tag_value_t gauge_leaf(uint32_t tag, uint32_t number)
{
    confd_tag_value_t leaf = leaf_of(tag, C_UINT32);
    leaf.v.val.u32 = number;
    return leaf;
}

static int encode_name(uint32_t tag, const char *name, confd_tag_value_t *values)
{
    lum_strlcpy(str, name, sizeof(str));
    values[0] = text_leaf(tag, str);
    return 1;
}

// What is not loaded has no numbers.
static int encode_counter(int filter_id, const char *name, confd_tag_value_t *values)
{
    int count = encode_name(LUMORA_TAG_COUNTER_NAME, name, values);
    if (tarn_oper_program(filter_id) == nullptr)
        return count;
    int64_t pkts, bytes;
    read_counter(filter_id, name, &pkts, &bytes);
    values[count++] = number_leaf(LUMORA_TAG_PACKETS, pkts);
    values[count++] = number_leaf(LUMORA_TAG_BYTES, bytes);
    return count;
}

// A program knows its policers by the row's key.
static int encode_policer(int filter_id, const t_tarn_policer_key &key, confd_tag_value_t *values)
{
    char text[sizeof(key.name) + 16];
    snprintf(text, sizeof(text), "%d.%s", key.sequence_id, key.name);
    lum_strlcpy(g_policer_name, text, sizeof(g_policer_name));
    values[0] = text_leaf(LUMORA_TAG_POLICER_NAME, g_policer_name);
    const void *p_program = tarn_oper_program(filter_id);
    if (p_program == nullptr)
        return 1;
    int64_t pkts, bytes;
    tarn_program_get_policer(p_program, g_policer_name, &pkts, &bytes);
    values[1] = number_leaf(LUMORA_TAG_OOB_PACKETS, pkts);
    values[2] = number_leaf(LUMORA_TAG_OOB_BYTES, bytes);
    return 3;
}

// ---- Policies ----

int tarn_policy_encode(const t_tarn_show_place &, const void *p_row, confd_tag_value_t *values)
{
    return encode_name(LUMORA_TAG_NAME, static_cast<const t_tarn_policy *>(p_row)->key.name, values);
}

int tarn_policy_vpnlist_encode(const t_tarn_show_place &, const void *p_row, confd_tag_value_t *values)
{
    return encode_name(LUMORA_TAG_NAME, static_cast<const t_tarn_policy_vpn_list *>(p_row)->key.name, values);
}

int tarn_policy_counter_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values)
{
    return encode_counter(place.p_vpn_list->filter_id,
                          static_cast<const t_tarn_config_counter_ref *>(p_row)->name, values);
}

int tarn_policy_policer_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values)
{
    return encode_policer(place.p_vpn_list->filter_id, static_cast<const t_tarn_policer_config *>(p_row)->key,
                          values);
}

// ---- Access lists ----

int tarn_acl_encode(const t_tarn_show_place &, const void *p_row, confd_tag_value_t *values)
{
    return encode_name(LUMORA_TAG_NAME, static_cast<const t_tarn_access_list *>(p_row)->key.name, values);
}

int tarn_acl_counter_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values)
{
    return encode_counter(place.p_access_list->filter_id,
                          static_cast<const t_tarn_config_counter_ref *>(p_row)->name, values);
}

int tarn_acl_policer_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values)
{
    return encode_policer(place.p_access_list->filter_id,
                          static_cast<const t_tarn_policer_config *>(p_row)->key, values);
}

// A name of full length has no terminator.
int tarn_acl_interface_encode(const t_tarn_show_place &, const void *p_row, confd_tag_value_t *values)
{
    const t_tarn_intf_key &key = static_cast<const t_tarn_intf *>(p_row)->key;
    snprintf(str, sizeof(str), "%.*s", static_cast<int>(sizeof(key.name)), key.name);
    values[0] = text_leaf(LUMORA_TAG_INTERFACE_NAME, str);
    values[1] = leaf_of(LUMORA_TAG_INTERFACE_DIRECTION, C_ENUM_VALUE);
    values[1].v.val.enumvalue = static_cast<int32_t>(tarn_filter_direction_to_yang_direction(key.direction));
    return 2;
}

// ---- Filter memory ----

int tarn_filter_memory_usage_encode(confd_tag_value_t *values)
{
    uint32_t filters = 0;
    uint32_t blocks = 0;
    for (int i = 0; i < g_fp_scaling.num_filters; i++) {
        const t_tarn_filter &filter = g_fp_filter[i];
        if (filter.record_valid == 0 && !filter.activity)
            continue;
        filters++;
        blocks += filter.num_hw_mem_blocks;
    }
    values[0] = gauge_leaf(LUMORA_TAG_FILTERS_IN_USE, filters);
    values[1] = gauge_leaf(LUMORA_TAG_BLOCKS_IN_USE, blocks);
    values[2] = gauge_leaf(LUMORA_TAG_FILTERS_TOTAL, static_cast<uint32_t>(g_fp_scaling.num_filters));
    values[3] = gauge_leaf(LUMORA_TAG_BLOCKS_TOTAL, static_cast<uint32_t>(g_fp_scaling.num_filter_blocks));
    return 4;
}
