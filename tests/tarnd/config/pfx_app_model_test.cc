// The counts between lists and contexts against a model, over random steps.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <set>

#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tests/tarnd/config/pass_world.h"

static constexpr unsigned seed = 4711;
static constexpr size_t num_lists = 3;
static const char *const lists[num_lists] = {"one", "two", "three"};
static const char *const members[][2] = {
    {"10.0.0.0/8", "audio_video"}, {"11.0.0.0/8", "game"}, {"12.0.0.0/8", "web"}, {"13.0.0.0/8", "webmail"}};
static const e_tarn_field_type sides[] = {TARN_FIELD_TYPE_SRC_PFX_LIST, TARN_FIELD_TYPE_DST_PFX_LIST,
                                          TARN_FIELD_TYPE_DPI_APP_LIST, TARN_FIELD_TYPE_DPI_DNS_APP_LIST};
static constexpr size_t num_sides = std::size(sides);

static const struct {
    e_tarn_policy_type type;
    const char *list;
} contexts[] = {{TARN_POLICY_TYPE_DATA, "A"}, {TARN_POLICY_TYPE_DATA, "B"}, {TARN_POLICY_TYPE_PFR, "A"}};
static constexpr size_t num_contexts = std::size(contexts);

static constexpr size_t PFX = 0;
static constexpr size_t APP = 1;

static size_t kind_of(size_t side)
{
    return side < 2 ? PFX : APP;
}

namespace {

// A list match of a rule: the fields that it was last expanded into.
struct t_match {
    bool is_set;
    size_t list;
    size_t fields;
};

struct t_model_rule {
    t_tarn_config_rule *p_rule;
    size_t context;
    std::array<t_match, num_sides> matches;
};

class ListModel {
public:
    ListModel();
    void step();
    void check();
    void delete_app_lists();

private:
    size_t any(size_t count)
    {
        return random() % count;
    }
    void toggle_member(size_t kind, size_t list, size_t member);
    void add_rule(size_t context);
    void drop_match(t_model_rule *p_rule, size_t side);
    void delete_match(t_model_rule *p_rule, size_t side);
    void pass();
    size_t uses(size_t kind, size_t list, size_t context) const;
    void check_context(size_t context);

    std::mt19937 random{seed};
    PassWorld world;
    std::vector<t_model_rule> rules;
    std::set<size_t> content[2][num_lists];
    // Uses of application lists that were empty when their rule lost them: nobody gives them back.
    size_t stranded[num_lists][num_contexts] = {};
    bool dirty[num_contexts] = {};
    uint32_t next_id = 1;
};

}  // namespace

ListModel::ListModel()
{
    world.add_vpn_list("A", 1);
    world.add_vpn_list("B", 2);
    world.add_policy(TARN_POLICY_TYPE_DATA, "p", {"A", "B"});
    world.add_policy(TARN_POLICY_TYPE_PFR, "p", {"A"});
    for (const char *list : lists) {
        world.add_pfx_list(list, {});
        world.add_app_list(list, {});
    }
}

// Fields of a prefix list, uses of an application list.
size_t ListModel::uses(size_t kind, size_t list, size_t context) const
{
    size_t count = kind == APP ? stranded[list][context] : 0;
    for (const t_model_rule &rule : rules)
        for (size_t side = 0; side < num_sides; side++) {
            const t_match &match = rule.matches[side];
            if (rule.context == context && match.is_set && match.list == list && kind_of(side) == kind)
                count += kind == PFX ? match.fields : 1;
        }
    return count;
}

void ListModel::toggle_member(size_t kind, size_t list, size_t member)
{
    bool deletes = content[kind][list].erase(member) > 0;
    if (!deletes)
        content[kind][list].insert(member);
    const char *name = members[member][kind];
    if (kind == PFX) {
        deletes ? world.delete_prefix(lists[list], name) : world.add_prefix(lists[list], name);
    } else if (!deletes) {
        world.add_app(lists[list], name);
    } else {
        EXPECT_EQ(tarn_config_app_list_change(&world.tarn, lists[list], TARN_DPI_KEY_LOC_KEELSON), 0);
        EXPECT_EQ(tarn_config_app_list_delete_app(&world.tarn, lists[list], TARN_DPI_KEY_LOC_KEELSON,
                                                  TARN_DPI_TYPE_APP_FAMILY, name),
                  0);
    }
    for (size_t context = 0; context < num_contexts; context++)
        dirty[context] |= uses(kind, list, context) > 0;
}

void ListModel::add_rule(size_t context)
{
    t_model_rule rule = {
        world.add_rule(contexts[context].type, "p", contexts[context].list, next_id++), context, {}};
    for (size_t side = 0; side < num_sides; side++) {
        if (any(2) == 0)
            continue;
        size_t list = any(num_lists);
        rule.matches[side] = {true, list, content[kind_of(side)][list].size()};
        if (kind_of(side) == PFX)
            world.add_pfx_list_match(rule.p_rule, sides[side], lists[list]);
        else
            world.add_app_list_match(rule.p_rule, sides[side], lists[list]);
    }
    rules.push_back(rule);
    dirty[context] = true;
}

void ListModel::drop_match(t_model_rule *p_rule, size_t side)
{
    t_match &match = p_rule->matches[side];
    if (match.is_set && kind_of(side) == APP && match.fields == 0)
        stranded[match.list][p_rule->context]++;
    match = {};
}

void ListModel::delete_match(t_model_rule *p_rule, size_t side)
{
    tarn_config_field_delete(&world.tarn, sides[side], p_rule->p_rule, nullptr, nullptr);
    p_rule->p_rule->policy->changed = 1;
    p_rule->p_rule->vpn_list->changed = 1;
    drop_match(p_rule, side);
    dirty[p_rule->context] = true;
}

// A match without fields leaves no trace of its list, so the list's later members don't reach the rule.
void ListModel::pass()
{
    world.pass();
    for (t_model_rule &rule : rules)
        for (size_t side = 0; side < num_sides; side++) {
            t_match &match = rule.matches[side];
            if (dirty[rule.context] && match.fields > 0)
                match.fields = content[kind_of(side)][match.list].size();
        }
    std::fill(std::begin(dirty), std::end(dirty), false);
}

void ListModel::step()
{
    size_t what = any(10);
    if (what < 4) {
        toggle_member(any(2), any(num_lists), any(std::size(members)));
    } else if (what < 6) {
        pass();
    } else if (what < 8 && rules.size() < 8) {
        add_rule(any(num_contexts));
    } else if (!rules.empty()) {
        size_t index = any(rules.size());
        if (what == 8) {
            delete_match(&rules[index], any(num_sides));
            return;
        }
        for (size_t side = 0; side < num_sides; side++)
            drop_match(&rules[index], side);
        world.delete_rule(rules[index].p_rule);
        dirty[rules[index].context] = true;
        rules.erase(rules.begin() + static_cast<ptrdiff_t>(index));
    }
}

template <typename t_ref>
static size_t count_in(const avl_tree_t *p_tree, const t_ref &wanted)
{
    const t_ref *p_ref = static_cast<const t_ref *>(avl_find(p_tree, &wanted));
    EXPECT_TRUE(p_ref == nullptr || p_ref->ref_count > 0) << "a record that counts nothing";
    return p_ref != nullptr ? p_ref->ref_count : 0;
}

// Both sides of each count.
void ListModel::check_context(size_t context)
{
    auto [type, name] = contexts[context];
    const t_tarn_policy_vpn_list *p_vpn_list = world.context(type, "p", name);
    EXPECT_EQ(p_vpn_list->changed, dirty[context]);
    t_tarn_vpn_list_ref user = {};
    user.key = {"", "p", type};
    user.key.name[0] = name[0];
    t_tarn_dpi_policy_vpn_list_ctx app_user = {};
    app_user.key = user.key;
    for (size_t list = 0; list < num_lists; list++) {
        auto *p_pfx = tarn_pfx_list_find(&world.tarn, lists[list], TARN_POLICY_PFX_LIST_TYPE_KEELSON);
        auto *p_app = tarn_app_list_find(&world.tarn, lists[list], TARN_DPI_KEY_LOC_KEELSON);
        t_tarn_pfx_list_ref pfx_use = {{}, p_pfx->key, 0};
        t_tarn_dpi_app_ctx app_use = {{}, p_app, 0};
        EXPECT_EQ(count_in(&p_pfx->vpn_list_db, user), uses(PFX, list, context));
        EXPECT_EQ(count_in(&p_vpn_list->pfx_list_db, pfx_use), uses(PFX, list, context));
        EXPECT_EQ(count_in(&p_app->vpn_list_db, app_user), uses(APP, list, context));
        EXPECT_EQ(count_in(&p_vpn_list->dpi_app_list_db, app_use), uses(APP, list, context));
    }
}

static size_t fields_of(const t_tarn_config_rule *p_rule, e_tarn_field_type f_config_type)
{
    size_t count = 0;
    for (t_dlnode *p = p_rule->field_list.p_head; p != nullptr; p = p->p_next)
        count += DLL_RECORD(p, t_tarn_config_field, dlnode)->f_config_type == f_config_type;
    return count;
}

void ListModel::check()
{
    size_t wanted = 0;
    for (size_t context = 0; context < num_contexts; context++) {
        check_context(context);
        for (size_t list = 0; list < num_lists; list++)
            wanted += uses(APP, list, context);
    }
    EXPECT_EQ(static_cast<size_t>(world.tarn.dpi_ref), wanted);
    for (const t_model_rule &rule : rules)
        for (size_t side = 0; side < num_sides; side++)
            EXPECT_EQ(fields_of(rule.p_rule, sides[side]), rule.matches[side].fields);
}

void ListModel::delete_app_lists()
{
    for (const char *list : lists)
        EXPECT_EQ(tarn_config_app_list_delete(&world.tarn, list, TARN_DPI_KEY_LOC_KEELSON), 0);
    for (const auto &[type, list] : contexts)
        EXPECT_EQ(avl_numnodes(&world.context(type, "p", list)->dpi_app_list_db), 0u);
}

TEST(ListModel, FieldsOfPrefixListsAndUsesOfApplicationListsAreCounted)
{
    SCOPED_TRACE(seed);
    ListModel model;
    for (int i = 0; i < 3000 && !testing::Test::HasFailure(); i++) {
        SCOPED_TRACE(i);
        model.step();
        model.check();
    }
    model.delete_app_lists();  // under the rules: nothing is left that points to them
}

TEST(ListModel, ThreeRulesWithTenPrefixesCountThirty)
{
    PassWorld world;
    world.add_vpn_list("A", 1);
    world.add_pfx_list("office", {});
    for (int i = 1; i <= 10; i++)
        world.add_prefix("office", (std::to_string(i) + ".0.0.0/8").c_str());
    world.add_app_list("media", {"game", "web"});
    world.add_policy(TARN_POLICY_TYPE_DATA, "p", {"A"});
    for (uint32_t id : {1u, 2u, 3u}) {
        t_tarn_config_rule *p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "A", id);
        world.add_pfx_list_match(p_rule, TARN_FIELD_TYPE_SRC_PFX_LIST, "office");
        world.add_app_list_match(p_rule, TARN_FIELD_TYPE_DPI_APP_LIST, "media");
    }
    world.pass();
    const t_tarn_policy_vpn_list *p_vpn_list = world.context(TARN_POLICY_TYPE_DATA, "p", "A");
    EXPECT_EQ(static_cast<t_tarn_pfx_list_ref *>(avl_first(&p_vpn_list->pfx_list_db))->ref_count, 30u);
    EXPECT_EQ(static_cast<t_tarn_dpi_app_ctx *>(avl_first(&p_vpn_list->dpi_app_list_db))->ref_count, 3u);
}
