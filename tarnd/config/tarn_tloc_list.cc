#include "tarnd/config/tarn_tloc_list.h"

#include "common/lum_assert.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

int tarn_tloc_list_cmp(const void *p_key, const void *p_object)
{
    const auto &key = *static_cast<const t_tarn_tloc_list *>(p_key);
    const auto &other = *static_cast<const t_tarn_tloc_list *>(p_object);
    if (key.seq_num != other.seq_num)
        return ip_util_order(key.seq_num, other.seq_num);
    if (key.key.pol_type != other.key.pol_type)
        return ip_util_order<uint32_t>(key.key.pol_type, other.key.pol_type);
    int order = strncmp(key.key.pol_name, other.key.pol_name, sizeof(key.key.pol_name));
    return order != 0 ? order : strncmp(key.key.name, other.key.name, sizeof(key.key.name));
}

int tarn_tloc_elem_cmp(const void *p_key, const void *p_object)
{
    return ip_util_order(static_cast<const t_tarn_tloc_elem *>(p_key)->list_num,
                         static_cast<const t_tarn_tloc_elem *>(p_object)->list_num);
}

t_tarn_tloc_list *tarn_tloc_list_find(const t_tarn *p_tarn, const t_tarn_vpn_list_key2 *p_key,
                                      uint16_t seq_num)
{
    t_tarn_tloc_list wanted = {.tloc_db = {}, .key = *p_key, .seq_num = seq_num, .avl_node = {}};
    return static_cast<t_tarn_tloc_list *>(avl_find(&p_tarn->tloc_list_db, &wanted));
}

t_tarn_tloc_list *tarn_tloc_list_find_or_make(t_tarn *p_tarn, const t_tarn_vpn_list_key2 *p_key,
                                              uint16_t seq_num)
{
    t_tarn_tloc_list *p_list = tarn_tloc_list_find(p_tarn, p_key, seq_num);
    if (p_list != nullptr)
        return p_list;
    p_list = static_cast<t_tarn_tloc_list *>(calloc(1, sizeof(t_tarn_tloc_list)));
    LUM_ASSERT(p_list, "p_tloc_list");
    p_list->key = *p_key;
    p_list->seq_num = seq_num;
    avl_create(&p_list->tloc_db, tarn_tloc_elem_cmp, sizeof(t_tarn_tloc_elem),
               offsetof(t_tarn_tloc_elem, avl_node));
    int status = avl_insert(&p_tarn->tloc_list_db, p_list);
    LUM_ASSERT(status == 0, "status == 0");
    return p_list;
}

static void free_list(void *p_object)
{
    auto *p_list = static_cast<t_tarn_tloc_list *>(p_object);
    avl_destroy_nodes(&p_list->tloc_db, free);
    avl_destroy(&p_list->tloc_db);
    free(p_list);
}

void tarn_tloc_list_free(t_tarn *p_tarn, t_tarn_tloc_list *p_list)
{
    avl_remove(&p_tarn->tloc_list_db, p_list);
    free_list(p_list);
}

t_tarn_tloc_elem *tarn_tloc_list_elem_find(const t_tarn_tloc_list *p_list, uint32_t list_num)
{
    t_tarn_tloc_elem wanted = {};
    wanted.list_num = list_num;
    return static_cast<t_tarn_tloc_elem *>(avl_find(&p_list->tloc_db, &wanted));
}

int tarn_tloc_list_elem_add(t_tarn_tloc_list *p_list, const t_tarn_tloc_elem *p_elem)
{
    if (tarn_tloc_list_elem_find(p_list, p_elem->list_num) != nullptr)
        return EEXIST;
    auto *p_copy = static_cast<t_tarn_tloc_elem *>(calloc(1, sizeof(t_tarn_tloc_elem)));
    if (p_copy == nullptr)
        return ENOMEM;
    *p_copy = *p_elem;
    p_copy->avl_node = {};
    return avl_insert(&p_list->tloc_db, p_copy);
}

int tarn_tloc_list_elem_delete(t_tarn *p_tarn, t_tarn_tloc_list *p_list, uint32_t list_num)
{
    t_tarn_tloc_elem *p_elem = tarn_tloc_list_elem_find(p_list, list_num);
    if (p_elem != nullptr) {
        avl_remove(&p_list->tloc_db, p_elem);
        free(p_elem);
    }
    if (avl_numnodes(&p_list->tloc_db) == 0)
        tarn_tloc_list_free(p_tarn, p_list);
    return p_elem != nullptr ? 0 : ENOENT;
}

void tarn_config_tloc_list_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->tloc_list_db, free_list);
    avl_destroy(&p_tarn->tloc_list_db);
}
