// TLOC preference lists: which transport locators a sequence of a data policy may use.
//
// A list is an object of its own, known by VPN list, policy and sequence. Its elements arrive before the
// sequence; the sequence's action picks up the first 16 of them when it is added or rebuilt.
#pragma once

#include "common/ip_util.h"
#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policy.h"

#include <cstddef>
#include <cstdint>

struct t_tarn_tloc_elem {
    uint32_t list_num;  // key
    t_tloc_id tloc;
    uint32_t vpn_label;
    uint32_t preference;
    avl_node_t avl_node;
};

struct t_tarn_tloc_list {
    avl_tree_t tloc_db;  // t_tarn_tloc_elem; first: the list's address is the tree's
    t_tarn_vpn_list_key2 key;
    uint16_t seq_num;
    avl_node_t avl_node;
};
static_assert(offsetof(t_tarn_tloc_list, tloc_db) == 0);

int tarn_tloc_list_cmp(const void *p_key, const void *p_object);  // seq_num, pol_type, pol_name, name
int tarn_tloc_elem_cmp(const void *p_key, const void *p_object);  // list_num

// The sequence's list, or null. The second makes an empty one if there is none; no memory is an assertion.
t_tarn_tloc_list *tarn_tloc_list_find(const t_tarn *p_tarn, const t_tarn_vpn_list_key2 *p_key,
                                      uint16_t seq_num);
t_tarn_tloc_list *tarn_tloc_list_find_or_make(t_tarn *p_tarn, const t_tarn_vpn_list_key2 *p_key,
                                              uint16_t seq_num);

// Takes the list out of the store and frees it with its elements.
void tarn_tloc_list_free(t_tarn *p_tarn, t_tarn_tloc_list *p_list);

// Elements: 17 when list_num is there, 2 when it isn't, 12. Deletion takes along a list that is empty then,
// also one that was empty before.
int tarn_tloc_list_elem_add(t_tarn_tloc_list *p_list, const t_tarn_tloc_elem *p_elem);
t_tarn_tloc_elem *tarn_tloc_list_elem_find(const t_tarn_tloc_list *p_list, uint32_t list_num);
int tarn_tloc_list_elem_delete(t_tarn *p_tarn, t_tarn_tloc_list *p_list, uint32_t list_num);

void tarn_config_tloc_list_destroy(t_tarn *p_tarn);
