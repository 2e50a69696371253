// Key order of the entries of lists.

#include "mgmtd/store/mgmt_tree_private.h"
#include "mgmtd/store/mgmt_value_private.h"

#include <algorithm>
#include <numeric>

// The values that order a node: keys of an entry, value of an element.
static void order_keys(const t_schema_node *p_list, const lyd_node *p_node,
                       std::vector<confd_value_t> *p_keys)
{
    if (p_list->kind == SCHEMA_KIND_LEAF_LIST) {
        p_keys->push_back(mgmt_value_of(p_list, p_node));
        return;
    }
    const lyd_node *p_key = lyd_child(p_node);
    for (const t_schema_node *p_schema : p_list->keys) {
        p_keys->push_back(mgmt_value_of(p_schema, p_key));
        p_key = p_key->next;
    }
}

static bool keys_less(const confd_value_t *p_left, const confd_value_t *p_right, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        int order = mgmt_value_compare(p_left[i], p_right[i]);
        if (order != 0)
            return order < 0;
    }
    return false;
}

std::vector<uint32_t> mgmt_key_order(const t_schema_node *p_list, std::span<const lyd_node *const> nodes)
{
    std::vector<uint32_t> order(nodes.size());
    std::iota(order.begin(), order.end(), 0);
    size_t key_count = p_list->kind == SCHEMA_KIND_LEAF_LIST ? 1 : p_list->keys.size();
    if (nodes.size() < 2 || key_count == 0 || lysc_is_userordered(p_list->yang))
        return order;
    std::vector<confd_value_t> keys;
    keys.reserve(nodes.size() * key_count);
    for (const lyd_node *p_node : nodes)
        order_keys(p_list, p_node, &keys);
    auto less = [&](uint32_t left, uint32_t right) {
        return keys_less(&keys[left * key_count], &keys[right * key_count], key_count);
    };
    // Trees that were read from disk have their entries in order.
    if (!std::is_sorted(order.begin(), order.end(), less))
        std::stable_sort(order.begin(), order.end(), less);
    return order;
}

std::vector<const lyd_node *> mgmt_sorted_instances(const lyd_node *p_first_of_list,
                                                    const t_schema_node *p_list)
{
    std::vector<const lyd_node *> nodes;
    // Instances of one list stand together.
    for (const lyd_node *p_node = p_first_of_list; p_node != nullptr && p_node->schema == p_list->yang;
         p_node = p_node->next)
        nodes.push_back(p_node);
    std::vector<uint32_t> order = mgmt_key_order(p_list, nodes);
    std::vector<const lyd_node *> sorted;
    sorted.reserve(nodes.size());
    for (uint32_t position : order)
        sorted.push_back(nodes[position]);
    return sorted;
}
