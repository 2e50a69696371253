#include "tarnd/zone/tarn_zbf.h"

#include "common/ip_util.h"
#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "tarnd/core/tarn.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"
#include "tarnd/zone/tarn_zbf_private.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

// ---- Orders ----

static int name_order(const char *name, const char *other)
{
    return ip_util_order(strncmp(name, other, TARN_ZONE_NAME_SIZE), 0);
}

int tarn_zone_key_cmp(const void *p_key, const void *p_object)
{
    return name_order(static_cast<const t_tarn_zone *>(p_key)->key.name,
                      static_cast<const t_tarn_zone *>(p_object)->key.name);
}

int tarn_zone_pair_key_cmp(const void *p_key, const void *p_object)
{
    return name_order(static_cast<const t_tarn_zone_pair *>(p_key)->zone_pair_name,
                      static_cast<const t_tarn_zone_pair *>(p_object)->zone_pair_name);
}

int tarn_zone_vpn_id_key_cmp(const void *p_key, const void *p_object)
{
    uint32_t difference = static_cast<const t_tarn_zone_vpn *>(p_key)->key.vpn_id -
                          static_cast<const t_tarn_zone_vpn *>(p_object)->key.vpn_id;
    return ip_util_order(static_cast<int32_t>(difference), 0);
}

// ---- Zones ----

t_tarn_zone *tarn_zone_find(const t_tarn *p_tarn, const char *zone_name)
{
    t_tarn_zone wanted = {};
    lum_strlcpy(wanted.key.name, zone_name, sizeof(wanted.key.name));
    return static_cast<t_tarn_zone *>(avl_find(&p_tarn->zone_db, &wanted));
}

int tarn_config_zone_add(t_tarn *p_tarn, const char *zone_name)
{
    if (p_tarn == nullptr || zone_name == nullptr)
        return EBADMSG;
    if (tarn_zone_find(p_tarn, zone_name) != nullptr)
        return EEXIST;
    auto *p_zone = static_cast<t_tarn_zone *>(calloc(1, sizeof(t_tarn_zone)));
    if (p_zone == nullptr)
        return ENOMEM;
    lum_strlcpy(p_zone->key.name, zone_name, sizeof(p_zone->key.name));
    p_zone->id = ++p_tarn->zbf_uid;
    avl_create(&p_zone->vpn_id_db, tarn_zone_vpn_id_key_cmp, sizeof(t_tarn_zone_vpn),
               offsetof(t_tarn_zone_vpn, avl_node));
    (void)avl_insert(&p_tarn->zone_db, p_zone);  // not there, as looked up
    fp_enable_zbf();
    return 0;
}

static uint16_t vpn_in_packets(uint32_t vpn_id)
{
    return static_cast<uint16_t>(vpn_id);
}

static void delete_vpns(t_tarn_zone *p_zone)
{
    while (void *p_first = avl_first(&p_zone->vpn_id_db)) {
        uint32_t vpn_id = static_cast<t_tarn_zone_vpn *>(p_first)->key.vpn_id;
        int status = fp_delete_vpn_zone_hash_record(vpn_in_packets(vpn_id), p_zone->id);
        if (status != 0)
            TARN_LOG("failed to remove vpn_id %d while removing zone %s err(%d)", static_cast<int>(vpn_id),
                     p_zone->key.name, status);
        avl_remove(&p_zone->vpn_id_db, p_first);
        free(p_first);
    }
}

int tarn_config_zone_delete(t_tarn *p_tarn, const char *zone_name)
{
    if (p_tarn == nullptr || zone_name == nullptr)
        return EBADMSG;
    t_tarn_zone *p_zone = tarn_zone_find(p_tarn, zone_name);
    if (p_zone == nullptr)
        return ENOENT;
    delete_vpns(p_zone);
    avl_destroy(&p_zone->vpn_id_db);
    avl_remove(&p_tarn->zone_db, p_zone);
    free(p_zone);
    if (avl_numnodes(&p_tarn->zone_db) == 0)
        fp_disable_zbf();
    return 0;
}

// ---- VPNs of a zone ----

static t_tarn_zone_vpn *find_vpn(const t_tarn_zone *p_zone, uint32_t vpn_id)
{
    t_tarn_zone_vpn wanted = {};
    wanted.key.vpn_id = vpn_id;
    return static_cast<t_tarn_zone_vpn *>(avl_find(&p_zone->vpn_id_db, &wanted));
}

int tarn_config_zone_vpn_add(t_tarn *p_tarn, const char *zone_name, uint32_t vpn_id)
{
    if (p_tarn == nullptr || zone_name == nullptr)
        return EBADMSG;
    t_tarn_zone *p_zone = tarn_zone_find(p_tarn, zone_name);
    if (p_zone == nullptr)
        return ENOENT;
    if (find_vpn(p_zone, vpn_id) != nullptr)
        return EEXIST;
    auto *p_vpn = static_cast<t_tarn_zone_vpn *>(calloc(1, sizeof(t_tarn_zone_vpn)));
    if (p_vpn == nullptr)
        return ENOMEM;
    p_vpn->key.vpn_id = vpn_id;
    (void)avl_insert(&p_zone->vpn_id_db, p_vpn);  // not there, as looked up
    if (fp_create_vpn_zone_hash_record(vpn_in_packets(vpn_id), p_zone->id) == nullptr)
        TARN_LOG("Failed to create fp entry for vpn_id %d and zone id %d zone %s\n", static_cast<int>(vpn_id),
                 p_zone->id, p_zone->key.name);
    else
        TARN_TRACE(TARN_DEBUG_CONFIG, "fp entry created for vpn_id %d and zone id %d zone %s\n",
                   static_cast<int>(vpn_id), p_zone->id, p_zone->key.name);
    return 0;
}

int tarn_config_zone_vpn_delete(t_tarn *p_tarn, const char *zone_name, uint32_t vpn_id)
{
    if (p_tarn == nullptr || zone_name == nullptr)
        return EBADMSG;
    t_tarn_zone *p_zone = tarn_zone_find(p_tarn, zone_name);
    t_tarn_zone_vpn *p_vpn = p_zone != nullptr ? find_vpn(p_zone, vpn_id) : nullptr;
    if (p_vpn == nullptr)
        return ENOENT;
    int status = fp_delete_vpn_zone_hash_record(vpn_in_packets(vpn_id), p_zone->id);
    if (status != 0)
        TARN_LOG("Failed to remove vpn_id from fp %d err(%d)", static_cast<int>(vpn_id), status);
    avl_remove(&p_zone->vpn_id_db, p_vpn);
    free(p_vpn);
    return 0;
}

// ---- Pairs of zones ----

static t_tarn_zone_pair *find_pair(const t_tarn *p_tarn, const char *zone_pair_name)
{
    t_tarn_zone_pair wanted = {};
    lum_strlcpy(wanted.zone_pair_name, zone_pair_name, sizeof(wanted.zone_pair_name));
    return static_cast<t_tarn_zone_pair *>(avl_find(&p_tarn->zone_pair_db, &wanted));
}

// Null leaves a name as it is.
static void set_names(t_tarn_zone_pair *p_pair, const char *src_zone, const char *dst_zone,
                      const char *zb_policy_name)
{
    if (src_zone != nullptr)
        lum_strlcpy(p_pair->src_zone, src_zone, sizeof(p_pair->src_zone));
    if (dst_zone != nullptr)
        lum_strlcpy(p_pair->dst_zone, dst_zone, sizeof(p_pair->dst_zone));
    if (zb_policy_name != nullptr)
        lum_strlcpy(p_pair->zb_policy_name, zb_policy_name, sizeof(p_pair->zb_policy_name));
}

int tarn_config_zone_pair_create(t_tarn *p_tarn, const char *zone_pair_name, const char *src_zone,
                                 const char *dst_zone, const char *zb_policy_name, uint32_t pair_id)
{
    if (p_tarn == nullptr || zone_pair_name == nullptr || src_zone == nullptr || dst_zone == nullptr ||
        zb_policy_name == nullptr || pair_id == 0)
        return EBADMSG;
    if (find_pair(p_tarn, zone_pair_name) != nullptr)
        return EEXIST;
    auto *p_pair = static_cast<t_tarn_zone_pair *>(calloc(1, sizeof(t_tarn_zone_pair)));
    if (p_pair == nullptr)
        return ENOMEM;
    lum_strlcpy(p_pair->zone_pair_name, zone_pair_name, sizeof(p_pair->zone_pair_name));
    set_names(p_pair, src_zone, dst_zone, zb_policy_name);
    p_pair->zb_pair_id = pair_id;
    (void)avl_insert(&p_tarn->zone_pair_db, p_pair);  // not there, as looked up
    return 0;
}

int tarn_config_zone_pair_modify(t_tarn *p_tarn, const char *zone_pair_name, const char *src_zone,
                                 const char *dst_zone, const char *zb_policy_name)
{
    if (p_tarn == nullptr || zone_pair_name == nullptr)
        return EBADMSG;
    t_tarn_zone_pair *p_pair = find_pair(p_tarn, zone_pair_name);
    if (p_pair == nullptr)
        return ENOENT;
    set_names(p_pair, src_zone, dst_zone, zb_policy_name);
    return 0;
}

int tarn_config_zone_pair_delete(t_tarn *p_tarn, const char *zone_pair_name)
{
    if (p_tarn == nullptr || zone_pair_name == nullptr)
        return EBADMSG;
    t_tarn_zone_pair *p_pair = find_pair(p_tarn, zone_pair_name);
    if (p_pair == nullptr)
        return ENOENT;
    avl_remove(&p_tarn->zone_pair_db, p_pair);
    free(p_pair);
    return 0;
}

// ---- Teardown ----

static void delete_zones(t_tarn *p_tarn)
{
    while (void *p_zone = avl_first(&p_tarn->zone_db))
        tarn_config_zone_delete(p_tarn, static_cast<t_tarn_zone *>(p_zone)->key.name);
    avl_destroy(&p_tarn->zone_db);
}

static void delete_pairs(t_tarn *p_tarn)
{
    while (void *p_pair = avl_first(&p_tarn->zone_pair_db))
        tarn_config_zone_pair_delete(p_tarn, static_cast<t_tarn_zone_pair *>(p_pair)->zone_pair_name);
    avl_destroy(&p_tarn->zone_pair_db);
}

int tarn_config_zbf_destroy(t_tarn *p_tarn)
{
    TARN_TRACE(TARN_DEBUG_CONFIG, "Destroying entire zbfw config");
    fp_disable_zbf();
    TARN_TRACE(TARN_DEBUG_CONFIG, "ZBFW removing all zones from tarn");
    delete_zones(p_tarn);
    TARN_TRACE(TARN_DEBUG_CONFIG, "ZBFW destroying mappings from fp");
    fp_destroy_zbf_mappings();
    TARN_TRACE(TARN_DEBUG_CONFIG, "ZBFW removing all zones-pairs from tarn");
    delete_pairs(p_tarn);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Done destroying entire zbfw config");
    return 0;
}
