// One change as keys and tag values: out of the framework's difference, into the daemon's callback.
#include "lconfd/lconfd_private.h"

#include <cstdlib>
#include <vector>

static constexpr size_t path_text_size = 128;

void lconfd_free_confd_tag_value(int count, confd_tag_value_t *values)
{
    for (int i = 0; i < count; i++)
        confd_free_value(&values[i].v);
    free(values);
}

const char *lconfd_subs_path_node_type(const char *path)
{
    const confd_cs_node *node = confd_cs_node_cd(nullptr, "/%s", path);
    LUM_ASSERT(node != nullptr, "node != NULL");
    int flags = node->info.flags;
    if ((flags & CS_NODE_IS_LIST) != 0)
        return "list";
    if ((flags & CS_NODE_IS_CONTAINER) != 0)
        return "container";
    if ((flags & CS_NODE_IS_CASE) != 0)
        return "case";
    return (flags & CS_NODE_IS_LEAF_LIST) != 0 ? "leaf-list" : "leaf";
}

// ---- Values ----

namespace {

// What a change says: all of it, owned, and what the daemon gets of it.
struct t_sub_values {
    ~t_sub_values()
    {
        lconfd_free_confd_tag_value(count, p_all);
    }

    confd_tag_value_t *p_all = nullptr;
    int count = 0;
    std::vector<confd_tag_value_t> given = {};
};

}  // namespace

static bool is_bracket(const confd_tag_value_t &value)
{
    return value.v.type == C_XMLBEGIN || value.v.type == C_XMLEND;
}

int lconfd_sub_filter_modifications(const confd_tag_value_t *src_p, confd_tag_value_t *dst_p, int count,
                                    bool del_phase)
{
    int kept = 0;
    bool is_real = false;
    for (int i = 0; i < count; i++) {
        bool is_deleted = src_p[i].v.type == C_NOEXISTS;
        if (!is_bracket(src_p[i]) && is_deleted != del_phase)
            continue;
        confd_vtype before = src_p[i > 0 ? i - 1 : 0].v.type;
        bool is_empty_container = src_p[i].v.type == C_XMLEND && before == C_XMLBEGIN;
        is_real = is_real || !is_bracket(src_p[i]) || (!del_phase && is_empty_container);
        dst_p[kept++] = src_p[i];
    }
    return is_real ? kept : 0;
}

// What belongs to the subscription that is being served.
static void choose_values(const t_lconfd_sub_buf &buffer, const confd_tag_value_t *p_values, int count,
                          std::vector<confd_tag_value_t> *p_given)
{
    p_given->assign(p_values, p_values + count);
    if (buffer.sub_entry_p->del_priority == 0)
        return;
    bool del_phase = buffer.curr_sub_id == buffer.sub_entry_p->del_sub_id;
    count = lconfd_sub_filter_modifications(p_values, p_given->data(), count, del_phase);
    p_given->resize(static_cast<size_t>(count));
}

static confd_tag_value_t single_value(const confd_hkeypath_t &keypath, const confd_value_t *newv)
{
    LUM_ASSERT(keypath.v[0][0].type == C_XMLTAG, "(&keypath_p->v[0][0])->type == C_XMLTAG");
    return {.tag = keypath.v[0][0].val.xmltag,
            .v = newv != nullptr ? *newv : confd_value_t{.type = C_NOEXISTS, .val = {}}};
}

// ---- Keys ----

// Outermost first. The copies point into the keypath.
static std::vector<confd_value_t> keys_of(const confd_hkeypath_t &keypath, size_t num_keys)
{
    std::vector<confd_value_t> keys;
    for (int at = keypath.len - 1; at >= 0; at--) {
        if (keypath.v[at][0].type == C_XMLTAG)
            continue;
        for (int i = 0; i < MAXKEYLEN && keypath.v[at][i].type != C_NOEXISTS; i++)
            keys.push_back(keypath.v[at][i]);
    }
    LUM_ASSERT(keys.size() == num_keys, "num_keys == num_keys_found");
    return keys;
}

// ---- The daemon's callback ----

static cdb_iter_ret call_back(t_lconfd_sub_entry *p_entry, confd_iter_op op,
                              const std::vector<confd_value_t> &keys,
                              const std::vector<confd_tag_value_t> &values)
{
    int result =
        p_entry->config_cb(p_entry, op, static_cast<int>(keys.size()), keys.empty() ? nullptr : keys.data(),
                           static_cast<int>(values.size()), values.data());
    p_entry->error = result != 0;
    if (result == 0)
        return ITER_CONTINUE;
    LCONFD_LOG("Config callback failed (%s - %d) : %s", lconfd_module_name(), result, p_entry->path);
    return ITER_STOP;
}

// False, with *p_result, when nothing is to be told.
static bool modifications_at(const t_lconfd_sub_buf &buffer, t_sub_values *p_values, cdb_iter_ret *p_result)
{
    const t_lconfd_sub_entry &entry = *buffer.sub_entry_p;
    int result =
        cdb_get_modifications_iter(entry.lconfd_ctx_p->sub_socket, 0, &p_values->p_all, &p_values->count);
    *p_result = ITER_STOP;
    if (result != CONFD_OK)
        LCONFD_LOG("Failed to get modifications(%s - %d) : %s :%s (%d) : %s", lconfd_module_name(), result,
                   entry.path, LCONFD_WHY);
    if (result != CONFD_OK || p_values->p_all == nullptr)
        return false;
    *p_result = ITER_CONTINUE;
    if (p_values->count == 0)
        LCONFD_LOG("Received zero modifications (%s)", entry.path);
    return p_values->count > 0;
}

cdb_iter_ret lconfd_sub_diff_iter(confd_hkeypath_t *keypath_p, confd_iter_op op, confd_value_t *,
                                  confd_value_t *newv, void *state)
{
    const t_lconfd_sub_buf &buffer = *static_cast<t_lconfd_sub_buf *>(state);
    t_lconfd_sub_entry *p_entry = buffer.sub_entry_p;
    char path[path_text_size];
    confd_pp_kpath(path, sizeof(path), keypath_p);
    LCONFD_DEBUG("iter: Path buffer: %s, oper: %d", path, static_cast<int>(op));
    t_sub_values values;
    if (op == MOP_VALUE_SET) {
        confd_tag_value_t value = single_value(*keypath_p, newv);
        choose_values(buffer, &value, 1, &values.given);
    } else if (op == MOP_DELETED && p_entry->del_priority != 0 && buffer.curr_sub_id == p_entry->id) {
        LCONFD_LOG("Delete suppressed in add subscription (%s)", p_entry->path);
        return ITER_CONTINUE;
    } else {
        cdb_iter_ret result;
        if (!modifications_at(buffer, &values, &result))
            return result;
        choose_values(buffer, values.p_all, values.count, &values.given);
    }
    if (values.given.empty()) {
        LCONFD_LOG("Received zero applicable modifications (%s)", p_entry->path);
        return ITER_CONTINUE;
    }
    return call_back(p_entry, op, keys_of(*keypath_p, p_entry->num_keys), values.given);
}

int lconfd_sub_diff_no_keys(t_lconfd_sub_buf *sub_buf_p)
{
    t_lconfd_sub_entry *p_entry = sub_buf_p->sub_entry_p;
    t_sub_values values;
    int result = cdb_get_modifications(p_entry->lconfd_ctx_p->sub_socket, sub_buf_p->curr_sub_id, 0,
                                       &values.p_all, &values.count, nullptr);
    if (result != CONFD_OK) {
        LCONFD_LOG("Failed to get modifications(%s - %d) : %s :%s (%d) : %s", lconfd_module_name(), result,
                   p_entry->path, LCONFD_WHY);
        return result;
    }
    if (values.count == 0) {
        LCONFD_LOG("Received zero modifications (%s)", p_entry->path);
        return CONFD_OK;
    }
    choose_values(*sub_buf_p, values.p_all, values.count, &values.given);
    if (values.given.empty())
        LCONFD_LOG("Received zero applicable modifications (%s)", p_entry->path);
    else if (p_entry->config_cb != nullptr)
        call_back(p_entry, MOP_MODIFIED, {}, values.given);
    return CONFD_OK;
}
