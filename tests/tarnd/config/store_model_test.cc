// The object store against plain maps: seeded random operations, their results, what they tell FTM, and what
// the trees hold in which order.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/compiler/tarn_ruletable.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/peers/tarn_ftm.h"
#include "tests/support/tarn_store.h"

namespace {

struct t_model_context {
    uint32_t direction;
    bool changed;
    int filter_id;
    int filter_type;
    uint32_t action;
    std::string sla_class;
    std::set<uint32_t> rules;
};

// Names lie by length, then by letters.
struct t_by_length {
    bool operator()(const std::string &a, const std::string &b) const
    {
        return std::pair(a.size(), a) < std::pair(b.size(), b);
    }
};

struct t_policy_id {
    uint32_t type;
    std::string name;

    bool operator<(const t_policy_id &other) const
    {
        return std::tuple(type, name.size(), name) < std::tuple(other.type, other.name.size(), other.name);
    }
};

struct t_model_policy {
    uint32_t old_direction;
    uint32_t direction;
    bool changed;
    std::map<std::string, t_model_context, t_by_length> contexts;
};

using t_ranges = std::set<std::pair<uint64_t, uint64_t>>;

class StoreModel {
public:
    explicit StoreModel(uint32_t seed) : random(seed) {}
    void step();
    void compare();

private:
    using t_contexts = decltype(t_model_policy::contexts);

    size_t below(size_t count)
    {
        return random() % count;
    }
    std::string any_name()
    {
        static const std::string names[] = {
            "a", "b", "zz", "abc", "list-10", std::string(140, 'x'), std::string(130, 'x')};
        return names[below(std::size(names))];
    }
    t_policy_id any_policy()
    {
        return {static_cast<uint32_t>(1 + below(3)), any_name()};
    }
    // A list of the configuration, or for a zone-based policy sometimes its own.
    std::string any_list(const t_policy_id &id)
    {
        return id.type == TARN_POLICY_TYPE_ZBF && below(2) != 0 ? TARN_ZBF_VPN_LIST : any_name();
    }
    std::pair<uint64_t, uint64_t> any_range()
    {
        uint64_t min = below(6);
        return {min, min + below(3)};
    }

    void add_policy();
    void delete_policy();
    void turn_policy();
    void add_list();
    void delete_list();
    void add_range();
    void delete_range();
    void add_context();
    void remove_context();
    void change_context();
    void add_rule();
    void load_context();
    void new_vpn();

    t_model_policy *find(const t_policy_id &id);
    t_model_context *find_context(const t_policy_id &id, const std::string &list);
    bool in_use(const std::string &list) const;
    void expect(int type, const t_policy_id &id, const std::string &list, const t_ranges *p_only = nullptr);
    void expect_of_list(int type, const std::string &list, const t_ranges &only);
    void end_context(const t_policy_id &id, const std::string &list, bool unbind);
    void compare_context(const t_tarn_policy_vpn_list &context, const t_model_context &model);
    void compare_policy(const t_tarn_policy &policy, const t_model_policy &model);
    void compare_list(const t_tarn_vpn_list &list, const std::string &name, const t_ranges &ranges);

    std::mt19937 random;
    TarnStore store;
    std::map<t_policy_id, t_model_policy> policies;
    std::map<std::string, t_ranges, t_by_length> lists;
    std::vector<t_ftm_words> expected;
    bool process_zbf = false;
};

}  // namespace

// Names are cut to fit.
static std::string cut(const std::string &name)
{
    return name.substr(0, TARN_NAME_SIZE - 1);
}

static e_tarn_policy_type type_of(const t_policy_id &id)
{
    return static_cast<e_tarn_policy_type>(id.type);
}

t_model_policy *StoreModel::find(const t_policy_id &id)
{
    auto found = policies.find({id.type, cut(id.name)});
    return found != policies.end() ? &found->second : nullptr;
}

t_model_context *StoreModel::find_context(const t_policy_id &id, const std::string &list)
{
    t_model_policy *p_policy = find(id);
    if (p_policy == nullptr)
        return nullptr;
    auto found = p_policy->contexts.find(cut(list));
    return found != p_policy->contexts.end() ? &found->second : nullptr;
}

bool StoreModel::in_use(const std::string &list) const
{
    for (const auto &[id, policy] : policies) {
        if (policy.contexts.count(cut(list)) != 0)
            return true;
    }
    return false;
}

void StoreModel::expect(int type, const t_policy_id &id, const std::string &list, const t_ranges *p_only)
{
    const t_model_context *p_context = find_context(id, list);
    t_ftm_words words = {};
    words.type = type;
    words.kind = p_context->filter_type;
    words.side = static_cast<int>(p_context->direction);
    words.filter_id = p_context->filter_id;
    words.name = cut(id.name);
    for (auto [min, max] : p_only != nullptr ? *p_only : lists.at(cut(list)))
        words.vpns.emplace_back(min, max);
    if (!words.vpns.empty() && store.ftm_up && store.ftm_memory)
        expected.push_back(words);
}

// For each context on the list that has a filter.
void StoreModel::expect_of_list(int type, const std::string &list, const t_ranges &only)
{
    for (const auto &[id, policy] : policies) {
        auto found = policy.contexts.find(cut(list));
        if (found != policy.contexts.end() && found->second.filter_id != -1)
            expect(type, id, list, &only);
    }
}

void StoreModel::end_context(const t_policy_id &id, const std::string &list, bool unbind)
{
    const t_model_context *p_context = find_context(id, list);
    if (unbind && p_context->filter_id != -1)
        expect(TARN_MSG_VPN_FILTER_DELETE, id, list);
    if (!p_context->rules.empty())
        find(id)->changed = true;
    find(id)->contexts.erase(cut(list));
}

// ---- Operations ----

void StoreModel::add_policy()
{
    t_policy_id id = any_policy();
    uint32_t direction = static_cast<uint32_t>(1 + below(3));
    int status = tarn_policy_add(&store.tarn, type_of(id), id.name.c_str(),
                                 static_cast<e_tarn_policy_dir>(direction), 7);
    EXPECT_EQ(status, find(id) != nullptr ? EEXIST : 0);
    if (status != 0)
        return;
    t_model_policy &policy = policies[{id.type, cut(id.name)}];
    policy = {direction, direction, false, {}};
    if (id.type == TARN_POLICY_TYPE_ZBF) {
        lists[TARN_ZBF_VPN_LIST];
        policy.contexts[TARN_ZBF_VPN_LIST] = {direction, false, -1, 0, 7, "", {}};
        process_zbf = true;
    }
}

void StoreModel::delete_policy()
{
    t_policy_id id = any_policy();
    t_model_policy *p_policy = find(id);
    int status = tarn_policy_delete(&store.tarn, type_of(id), id.name.c_str());
    EXPECT_EQ(status, p_policy != nullptr ? 0 : ENOENT);
    if (p_policy == nullptr)
        return;
    while (!p_policy->contexts.empty())
        end_context(id, p_policy->contexts.begin()->first, id.type != TARN_POLICY_TYPE_ZBF);
    policies.erase({id.type, cut(id.name)});
    if (id.type == TARN_POLICY_TYPE_ZBF) {
        if (!in_use(TARN_ZBF_VPN_LIST))
            lists.erase(TARN_ZBF_VPN_LIST);
        process_zbf = true;
    }
}

void StoreModel::turn_policy()
{
    t_policy_id id = any_policy();
    t_model_policy *p_model = find(id);
    t_tarn_policy *p_policy = nullptr;
    EXPECT_EQ(tarn_policy_lookup(&store.tarn, type_of(id), id.name.c_str(), &p_policy),
              p_model != nullptr ? 0 : ENOENT);
    if (p_policy == nullptr)
        return;
    uint32_t direction = static_cast<uint32_t>(1 + below(3));
    EXPECT_EQ(tarn_policy_update_direction(&store.tarn, p_policy, static_cast<e_tarn_policy_dir>(direction)),
              0);
    if (direction == p_model->direction)
        return;
    p_model->old_direction = p_model->direction;
    p_model->direction = direction;
    for (auto &[list, context] : p_model->contexts) {
        context.direction = direction;
        expect(TARN_MSG_VPN_FILTER_ADD, id, list);
    }
}

void StoreModel::add_list()
{
    std::string list = any_name();
    EXPECT_EQ(tarn_vpn_list_add(&store.tarn, list.c_str()), lists.count(cut(list)) != 0 ? EEXIST : 0);
    lists[cut(list)];
}

void StoreModel::delete_list()
{
    std::string list = any_name();
    if (in_use(list))
        return;  // an assertion
    EXPECT_EQ(tarn_vpn_list_delete(&store.tarn, list.c_str()), lists.count(cut(list)) != 0 ? 0 : ENOENT);
    lists.erase(cut(list));
}

void StoreModel::add_range()
{
    std::string list = any_name();
    auto [min, max] = any_range();
    int status = tarn_vpn_add(&store.tarn, list.c_str(), min, max);
    auto found = lists.find(cut(list));
    if (found == lists.end()) {
        EXPECT_EQ(status, ENOENT);
    } else if (!found->second.insert({min, max}).second) {
        EXPECT_EQ(status, EEXIST);
    } else {
        EXPECT_EQ(status, 0);
        expect_of_list(TARN_MSG_VPN_FILTER_ADD, list, {{min, max}});
    }
}

void StoreModel::delete_range()
{
    std::string list = any_name();
    auto [min, max] = any_range();
    auto found = lists.find(cut(list));
    bool there = found != lists.end() && found->second.erase({min, max}) != 0;
    EXPECT_EQ(tarn_vpn_delete(&store.tarn, list.c_str(), min, max), there ? 0 : ENOENT);
    if (there)
        expect_of_list(TARN_MSG_VPN_FILTER_DELETE, list, {{min, max}});
}

void StoreModel::add_context()
{
    t_policy_id id = any_policy();
    std::string list = any_list(id);
    if (find(id) != nullptr && lists.count(cut(list)) == 0)
        return;  // an assertion
    uint32_t action = static_cast<uint32_t>(1 + below(2));
    const char *sla_class = below(2) != 0 ? "gold" : nullptr;
    int status = tarn_vpn_list_add_to_policy(&store.tarn, type_of(id), id.name.c_str(), list.c_str(), action,
                                             sla_class);
    t_model_policy *p_policy = find(id);
    if (p_policy == nullptr) {
        EXPECT_EQ(status, ENOENT);
    } else if (find_context(id, list) != nullptr) {
        EXPECT_EQ(status, EEXIST);
    } else {
        EXPECT_EQ(status, 0);
        p_policy->contexts[cut(list)] = {
            p_policy->direction, false, -1, 0, action, sla_class != nullptr ? sla_class : "", {}};
    }
}

void StoreModel::remove_context()
{
    t_policy_id id = any_policy();
    std::string list = any_list(id);
    bool there = find_context(id, list) != nullptr;
    EXPECT_EQ(tarn_vpn_list_remove_from_policy(&store.tarn, type_of(id), id.name.c_str(), list.c_str()),
              there ? 0 : ENOENT);
    if (there)
        end_context(id, list, true);
}

void StoreModel::change_context()
{
    t_policy_id id = any_policy();
    std::string list = any_list(id);
    t_model_context *p_context = find_context(id, list);
    uint32_t action = static_cast<uint32_t>(below(3));
    const char *sla_class = below(2) != 0 ? "silver" : nullptr;
    EXPECT_EQ(tarn_policy_vpn_list_change(&store.tarn, type_of(id), id.name.c_str(), list.c_str(), action,
                                          sla_class),
              p_context != nullptr ? 0 : ENOENT);
    if (p_context == nullptr)
        return;
    p_context->action = action;
    p_context->sla_class = sla_class != nullptr ? sla_class : "";
    p_context->changed = true;
    find(id)->changed = true;
}

void StoreModel::add_rule()
{
    t_policy_id id = any_policy();
    std::string list = any_list(id);
    t_model_context *p_context = find_context(id, list);
    uint32_t sequence = static_cast<uint32_t>(below(5));
    int status =
        tarn_config_rule_add(&store.tarn, type_of(id), id.name.c_str(), list.c_str(), sequence, nullptr);
    if (p_context == nullptr) {
        EXPECT_EQ(status, ENOENT);
        return;
    }
    bool is_new = p_context->rules.insert(sequence).second;
    EXPECT_EQ(status, is_new ? 0 : EEXIST);
    if (is_new)
        p_context->changed = find(id)->changed = true;
}

// What a pass would leave: a filter with its program, a context waiting for memory, or nothing.
void StoreModel::load_context()
{
    t_policy_id id = any_policy();
    std::string list = any_list(id);
    t_model_context *p_model = find_context(id, list);
    t_tarn_policy_vpn_list *p_context = nullptr;
    EXPECT_EQ(
        tarn_vpn_list_lookup_in_policy(&store.tarn, type_of(id), id.name.c_str(), list.c_str(), &p_context),
        p_model != nullptr ? 0 : ENOENT);
    if (p_context == nullptr)
        return;
    static const int ids[] = {-1, 0, 5, 512};
    p_model->filter_id = p_context->filter_id = ids[below(std::size(ids))];
    p_model->filter_type = p_context->filter_type =
        p_model->filter_id == -1 ? 0 : tarn_get_filter_type(id.type);
    if (p_context->p_program == nullptr)
        p_context->p_program = static_cast<t_tarn_program_hdr *>(tarn_mem_alloc(64, g_tarn_mem_mgr));
    if (p_context->p_table == nullptr)
        p_context->p_table = tarn_ruletable_create("policy", "list", 0, nullptr);
}

void StoreModel::new_vpn()
{
    uint64_t vpn_id = below(9);
    EXPECT_EQ(tarn_vpn_bind_policy(&store.tarn, vpn_id), 0);
    for (const auto &[list, ranges] : lists) {
        for (auto range : ranges) {
            if (range.first <= vpn_id && vpn_id <= range.second) {
                expect_of_list(TARN_MSG_VPN_FILTER_ADD, list, {range});
                break;
            }
        }
    }
}

// ---- Comparison ----

void StoreModel::compare_context(const t_tarn_policy_vpn_list &context, const t_model_context &model)
{
    EXPECT_EQ(context.direction, model.direction);
    EXPECT_EQ(context.changed, model.changed);
    EXPECT_EQ(context.filter_id, model.filter_id);
    EXPECT_EQ(context.filter_type, model.filter_type);
    const t_tarn_config_action &action = *context.default_action;
    EXPECT_EQ(action.action, model.action);
    bool sla = !model.sla_class.empty();
    EXPECT_EQ(action.fwding_action, sla ? 12u : 0u);
    EXPECT_EQ(action.action_type, sla ? 0x58223d85u : 0u);
    EXPECT_EQ(action.sla_class.name, model.sla_class);
    EXPECT_EQ(action.sla_class.id, 0);
    EXPECT_EQ(context.rule_list.count, static_cast<int>(model.rules.size()));
}

void StoreModel::compare_policy(const t_tarn_policy &policy, const t_model_policy &model)
{
    EXPECT_EQ(policy.direction, model.direction);
    EXPECT_EQ(policy.old_direction, model.old_direction);
    EXPECT_EQ(policy.added, 1);
    EXPECT_EQ(policy.changed, model.changed);
    ASSERT_EQ(avl_numnodes(&policy.vpn_list_db), model.contexts.size());
    auto *p_context = static_cast<const t_tarn_policy_vpn_list *>(avl_first(&policy.vpn_list_db));
    for (const auto &[name, context] : model.contexts) {
        SCOPED_TRACE(name);
        EXPECT_EQ(p_context->key.name, name);
        compare_context(*p_context, context);
        p_context = static_cast<const t_tarn_policy_vpn_list *>(avl_walk(&policy.vpn_list_db, p_context));
    }
}

void StoreModel::compare_list(const t_tarn_vpn_list &list, const std::string &name, const t_ranges &ranges)
{
    EXPECT_EQ(list.key.name, name);
    ASSERT_EQ(avl_numnodes(&list.vpn_db), ranges.size());
    auto *p_vpn = static_cast<const t_tarn_vpn *>(avl_first(&list.vpn_db));
    for (auto [min, max] : ranges) {
        EXPECT_EQ(p_vpn->key.min_vpn_id, min);
        EXPECT_EQ(p_vpn->key.max_vpn_id, max);
        p_vpn = static_cast<const t_tarn_vpn *>(avl_walk(&list.vpn_db, p_vpn));
    }
    auto *p_ref = static_cast<const t_tarn_policy_ref *>(avl_first(&list.policy_db));
    for (const auto &[id, policy] : policies) {
        if (policy.contexts.count(name) == 0)
            continue;
        ASSERT_NE(p_ref, nullptr);
        EXPECT_EQ(p_ref->key.type, id.type);
        EXPECT_EQ(p_ref->key.name, id.name);
        EXPECT_EQ(p_ref->ref_count, 1);
        p_ref = static_cast<const t_tarn_policy_ref *>(avl_walk(&list.policy_db, p_ref));
    }
    EXPECT_EQ(p_ref, nullptr);
}

void StoreModel::compare()
{
    EXPECT_EQ(store.take(), expected);
    expected.clear();
    EXPECT_EQ(store.tarn.process_zbf_config, process_zbf);
    ASSERT_EQ(avl_numnodes(&store.tarn.policy_db), policies.size());
    auto *p_policy = static_cast<const t_tarn_policy *>(avl_first(&store.tarn.policy_db));
    for (const auto &[id, policy] : policies) {
        SCOPED_TRACE(std::to_string(id.type) + ' ' + id.name);
        EXPECT_EQ(p_policy->key.type, id.type);
        EXPECT_EQ(p_policy->key.name, id.name);
        compare_policy(*p_policy, policy);
        p_policy = static_cast<const t_tarn_policy *>(avl_walk(&store.tarn.policy_db, p_policy));
    }
    ASSERT_EQ(avl_numnodes(&store.tarn.vpn_list_db), lists.size());
    auto *p_list = static_cast<const t_tarn_vpn_list *>(avl_first(&store.tarn.vpn_list_db));
    for (const auto &[name, ranges] : lists) {
        compare_list(*p_list, name, ranges);
        p_list = static_cast<const t_tarn_vpn_list *>(avl_walk(&store.tarn.vpn_list_db, p_list));
    }
}

void StoreModel::step()
{
    static constexpr void (StoreModel::*operations[])() = {
        &StoreModel::add_policy,   &StoreModel::add_policy,     &StoreModel::delete_policy,
        &StoreModel::turn_policy,  &StoreModel::add_list,       &StoreModel::add_list,
        &StoreModel::delete_list,  &StoreModel::add_range,      &StoreModel::add_range,
        &StoreModel::delete_range, &StoreModel::add_context,    &StoreModel::add_context,
        &StoreModel::add_context,  &StoreModel::remove_context, &StoreModel::change_context,
        &StoreModel::add_rule,     &StoreModel::load_context,   &StoreModel::load_context,
        &StoreModel::new_vpn};
    store.ftm_up = below(10) != 0;
    store.ftm_memory = below(10) != 0;
    (this->*operations[below(std::size(operations))])();
}

TEST(StoreModel, DoesAndTellsWhatPlainMapsDo)
{
    t_tarn_mem_mgr mgr = {malloc, free};
    tarn_register_mem_mgr(&mgr);
    for (uint32_t seed = 1; seed <= 20 && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        StoreModel model(seed);
        for (int i = 0; i < 600 && !testing::Test::HasFailure(); i++) {
            model.step();
            model.compare();
        }
    }
    tarn_register_mem_mgr(nullptr);
}
