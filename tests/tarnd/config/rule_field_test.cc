// Match fields: each kind as the compiler sees it, lists expanded, and what deletion gives back.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "fp_api/fp_global_ctrl.h"
#include "fp_api/fp_tables.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tests/tarnd/config/rule_text.h"

class RuleField : public testing::Test {
protected:
    RuleField()
    {
        g_fp_global_ctrl = &control;
        world.add_vpn_list("l", 1);
        world.add_policy(TARN_POLICY_TYPE_DATA, "p", {"l"});
        t_tarn_class_params params = {"voice", 2};
        EXPECT_EQ(tarn_class_add(&world.tarn, &params), 0);
        world.add_pfx_list("two", {"10.1.0.0/16", "192.0.2.0/24"});
        world.add_pfx_list("all", {"0.0.0.0/0", "10.0.0.0/8"});
        world.add_pfx_list("none", {});
        world.add_app_list("families", {"web", "mail"});
        EXPECT_EQ(tarn_config_app_list_add(&world.tarn, "apps", TARN_DPI_KEY_LOC_KEELSON), 0);
        EXPECT_EQ(tarn_config_app_list_add_app(&world.tarn, "apps", TARN_DPI_KEY_LOC_KEELSON,
                                               TARN_DPI_TYPE_APP, "unclassified"),
                  0);
    }

    ~RuleField() override
    {
        g_fp_global_ctrl = nullptr;
    }

    t_fp_global_ctrl control = {};
    PassWorld world;
};
using RuleFieldGolden = RuleField;

static const uint32_t value_6 = 6, value_1 = 1;
static const t_tarn_range ports = {80, 443}, reversed = {9, 3};
static const confd_ipv4_prefix prefix_16 = test_prefix("10.1.0.0/16");
static const confd_ipv4_prefix host_32 = test_prefix("10.1.2.3/32");
static const confd_ipv4_prefix everything = test_prefix("10.0.0.0/0");
static const t_tarn_pfx_list_key list_two = {"two", TARN_POLICY_PFX_LIST_TYPE_KEELSON};
static const t_tarn_pfx_list_key list_all = {"all", TARN_POLICY_PFX_LIST_TYPE_KEELSON};
static const t_tarn_pfx_list_key list_none = {"none", TARN_POLICY_PFX_LIST_TYPE_KEELSON};
static const t_tarn_pfx_list_key list_local = {"two", TARN_POLICY_PFX_LIST_TYPE_LOCAL};
static const t_tarn_dpi_app_list_key families = {"families", TARN_DPI_KEY_LOC_KEELSON};
static const t_tarn_dpi_app_list_key apps = {"apps", TARN_DPI_KEY_LOC_KEELSON};
static const t_tarn_dpi_app_list_key apps_local = {"apps", TARN_DPI_KEY_LOC_LOCAL};

// The list that a field came from.
static const char *list_name(e_tarn_field_type f_type, const void *f_data)
{
    switch (f_type) {
    case TARN_FIELD_TYPE_SRC_PFX_LIST:
    case TARN_FIELD_TYPE_DST_PFX_LIST:
        return static_cast<const t_tarn_pfx_list_key *>(f_data)->name;
    case TARN_FIELD_TYPE_DPI_APP_LIST:
    case TARN_FIELD_TYPE_DPI_DNS_APP_LIST:
        return static_cast<const t_tarn_dpi_app_list_key *>(f_data)->name;
    default:
        return "";
    }
}

TEST_F(RuleFieldGolden, EachKindAsTheCompilerSeesIt)
{
    static const struct {
        uint32_t f_type;
        const void *f_data;
        int status;
        const char *fields;
    } rows[] = {
        {0, &value_6, 74, ""},
        {1, &value_6, 0, "1:6-6"},
        {1, nullptr, 74, ""},
        {2, &ports, 0, "2:50-1bb"},
        {3, &reversed, 0, "3:3-9"},
        {4, &prefix_16, 0, "4:a010000-a01ffff"},
        {5, &host_32, 0, "5:a010203-a010203"},
        {4, &everything, 0, ""},
        {6, &list_two, 0, "4:a010000-a01ffff,c0000200-c00002ff"},
        {7, &list_all, 0, "5:0-0,a000000-affffff"},
        {6, &list_none, 0, ""},
        {6, &list_local, 2, ""},
        {8, &value_6, 0, "6:6-6"},
        {9, "voice", 0, "7:1-1"},
        {9, "video", 22, ""},
        {10, &value_1, 0, "8:1-1"},
        {11, &ports, 0, "9:50-1bb"},
        {12, &value_6, 22, ""},
        {13, &value_6, 22, ""},
        {14, &apps, 0, "10:1-1"},
        {14, &families, 0, "11:f-f,1e-1e"},
        {14, &apps_local, 2, ""},
        {15, &value_6, 0, ""},
        {16, &value_6, 0, "13:6-6"},
        {17, &value_6, 0, "14:6-6"},
        {18, &value_1, 0, "15:1-1"},
        {19, &value_6, 22, ""},
        {20, &value_6, 22, ""},
        {21, &apps, 0, "16:1-1"},
        {21, &families, 0, "17:f-f,1e-1e"},
        {22, &value_1, 0, "18:1-1"},
        {23, &value_6, 74, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.f_type << ' ' << row.fields);
        auto f_type = static_cast<e_tarn_field_type>(row.f_type);
        bool is_app_list =
            f_type == TARN_FIELD_TYPE_DPI_APP_LIST || f_type == TARN_FIELD_TYPE_DPI_DNS_APP_LIST;
        t_tarn_config_rule *p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", 10);
        int counted = 0;
        if (is_app_list && row.status == 0)  // as the parser does
            counted =
                tarn_config_add_app_list_to_policy(&world.tarn, list_name(f_type, row.f_data),
                                                   TARN_DPI_KEY_LOC_KEELSON, TARN_POLICY_TYPE_DATA, "p", "l");
        EXPECT_EQ(counted, 0);
        EXPECT_EQ(tarn_config_field_add(&world.tarn, f_type, row.f_data, p_rule), row.status);
        EXPECT_EQ(fields_text(table_of(&world, p_rule)), row.fields);

        int present = 0;
        char name[TARN_NAME_SIZE] = "";
        EXPECT_EQ(tarn_config_field_delete(&world.tarn, f_type, p_rule, &present, name), 0);
        EXPECT_EQ(present, *row.fields != '\0' || f_type == TARN_FIELD_TYPE_MATCH_ANY);
        EXPECT_STREQ(name, present ? list_name(f_type, row.f_data) : "");
        EXPECT_EQ(p_rule->field_list.count, f_type == TARN_FIELD_TYPE_MATCH_ANY ? 0 : 1);
        EXPECT_EQ(world.tarn.dpi_ref, 0);
        world.delete_rule(p_rule);
    }
}

TEST_F(RuleField, AnAccessListCountsEachPrefixOfItsLocalLists)
{
    EXPECT_EQ(tarn_config_pfx_list_add(&world.tarn, "local", TARN_POLICY_PFX_LIST_TYPE_LOCAL), 0);
    for (const char *text : {"10.0.0.0/8", "10.0.0.0/9", "10.0.0.0/10"}) {
        confd_ipv4_prefix prefix = test_prefix(text);
        EXPECT_EQ(tarn_config_ip_pfx_add(&world.tarn, "local", TARN_POLICY_PFX_LIST_TYPE_LOCAL, &prefix), 0);
    }
    t_tarn_access_list access_list = {};
    strcpy(access_list.key.name, "acl");
    avl_create(&access_list.pfx_list_db, tarn_access_pfx_list_cmp, sizeof(t_tarn_access_pfx_ctx),
               offsetof(t_tarn_access_pfx_ctx, avl_node));
    t_tarn_config_rule rule = {};
    rule.access_list = &access_list;
    t_tarn_pfx_list_key key = {"local", TARN_POLICY_PFX_LIST_TYPE_LOCAL};
    EXPECT_EQ(tarn_config_field_add(&world.tarn, TARN_FIELD_TYPE_SRC_PFX_LIST, &key, &rule), 0);
    EXPECT_EQ(tarn_config_field_add(&world.tarn, TARN_FIELD_TYPE_DST_PFX_LIST, &key, &rule), 0);

    t_tarn_pfx_list *p_list = tarn_pfx_list_find(&world.tarn, "local", TARN_POLICY_PFX_LIST_TYPE_LOCAL);
    const auto *p_use = static_cast<t_tarn_pfx_access_ctx *>(avl_first(&p_list->access_list_db));
    const auto *p_twin = static_cast<t_tarn_access_pfx_ctx *>(avl_first(&access_list.pfx_list_db));
    ASSERT_TRUE(p_use != nullptr && p_twin != nullptr);
    EXPECT_EQ(p_use->ref_count, 6u);
    EXPECT_EQ(p_twin->ref_count, 6u);
    tarn_config_field_delete(&world.tarn, TARN_FIELD_TYPE_SRC_PFX_LIST, &rule, nullptr, nullptr);
    EXPECT_EQ(p_use->ref_count, 3u);
    EXPECT_EQ(p_twin->ref_count, 3u);
    tarn_config_field_delete(&world.tarn, TARN_FIELD_TYPE_DST_PFX_LIST, &rule, nullptr, nullptr);
    EXPECT_EQ(avl_numnodes(&p_list->access_list_db) + avl_numnodes(&access_list.pfx_list_db), 0u);

    // The parser gives an access list's application lists back.
    EXPECT_EQ(tarn_config_field_add(&world.tarn, TARN_FIELD_TYPE_DPI_APP_LIST, &apps, &rule), 0);
    int present = 0;
    tarn_config_field_delete(&world.tarn, TARN_FIELD_TYPE_DPI_APP_LIST, &rule, &present, nullptr);
    EXPECT_EQ(present, 1);
    EXPECT_EQ(rule.field_list.count, 0);
}

TEST_F(RuleField, DeletionLowersTheCountsOfRulesThatCacheNothing)
{
    static const struct {
        e_tarn_field_type f_type;
        uint16_t before, after;
        bool all;
    } rows[] = {
        {TARN_FIELD_TYPE_PKT_LEN, 0, 9998, false},  {TARN_FIELD_TYPE_PKT_LEN, 1, 0, false},
        {TARN_FIELD_TYPE_PKT_LEN, 500, 499, false}, {TARN_FIELD_TYPE_PKT_LEN, 500, 500, true},
        {TARN_FIELD_TYPE_DSCP, 0, 65535, false},    {TARN_FIELD_TYPE_DSCP, 2, 1, false},
        {TARN_FIELD_TYPE_DSCP, 2, 2, true},         {TARN_FIELD_TYPE_PROTOCOL, 3, 3, false},
    };
    for (const auto &row : rows) {
        t_tarn_config_rule *p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", 10);
        EXPECT_EQ(tarn_config_field_add(&world.tarn, row.f_type, &ports, p_rule), 0);
        bool is_length = row.f_type == TARN_FIELD_TYPE_PKT_LEN;
        uint16_t &count = is_length ? control.cft_policy_cache_disable : control.cft_policy_dscp_disable;
        count = row.before;
        if (!row.all)
            tarn_config_field_delete(&world.tarn, row.f_type, p_rule, nullptr, nullptr);
        world.delete_rule(p_rule);
        EXPECT_EQ(count, row.after) << row.f_type << ' ' << row.before;
    }
}

TEST_F(RuleField, RulesStandInTheOrderOfTheirSequences)
{
    for (uint32_t id : {30, 10, 20, 0, 65535})
        world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", id);
    std::vector<uint32_t> ids;
    t_tarn_policy_vpn_list *p_context = world.context(TARN_POLICY_TYPE_DATA, "p", "l");
    for (t_dlnode *p = p_context->rule_list.p_head; p != nullptr; p = p->p_next)
        ids.push_back(DLL_RECORD(p, t_tarn_config_rule, dlnode)->key.id);
    EXPECT_EQ(ids, (std::vector<uint32_t>{0, 10, 20, 30, 65535}));
    t_tarn_config_rule *p_rule = nullptr;
    t_tarn *p_tarn = &world.tarn;
    EXPECT_EQ(tarn_config_rule_add(p_tarn, TARN_POLICY_TYPE_DATA, "p", "l", 20, nullptr), EEXIST);
    EXPECT_EQ(tarn_config_rule_add(p_tarn, TARN_POLICY_TYPE_PFR, "p", "l", 20, nullptr), ENOENT);
    EXPECT_EQ(tarn_config_rule_lookup(p_tarn, TARN_POLICY_TYPE_DATA, "p", "m", 20, nullptr), ENOENT);
    EXPECT_EQ(tarn_config_rule_lookup(p_tarn, TARN_POLICY_TYPE_DATA, "p", "l", 21, &p_rule), ENOENT);
    EXPECT_EQ(p_rule, nullptr);
    p_context->changed = 0;
    EXPECT_EQ(tarn_config_rule_delete(p_tarn, TARN_POLICY_TYPE_DATA, "p", "l", 20), 0);
    EXPECT_EQ(p_context->changed, 1);
    EXPECT_EQ(tarn_config_rule_delete(p_tarn, TARN_POLICY_TYPE_DATA, "p", "l", 20), ENOENT);
    EXPECT_EQ(p_context->rule_list.count, 4);
}
