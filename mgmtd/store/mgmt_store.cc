#include "mgmtd/store/mgmt_store.h"

#include "mgmtd/store/mgmt_crash.h"
#include "mgmtd/store/mgmt_report.h"
#include "mgmtd/store/mgmt_tree_private.h"
#include "mgmtd/store/mgmt_value.h"

#include <set>

static constexpr int32_t vrf_id_max = INT16_MAX;

// ---- Opening ----

// All the bits that the daemons of a full router would have set by now.
static void read_priority_supply(t_mgmt_store *p_store)
{
    t_mgmt_path path;
    t_mgmt_error ignored;
    confd_value_t value = {};
    value.type = C_BIT32;
    value.val.b32 = 7;
    if (mgmt_path_read(*p_store->p_schema, nullptr, "/lconfd-initial-read-priority", &path, &ignored))
        static_cast<void>(mgmt_oper_set(p_store, path, value, &ignored));
}

bool mgmt_store_open(t_mgmt_store *p_store, const t_schema_index *p_schema, const ly_ctx *p_context,
                     const std::string &folder, t_mgmt_error *p_error)
{
    p_store->p_schema = p_schema;
    p_store->p_context = p_context;
    p_store->rules = mgmt_rules_new(*p_schema);
    p_store->files.folder = folder;
    p_store->files.p_schema = p_schema;
    p_store->files.p_context = p_context;
    mgmt_work_tree_ptr running;
    if (!mgmt_files_open(&p_store->files, &running, p_error))
        return false;
    p_store->running = std::move(running);
    p_store->candidate = nullptr;
    p_store->pre_commit = nullptr;
    p_store->operational = mgmt_tree_new(p_schema, p_context);
    if (p_store->supply_read_priority)
        read_priority_supply(p_store);
    if (p_store->supply_vrf_ids)
        mgmt_supply_vrf_ids(p_store, *p_store->running);
    return true;
}

const mgmt_tree_ptr &mgmt_store_candidate(const t_mgmt_store &store)
{
    return store.candidate != nullptr ? store.candidate : store.running;
}

const mgmt_tree_ptr &mgmt_store_pre_commit(const t_mgmt_store &store)
{
    return store.pre_commit != nullptr ? store.pre_commit : store.running;
}

// ---- A new running ----

void mgmt_store_swap(t_mgmt_store *p_store, mgmt_tree_ptr tree, const t_mgmt_diff &changes)
{
    p_store->pre_commit = std::move(p_store->running);
    p_store->running = std::move(tree);
    const t_schema_node *p_vpn = schema_find(*p_store->p_schema, "/vpn");
    if (p_store->supply_vrf_ids && p_vpn != nullptr && mgmt_report_concerns(changes, p_vpn))
        mgmt_supply_vrf_ids(p_store, *p_store->running);
    MGMT_CRASH_POINT("swapped");
}

std::shared_ptr<const t_mgmt_diff> mgmt_store_undo(t_mgmt_store *p_store, mgmt_tree_ptr before,
                                                   const std::string &user, const std::string &reason)
{
    if (p_store->candidate == nullptr)
        p_store->candidate = p_store->running;
    auto changes = std::make_shared<const t_mgmt_diff>(mgmt_diff_new(p_store->running, before));
    mgmt_files_undo(&p_store->files, *before, user, reason);
    mgmt_store_swap(p_store, std::move(before), *changes);
    return changes;
}

// ---- vrf-id ----

// The model's nodes; null where the model has no such thing.
struct t_vrf_nodes {
    const t_schema_node *p_vpn;
    const t_schema_node *p_instance;
    const t_schema_node *p_vrf_id;
};

static bool vrf_nodes_find(const t_schema_index &index, t_vrf_nodes *p_nodes)
{
    p_nodes->p_vpn = schema_find(index, "/vpn");
    p_nodes->p_instance = schema_find(index, "/vpn/vpn-instance");
    p_nodes->p_vrf_id = schema_find(index, "/vpn/vpn-instance/vrf-id");
    return p_nodes->p_vpn != nullptr && p_nodes->p_instance != nullptr && p_nodes->p_vrf_id != nullptr;
}

static std::vector<const lyd_node *> instances_of(const t_mgmt_tree &tree, const t_vrf_nodes &nodes)
{
    const lyd_node *p_vpn = mgmt_tree_child(tree, nullptr, nodes.p_vpn);
    if (p_vpn == nullptr)
        return {};
    return mgmt_sorted_instances(mgmt_tree_child(tree, p_vpn, nodes.p_instance), nodes.p_instance);
}

static uint64_t number_of(const t_vrf_nodes &nodes, const lyd_node *p_instance)
{
    return mgmt_value_of(nodes.p_instance->keys[0], lyd_child(p_instance)).val.u64;
}

// The ids in operational, by the instances' numbers; those of instances that are gone are removed.
static std::map<uint64_t, int32_t> given_ids(t_mgmt_store *p_store, const t_vrf_nodes &nodes,
                                             const std::set<uint64_t> &configured)
{
    std::map<uint64_t, int32_t> given;
    t_mgmt_tree *p_tree = p_store->operational.get();
    for (const lyd_node *p_instance : instances_of(*p_tree, nodes)) {
        const lyd_node *p_leaf = mgmt_tree_child(*p_tree, p_instance, nodes.p_vrf_id);
        uint64_t number = number_of(nodes, p_instance);
        if (p_leaf == nullptr)
            continue;
        if (configured.contains(number)) {
            given[number] = mgmt_value_of(nodes.p_vrf_id, p_leaf).val.i16;
            continue;
        }
        // With its id goes the instance, unless others wrote there too.
        bool is_bare = p_leaf == lyd_child(p_instance)->next && p_leaf->next == nullptr;
        mgmt_build_remove(p_tree, const_cast<lyd_node *>(is_bare ? p_instance : p_leaf));
    }
    return given;
}

// New ids for all: numbers that fit are their own ids; the others keep what they have or get the highest that
// is free.
static std::map<uint64_t, int32_t> wanted_ids(const std::set<uint64_t> &configured,
                                              const std::map<uint64_t, int32_t> &given)
{
    std::map<uint64_t, int32_t> wanted;
    std::set<int32_t> used;
    for (uint64_t number : configured) {
        if (number <= vrf_id_max) {
            wanted[number] = static_cast<int32_t>(number);
            used.insert(static_cast<int32_t>(number));
            continue;
        }
        auto old = given.find(number);
        if (old != given.end() && used.insert(old->second).second)
            wanted[number] = old->second;
    }
    int32_t next = vrf_id_max;
    for (uint64_t number : configured) {
        if (wanted.contains(number))
            continue;
        while (next >= 0 && used.contains(next))
            next--;
        if (next < 0)
            break;
        wanted[number] = next;
        used.insert(next);
    }
    return wanted;
}

void mgmt_supply_vrf_ids(t_mgmt_store *p_store, const t_mgmt_tree &config)
{
    t_vrf_nodes nodes = {};
    if (!vrf_nodes_find(*p_store->p_schema, &nodes))
        return;
    std::set<uint64_t> configured;
    for (const lyd_node *p_instance : instances_of(config, nodes))
        configured.insert(number_of(nodes, p_instance));
    std::map<uint64_t, int32_t> given = given_ids(p_store, nodes, configured);
    for (auto [number, id] : wanted_ids(configured, given)) {
        auto old = given.find(number);
        if (old != given.end() && old->second == id)
            continue;
        t_mgmt_path path = {{{nodes.p_vpn, {}, -1},
                             {nodes.p_instance, {std::to_string(number)}, -1},
                             {nodes.p_vrf_id, {}, -1}}};
        confd_value_t value = {};
        value.type = C_INT16;
        value.val.i16 = static_cast<int16_t>(id);
        t_mgmt_error ignored;
        static_cast<void>(mgmt_oper_set(p_store, path, value, &ignored));
    }
}
