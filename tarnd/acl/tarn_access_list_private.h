// Counted records in trees: one for each distinct key, which goes with its last use.
#pragma once

#include "platform/avl/avl.h"

#include <cstdlib>

// Raises the count of the record that equals `wanted`, or adds a copy of it with count 1; wanted.ref_count
// is 0. False, with nothing counted, without memory.
template <typename t_ctx>
bool tarn_access_list_count_up(avl_tree_t *p_tree, const t_ctx &wanted)
{
    auto *p_ctx = static_cast<t_ctx *>(avl_find(p_tree, &wanted));
    if (p_ctx == nullptr) {
        p_ctx = static_cast<t_ctx *>(calloc(1, sizeof(t_ctx)));
        if (p_ctx == nullptr)
            return false;
        *p_ctx = wanted;
        (void)avl_insert(p_tree, p_ctx);  // not there, as looked up
    }
    p_ctx->ref_count++;
    return true;
}

// Lowers the count of the record that equals `wanted`, if there is one; at 0 the record goes.
template <typename t_ctx>
void tarn_access_list_count_down(avl_tree_t *p_tree, const t_ctx &wanted)
{
    auto *p_ctx = static_cast<t_ctx *>(avl_find(p_tree, &wanted));
    if (p_ctx == nullptr || --p_ctx->ref_count > 0)
        return;
    avl_remove(p_tree, p_ctx);
    free(p_ctx);
}
