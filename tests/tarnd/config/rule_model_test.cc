// Random life of rules against a model of who uses what.
//
// Counts are texts "kind name user". Most stand on two sides, with the object and with its user; each side
// must say what the model says.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <random>
#include <set>

#include "fp_api/fp_global_ctrl.h"
#include "fp_api/fp_tables.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/peers/tarn_ttm.h"
#include "tests/tarnd/config/rule_text.h"

namespace {

using t_counts = std::map<std::string, int>;

struct t_model_rule {
    t_tarn_config_rule *p_rule;
    std::map<uint32_t, std::pair<std::string, int>> matches;  // by field type: list, and fields made of it
    std::map<uint32_t, std::vector<std::string>> actions;     // by tag: what they name
};

}  // namespace

static constexpr e_tarn_field_type list_types[] = {TARN_FIELD_TYPE_SRC_PFX_LIST, TARN_FIELD_TYPE_DST_PFX_LIST,
                                                   TARN_FIELD_TYPE_DPI_APP_LIST,
                                                   TARN_FIELD_TYPE_DPI_DNS_APP_LIST};
static const std::map<uint32_t, std::string> kinds = {
    {TARN_FIELD_TYPE_SRC_PFX_LIST, "prefix "}, {TARN_FIELD_TYPE_DST_PFX_LIST, "prefix "},
    {TARN_FIELD_TYPE_DPI_APP_LIST, "app "},    {TARN_FIELD_TYPE_DPI_DNS_APP_LIST, "app "},
    {TARN_ACTION_TAG_COUNT, "counter "},       {TARN_ACTION_TAG_MIRROR, "mirror "},
    {TARN_ACTION_TAG_POLICER, "policer "},     {TARN_ACTION_TAG_CFLOWD, "flow "},
    {TARN_ACTION_TAG_TLOC, "tloc "},           {TARN_ACTION_TAG_TLOC_LIST, "tloc "},
};
static constexpr uint32_t tags[] = {TARN_ACTION_TAG_COUNT,   TARN_ACTION_TAG_MIRROR,
                                    TARN_ACTION_TAG_POLICER, TARN_ACTION_TAG_CFLOWD,
                                    TARN_ACTION_TAG_TLOC,    TARN_ACTION_TAG_TLOC_LIST};
static constexpr e_tarn_policy_type types[] = {TARN_POLICY_TYPE_DATA, TARN_POLICY_TYPE_PFR};
static const char *const vpn_lists[] = {"l1", "l2"};
static const char *const names[] = {"x", "y", "zz"};  // of everything that a rule can name

static bool is_pfx(uint32_t f_type)
{
    return f_type == TARN_FIELD_TYPE_SRC_PFX_LIST || f_type == TARN_FIELD_TYPE_DST_PFX_LIST;
}

template <typename t_record, typename F>
static void each(const avl_tree_t &tree, F visit)
{
    for (void *p = avl_first(&tree); p != nullptr; p = avl_walk(&tree, p))
        visit(*static_cast<const t_record *>(p));
}

static std::string context_text(uint32_t type, const char *list)
{
    return std::to_string(type) + "/" + list;
}

static std::string rule_text(const t_tarn_config_rule &rule)
{
    return context_text(rule.policy->key.type, rule.key.name) + "/" + std::to_string(rule.key.id);
}

static std::string tloc_text(const t_tloc_id &tloc)
{
    return std::to_string(reinterpret_cast<const uint8_t *>(&tloc.addr.u)[3]);
}

// Who a use is counted for. Mirrors don't tell the policy's type, and neither do policers.
static std::string user_text(uint32_t kind, const t_tarn_config_rule &rule)
{
    switch (kind) {
    case TARN_ACTION_TAG_CFLOWD:
        return "";
    case TARN_ACTION_TAG_MIRROR:
        return rule.key.name;
    case TARN_ACTION_TAG_POLICER:
        return rule.key.name + ("/" + std::to_string(rule.key.id));
    case TARN_ACTION_TAG_TLOC:
    case TARN_ACTION_TAG_TLOC_LIST:
        return rule_text(rule);
    default:
        return context_text(rule.policy->key.type, rule.key.name);
    }
}

// ---- The two sides ----

static void note(t_counts *p_counts, const std::string &kind_and_name, const std::string &user,
                 uint32_t count)
{
    (*p_counts)[kind_and_name + " " + user] += static_cast<int>(count);
}

static void note_policer(t_counts *p_counts, const t_tarn_policer_config &instance)
{
    std::string user = instance.bind_name + ("/" + std::to_string(instance.key.sequence_id));
    note(p_counts, std::string("policer ") + instance.key.name, user, 1);
}

static t_counts counts_of_objects(const t_tarn &tarn)
{
    t_counts counts;
    each<t_tarn_pfx_list>(tarn.pfx_list_db, [&](const auto &list) {
        each<t_tarn_vpn_list_ref>(list.vpn_list_db, [&](const auto &ref) {
            note(&counts, std::string("prefix ") + list.key.name,
                 context_text(ref.key.pol_type, ref.key.name), ref.ref_count);
        });
    });
    each<t_tarn_dpi_app_list>(tarn.dpi_app_list_db, [&](const auto &list) {
        each<t_tarn_dpi_policy_vpn_list_ctx>(list.vpn_list_db, [&](const auto &ref) {
            note(&counts, std::string("app ") + list.key.name, context_text(ref.key.pol_type, ref.key.name),
                 ref.ref_count);
        });
    });
    each<t_tarn_mirror_config>(tarn.mirror_db, [&](const auto &mirror) {
        each<t_tarn_mirror_ref>(mirror.ref_db, [&](const auto &ref) {
            note(&counts, std::string("mirror ") + mirror.key.name, ref.name,
                 static_cast<uint32_t>(ref.ref_count));
        });
    });
    each<t_tarn_policer_config>(tarn.policer_db, [&](const auto &policer) {
        each<t_tarn_policer_config>(policer.instance_db,
                                    [&](const auto &instance) { note_policer(&counts, instance); });
    });
    each<t_tarn_tloc>(tarn.tloc_db, [&](const auto &tloc) {
        EXPECT_TRUE(tloc.resolved || avl_numnodes(&tloc.rule_ctx_db) > 0);
        each<t_tarn_tloc_rule_ctx>(tloc.rule_ctx_db, [&](const auto &ctx) {
            note(&counts, "tloc " + tloc_text(tloc.tloc), rule_text(*ctx.p_rule), ctx.ref_count);
        });
    });
    return counts;
}

static void note_context(t_counts *p_counts, const std::string &self, const t_tarn_policy_vpn_list &context)
{
    each<t_tarn_pfx_list_ref>(context.pfx_list_db, [&](const auto &ref) {
        note(p_counts, std::string("prefix ") + ref.key.name, self, ref.ref_count);
    });
    each<t_tarn_dpi_app_ctx>(context.dpi_app_list_db, [&](const auto &ctx) {
        note(p_counts, std::string("app ") + ctx.p_app_list->key.name, self, ctx.ref_count);
    });
    each<t_tarn_config_counter_ref>(context.counter_db, [&](const auto &ref) {
        note(p_counts, std::string("counter ") + ref.name, self, ref.ref_count);
    });
    each<t_tarn_policer_config>(context.policer_db,
                                [&](const auto &instance) { note_policer(p_counts, instance); });
    each<t_tarn_config_rule>(context.rule_db, [&](const auto &rule) {
        each<t_tarn_config_rule_tloc_ctx>(rule.tloc_ctx_db, [&](const auto &ctx) {
            note(p_counts, "tloc " + tloc_text(ctx.p_tloc->tloc), rule_text(rule), ctx.ref_count);
        });
    });
}

// ---- The life ----

namespace {

// Two policies of different types with the same name on the same lists.
struct RuleModel {
    explicit RuleModel(uint32_t seed) : random(seed)
    {
        g_fp_global_ctrl = &control;
        for (const char *list : vpn_lists)
            world.add_vpn_list(list, 1);
        for (e_tarn_policy_type type : types)
            world.add_policy(type, "p", {"l1", "l2"});
        for (const char *name : names) {
            t_tarn_policer_config config = policer_config(name, 8, 1, 0);
            EXPECT_EQ(tarn_config_policer_add(&world.tarn, &config), 0);
            EXPECT_EQ(tarn_config_mirror_add(&world.tarn, name, nullptr, nullptr), 0);
            world.add_app_list(name, {"web", "mail"});
            world.add_pfx_list(name, {});
        }
    }

    ~RuleModel()
    {
        g_fp_global_ctrl = nullptr;
    }

    uint32_t below(size_t bound)
    {
        return static_cast<uint32_t>(random() % bound);
    }

    int members_of(const std::string &list) const
    {
        return static_cast<int>(avl_numnodes(
            &tarn_pfx_list_find(&world.tarn, list.c_str(), TARN_POLICY_PFX_LIST_TYPE_KEELSON)->ip_pfx_db));
    }

    // The first 16 of the sequence's list.
    std::vector<std::string> elements_of(const t_tarn_config_rule *p_rule) const
    {
        t_tarn_vpn_list_key2 key = {"", "p", p_rule->policy->key.type};
        strcpy(key.name, p_rule->key.name);
        std::vector<std::string> elements;
        const auto *p_list = tarn_tloc_list_find(&world.tarn, &key, static_cast<uint16_t>(p_rule->key.id));
        if (p_list != nullptr)
            each<t_tarn_tloc_elem>(p_list->tloc_db, [&](const t_tarn_tloc_elem &element) {
                if (elements.size() < 16)
                    elements.push_back(tloc_text(element.tloc));
            });
        return elements;
    }

    // A pass expands the lists of what has changed anew.
    void rebuild()
    {
        for (auto &[key, rule] : rules) {
            if (!rule.p_rule->vpn_list->changed)
                continue;
            for (auto &[f_type, use] : rule.matches)
                if (is_pfx(f_type) && use.second > 0)  // without members the rule has forgotten the list
                    use.second = members_of(use.first);
            if (rule.actions.contains(TARN_ACTION_TAG_TLOC_LIST))
                rule.actions[TARN_ACTION_TAG_TLOC_LIST] = elements_of(rule.p_rule);
        }
        world.pass();
    }

    void toggle_prefix()
    {
        const char *list = names[below(3)];
        std::string prefix = std::to_string(1 + below(3)) + ".0.0.0/8";
        bool added = prefixes.insert(list + prefix).second;
        if (!added)
            prefixes.erase(list + prefix);
        added ? world.add_prefix(list, prefix.c_str()) : world.delete_prefix(list, prefix.c_str());
    }

    void toggle_rule()
    {
        e_tarn_policy_type type = types[below(2)];
        const char *list = vpn_lists[below(2)];
        uint32_t id = 1 + below(3);
        auto [found, added] = rules.try_emplace(context_text(type, list) + "/" + std::to_string(id));
        if (added) {
            found->second.p_rule = world.add_rule(type, "p", list, id);
            return;
        }
        world.delete_rule(found->second.p_rule);
        rules.erase(found);
    }

    void toggle_match(t_model_rule &rule, e_tarn_field_type f_type)
    {
        if (rule.matches.erase(f_type) > 0) {
            tarn_config_field_delete(&world.tarn, f_type, rule.p_rule, nullptr, nullptr);
            return;
        }
        const char *list = names[below(3)];
        is_pfx(f_type) ? world.add_pfx_list_match(rule.p_rule, f_type, list)
                       : world.add_app_list_match(rule.p_rule, f_type, list);
        rule.matches[f_type] = {list, is_pfx(f_type) ? members_of(list) : 1};
    }

    void toggle_action(t_model_rule &rule, uint32_t tag)
    {
        const t_tarn_config_rule *p_rule = rule.p_rule;
        const t_tarn_policy_key &policy = p_rule->policy->key;
        if (rule.actions.erase(tag) > 0) {
            EXPECT_EQ(tarn_config_action_delete(&world.tarn, policy.type, "p", p_rule->key.name,
                                                p_rule->key.id, tag),
                      0);
            return;
        }
        auto number = static_cast<uint8_t>(below(4));
        bool is_tloc = tag == TARN_ACTION_TAG_TLOC;
        std::string name = is_tloc ? std::to_string(number) : names[number % 3];
        t_tarn_tloc_args tloc = {test_tloc(number), 1};
        if (tag == TARN_ACTION_TAG_TLOC_LIST)
            add_tloc_element(&world, p_rule, next_element++, number, below(3), 1);
        bool refused = tag == TARN_ACTION_TAG_POLICER &&
                       expected().contains("policer " + name + " " + user_text(tag, *p_rule));
        int status =
            tarn_config_action_add(&world.tarn, policy.type, "p", p_rule->key.name, p_rule->key.id, tag,
                                   is_tloc ? static_cast<const void *>(&tloc) : name.c_str(), nullptr);
        EXPECT_EQ(status, refused ? EEXIST : 0);
        if (!refused)
            rule.actions[tag] = tag == TARN_ACTION_TAG_TLOC_LIST ? elements_of(p_rule) : std::vector{name};
    }

    void step()
    {
        switch (below(16)) {
        case 0:
            return toggle_prefix();
        case 1:
            rebuild();
            return withdraw_tlocs(&world);
        case 2:
            rebuild();
            return announce_tloc(&world, static_cast<uint8_t>(below(4)), 1);
        case 3:
            return rebuild();
        case 4:
        case 5:
            return toggle_rule();
        default:
            break;
        }
        if (rules.empty())
            return;
        t_model_rule &rule = std::next(rules.begin(), below(rules.size()))->second;
        below(2) == 0 ? toggle_match(rule, list_types[below(4)]) : toggle_action(rule, tags[below(6)]);
    }

    t_counts expected() const
    {
        t_counts counts;
        for (const auto &[key, rule] : rules) {
            for (const auto &[f_type, use] : rule.matches)
                if (use.second > 0)
                    counts[kinds.at(f_type) + use.first + " " + user_text(f_type, *rule.p_rule)] +=
                        use.second;
            for (const auto &[tag, used] : rule.actions)
                for (const std::string &name : used)
                    counts[kinds.at(tag) + name + " " + user_text(tag, *rule.p_rule)]++;
        }
        return counts;
    }

    // The model's counts of some kinds.
    t_counts expected(const std::vector<std::string> &wanted) const
    {
        t_counts counts = expected();
        std::erase_if(counts, [&](const auto &entry) {
            std::string kind = entry.first.substr(0, entry.first.find(' '));
            return std::find(wanted.begin(), wanted.end(), kind) == wanted.end();
        });
        return counts;
    }

    void check() const
    {
        EXPECT_EQ(counts_of_objects(world.tarn), expected({"prefix", "app", "mirror", "policer", "tloc"}));
        t_counts users;
        each<t_tarn_policy>(world.tarn.policy_db, [&](const auto &policy) {
            each<t_tarn_policy_vpn_list>(policy.vpn_list_db, [&](const auto &context) {
                note_context(&users, context_text(policy.key.type, context.key.name), context);
            });
        });
        EXPECT_EQ(users, expected({"prefix", "app", "counter", "policer", "tloc"}));
        auto sum = [](const t_counts &counts) {
            int all = 0;
            for (const auto &[key, count] : counts)
                all += count;
            return all;
        };
        EXPECT_EQ(world.tarn.dpi_ref, sum(expected({"app"})));
        EXPECT_EQ(world.tarn.flow_ref, sum(expected({"flow"})));
    }

    void tear_down()
    {
        for (e_tarn_policy_type type : types)
            EXPECT_EQ(tarn_policy_delete(&world.tarn, type, "p"), 0);
        rules.clear();
        withdraw_tlocs(&world);
        check();
        EXPECT_EQ(avl_numnodes(&world.tarn.tloc_db), 0u);
    }

    std::mt19937 random;
    t_fp_global_ctrl control = {};
    PassWorld world;
    std::map<std::string, t_model_rule> rules;
    std::set<std::string> prefixes;
    uint32_t next_element = 0;
};

}  // namespace

TEST(RuleModelTest, CountsAreExactThroughARandomLifeAndNothingRemains)
{
    for (uint32_t seed = 1; seed <= 12; seed++) {
        SCOPED_TRACE(seed);
        RuleModel model(seed);
        for (int i = 0; i < 800 && !testing::Test::HasFailure(); i++) {
            model.step();
            if (i % 5 == 0)
                model.check();
        }
        model.tear_down();
        ASSERT_FALSE(testing::Test::HasFailure());
    }
}
