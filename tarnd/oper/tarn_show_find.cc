// Keys, and rows by their keys.
#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "lconfd/lconfd_util.h"
#include "tarnd/oper/tarn_show_private.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

// ---- Keys ----

void tarn_show_copy_text(const confd_value_t &value, char *p_text, size_t size)
{
    size_t length = std::min<size_t>(value.val.buf.size, size - 1);
    memcpy(p_text, value.val.buf.ptr, length);
    p_text[length] = '\0';
}

void tarn_show_trace_path(const t_tarn_show_place &place)
{
    char path[128] = "";
    confd_pp_kpath(path, sizeof(path), place.p_keypath);
    TARN_TRACE(TARN_DEBUG_CONFIG, "%s", path);
}

bool tarn_show_row_name(const t_tarn_show_place &place, uint32_t tag, t_tarn_show_name &name)
{
    tarn_show_trace_path(place);
    confd_value_t key;
    return tarn_show_last_name(lconfd_keypath_get_keys(place.p_keypath, &key, 1, tag), name);
}

bool tarn_show_last_name(const confd_value_t *keys, t_tarn_show_name &name)
{
    if (keys == nullptr)
        return false;
    LUM_ASSERT(keys->type == C_BUF, "(keys)->type == C_BUF");
    tarn_show_copy_text(*keys, name, sizeof(name));
    return true;
}

// ---- Finders in a tree ----

static int found(void *p_row, void **pp_row)
{
    if (p_row == nullptr)
        return ENOENT;
    *pp_row = p_row;
    return 0;
}

int tarn_show_tree_exact(const avl_tree_t &tree, const void *p_wanted, void **pp_row)
{
    return found(avl_find(&tree, p_wanted), pp_row);
}

int tarn_show_tree_first(const avl_tree_t &tree, long next, void **pp_row)
{
    return next == -1 ? found(avl_first(&tree), pp_row) : ENOENT;
}

int tarn_show_tree_next(const avl_tree_t &tree, const void *p_wanted, confd_find_next_type type,
                        void **pp_row)
{
    if (type == CONFD_FIND_SAME_OR_NEXT && tarn_show_tree_exact(tree, p_wanted, pp_row) == 0)
        return 0;
    return found(avl_find_next(&tree, p_wanted), pp_row);
}

// ---- Counters ----

int tarn_show_counter_exact(const t_tarn_show_place &place, const avl_tree_t &tree, void **pp_row)
{
    t_tarn_config_counter_ref wanted = {};
    if (!tarn_show_row_name(place, place.p_list->inner_tag, wanted.name))
        return EBADMSG;
    return tarn_show_tree_exact(tree, &wanted, pp_row);
}

int tarn_show_counter_next(const avl_tree_t &tree, confd_find_next_type type, const confd_value_t *keys,
                           int n, void **pp_row)
{
    if (n == 0)
        return tarn_show_tree_first(tree, -1, pp_row);
    t_tarn_config_counter_ref wanted = {};
    if (!tarn_show_last_name(keys, wanted.name))
        return EBADMSG;
    return tarn_show_tree_next(tree, &wanted, type, pp_row);
}

// ---- Policers ----

int tarn_show_policer_find(const avl_tree_t &tree, const t_tarn_policer_key &owner, const char *text,
                           std::optional<confd_find_next_type> type, void **pp_row)
{
    t_tarn_policer_config wanted = {};
    wanted.key = owner;
    if (sscanf(text, "%d.%127s", &wanted.key.sequence_id, wanted.key.name) != 2)
        return ENOENT;
    return type ? tarn_show_tree_next(tree, &wanted, *type, pp_row)
                : tarn_show_tree_exact(tree, &wanted, pp_row);
}
