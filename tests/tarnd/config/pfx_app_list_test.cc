// Prefix lists and application lists: members, users, and the counts on both sides.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>

#include "platform/confd/confd_lib.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_process.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/config/pass_world.h"

static constexpr e_tarn_policy_type DATA = TARN_POLICY_TYPE_DATA;
static constexpr auto LOCAL_PFX = TARN_POLICY_PFX_LIST_TYPE_LOCAL;
static constexpr auto KEELSON_PFX = TARN_POLICY_PFX_LIST_TYPE_KEELSON;
static constexpr auto LOCAL_APP = TARN_DPI_KEY_LOC_LOCAL;
static constexpr auto KEELSON_APP = TARN_DPI_KEY_LOC_KEELSON;

// ---- Members ----

TEST(PfxList, MembersGoByLengthFirstAndListsByKind)
{
    TarnStore store;
    t_tarn *p_tarn = &store.tarn;
    EXPECT_EQ(tarn_config_pfx_list_add(p_tarn, "x", KEELSON_PFX), 0);
    EXPECT_EQ(tarn_config_pfx_list_add(p_tarn, "longer", LOCAL_PFX), 0);
    EXPECT_EQ(tarn_config_pfx_list_add(p_tarn, "x", LOCAL_PFX), 0);
    EXPECT_EQ(tarn_config_pfx_list_add(p_tarn, "x", LOCAL_PFX), EEXIST);
    EXPECT_EQ(avl_first(&p_tarn->pfx_list_db), tarn_pfx_list_find(p_tarn, "longer", LOCAL_PFX));

    for (const char *text : {"10.0.0.0/24", "10.0.0.1/32", "9.0.0.0/24", "255.0.0.0/8", "10.0.0.0/32"}) {
        confd_ipv4_prefix prefix = test_prefix(text);
        EXPECT_EQ(tarn_config_ip_pfx_add(p_tarn, "x", KEELSON_PFX, &prefix), 0);
    }
    const avl_tree_t &members = tarn_pfx_list_find(p_tarn, "x", KEELSON_PFX)->ip_pfx_db;
    std::string order;
    for (void *p = avl_first(&members); p != nullptr; p = avl_walk(&members, p)) {
        const t_tarn_ip_pfx_key &key = static_cast<t_tarn_ip_pfx *>(p)->key;
        order += std::to_string(static_cast<uint8_t>(key.prefix_str[0])) + "." +
                 std::to_string(key.prefix_str[3]) + "/" + std::to_string(key.prefix_len) + " ";
    }
    EXPECT_EQ(order, "255.0/8 9.0/24 10.0/24 10.0/32 10.1/32 ");
    EXPECT_EQ(avl_numnodes(&tarn_pfx_list_find(p_tarn, "x", LOCAL_PFX)->ip_pfx_db), 0u);
}

static std::string member_names(const t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    const t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, name, loc);
    std::string text = std::to_string(p_list->type) + ":";
    for (void *p = avl_first(&p_list->app_db); p != nullptr; p = avl_walk(&p_list->app_db, p))
        text += std::string(" ") + static_cast<t_tarn_dpi_app *>(p)->name + "=" +
                std::to_string(static_cast<t_tarn_dpi_app *>(p)->id);
    return text;
}

TEST(AppList, ApplicationsOrFamiliesNeverBoth)
{
    static const struct {
        const char *behaviour;
        bool adds;
        e_tarn_dpi_app_list_type type;
        const char *name;
        int status;
        const char *members;
        const char *log;
    } steps[] = {
        {"the fixed id", true, TARN_DPI_TYPE_APP, "unclassified", 0, "1: unclassified=1", ""},
        {"twice", true, TARN_DPI_TYPE_APP, "unclassified", EEXIST, "1: unclassified=1", ""},
        {"an unknown one of the kind", true, TARN_DPI_TYPE_APP, "nosuch", 0, "1: unclassified=1",
         "Skipping the app - nosuch. Not supported."},
        {"an unknown one of the other kind still wipes", true, TARN_DPI_TYPE_APP_FAMILY, "nosuch", 0,
         "1:", "Skipping the app family - nosuch. Not supported."},
        {"refill", true, TARN_DPI_TYPE_APP, "unclassified", 0, "1: unclassified=1", ""},
        {"a family wipes", true, TARN_DPI_TYPE_APP_FAMILY, "webmail", 0, "2: webmail=31", ""},
        {"by id", true, TARN_DPI_TYPE_APP_FAMILY, "audio_video", 0, "2: audio_video=3 webmail=31", ""},
        {"deletion under the other kind", false, TARN_DPI_TYPE_APP, "unclassified", ENOENT,
         "2: audio_video=3 webmail=31", ""},
        {"deletion of one not there", false, TARN_DPI_TYPE_APP_FAMILY, "game", 0,
         "2: audio_video=3 webmail=31", ""},
        {"deletion of an unknown one", false, TARN_DPI_TYPE_APP_FAMILY, "nosuch", 0,
         "2: audio_video=3 webmail=31", "Skipping the app family - nosuch. Not supported."},
        {"deletion", false, TARN_DPI_TYPE_APP_FAMILY, "audio_video", 0, "2: webmail=31", ""},
    };
    TarnStore store;
    EXPECT_EQ(tarn_config_app_list_add(&store.tarn, "media", LOCAL_APP), 0);
    EXPECT_EQ(tarn_config_app_list_add(&store.tarn, "media", KEELSON_APP), 0);
    EXPECT_EQ(tarn_config_app_list_add(&store.tarn, "media", KEELSON_APP), EEXIST);
    for (const auto &step : steps) {
        SCOPED_TRACE(step.behaviour);
        syslog_lines_take();
        auto *operation = step.adds ? tarn_config_app_list_add_app : tarn_config_app_list_delete_app;
        EXPECT_EQ(operation(&store.tarn, "media", KEELSON_APP, step.type, step.name), step.status);
        EXPECT_EQ(member_names(&store.tarn, "media", KEELSON_APP), step.members);
        std::vector<t_syslog_line> lines = syslog_lines_take();
        EXPECT_EQ(lines.empty() ? "" : lines.back().text, step.log);
    }
    EXPECT_EQ(member_names(&store.tarn, "media", LOCAL_APP), "0:");
}

// ---- Access lists ----

static std::unique_ptr<t_tarn_access_list> make_access_list(TarnStore *p_store, const char *name)
{
    auto p_access_list = std::make_unique<t_tarn_access_list>();
    *p_access_list = {};
    strcpy(p_access_list->key.name, name);
    avl_create(&p_access_list->dpi_app_list_db, tarn_dpi_app_list_ctx_cmp, sizeof(t_tarn_dpi_app_ctx),
               offsetof(t_tarn_dpi_app_ctx, avl_node));
    avl_create(&p_access_list->pfx_list_db, tarn_access_pfx_list_cmp, sizeof(t_tarn_access_pfx_ctx),
               offsetof(t_tarn_access_pfx_ctx, avl_node));
    EXPECT_EQ(avl_insert(&p_store->tarn.access_list_db, p_access_list.get()), 0);
    return p_access_list;
}

TEST(AppList, AccessListsCountAndAreMarkedButWantNoClassification)
{
    TarnStore store;
    t_tarn *p_tarn = &store.tarn;
    auto p_access_list = make_access_list(&store, "edge");
    EXPECT_EQ(tarn_config_app_list_add(p_tarn, "media", LOCAL_APP), 0);
    auto take = [&](const char *list, const char *user) {
        return tarn_config_add_app_list_to_policy(p_tarn, list, LOCAL_APP, TARN_AF_TYPE_IPV4, user, nullptr);
    };
    auto give = [&](const char *user) {
        return tarn_config_remove_app_list_from_policy(p_tarn, "media", LOCAL_APP, TARN_AF_TYPE_IPV4, user,
                                                       nullptr);
    };
    EXPECT_EQ(take("absent", "edge"), ENOENT);
    EXPECT_EQ(take("media", "absent"), ENOENT);
    EXPECT_EQ(give("absent"), ENOENT);
    EXPECT_EQ(give("edge"), 0) << "nothing was taken";
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(take("media", "edge"), 0);
    EXPECT_EQ(tarn_config_app_list_change(p_tarn, "media", LOCAL_APP), 0);
    EXPECT_EQ(p_access_list->changed, 1);
    EXPECT_EQ(give("edge"), 0);
    EXPECT_EQ(static_cast<t_tarn_dpi_app_ctx *>(avl_first(&p_access_list->dpi_app_list_db))->ref_count, 2);
    EXPECT_EQ(p_tarn->dpi_ref, 0);
    EXPECT_EQ(tarn_config_app_list_delete(p_tarn, "media", LOCAL_APP), 0);
    EXPECT_EQ(avl_numnodes(&p_access_list->dpi_app_list_db), 0u) << "the twin goes along";
    avl_remove(&p_tarn->access_list_db, p_access_list.get());
}

// A use of a prefix list by an access list, on both sides.
static void tie(t_tarn_pfx_list *p_list, t_tarn_access_list *p_access_list)
{
    auto *p_user = static_cast<t_tarn_pfx_access_ctx *>(calloc(1, sizeof(t_tarn_pfx_access_ctx)));
    p_user->p_access_list = p_access_list;
    EXPECT_EQ(avl_insert(&p_list->access_list_db, p_user), 0);
    auto *p_use = static_cast<t_tarn_access_pfx_ctx *>(calloc(1, sizeof(t_tarn_access_pfx_ctx)));
    p_use->p_pfx_list = p_list;
    EXPECT_EQ(avl_insert(&p_access_list->pfx_list_db, p_use), 0);
}

TEST(PfxList, DeletionReachesTheAccessListsThatUseIt)
{
    TarnStore store;
    t_tarn *p_tarn = &store.tarn;
    auto p_first = make_access_list(&store, "edge");
    auto p_second = make_access_list(&store, "core");
    for (const char *name : {"office", "branch"}) {
        EXPECT_EQ(tarn_config_pfx_list_add(p_tarn, name, LOCAL_PFX), 0);
        for (t_tarn_access_list *p_access_list : {p_first.get(), p_second.get()})
            tie(tarn_pfx_list_find(p_tarn, name, LOCAL_PFX), p_access_list);
    }
    EXPECT_EQ(tarn_config_pfx_list_change(p_tarn, "office", LOCAL_PFX), 0);
    EXPECT_EQ(p_first->changed + p_second->changed, 2);
    EXPECT_EQ(tarn_config_pfx_list_delete(p_tarn, "office", LOCAL_PFX), 0);
    for (t_tarn_access_list *p_access_list : {p_first.get(), p_second.get()}) {
        auto *p_use = static_cast<t_tarn_access_pfx_ctx *>(avl_first(&p_access_list->pfx_list_db));
        EXPECT_STREQ(p_use->p_pfx_list->key.name, "branch");
        EXPECT_EQ(avl_numnodes(&p_access_list->pfx_list_db), 1u);
    }
    EXPECT_EQ(tarn_config_pfx_list_delete(p_tarn, "branch", LOCAL_PFX), 0);
    avl_destroy_nodes(&p_tarn->access_list_db, nullptr);
}

// ---- What a wrong caller runs into ----

TEST(PfxListDeathTest, FaultsOfCallersStopTheProcess)
{
    static const struct {
        const char *behaviour;
        void (*fault)(PassWorld *);
    } cases[] = {
        {"a member twice", [](PassWorld *p) { p->add_prefix("office", "10.0.0.0/8"); }},
        {"a member of no list", [](PassWorld *p) { p->add_prefix("absent", "10.0.0.0/8"); }},
        {"a member not there", [](PassWorld *p) { p->delete_prefix("office", "11.0.0.0/8"); }},
        {"a deletion from no list", [](PassWorld *p) { p->delete_prefix("absent", "10.0.0.0/8"); }},
        {"a list in use deleted",
         [](PassWorld *p) { tarn_config_pfx_list_delete(&p->tarn, "office", KEELSON_PFX); }},
        {"a use that nobody has",
         [](PassWorld *p) {
             t_tarn_policy *p_policy = nullptr;
             tarn_policy_lookup(&p->tarn, DATA, "branch", &p_policy);
             tarn_config_remove_pfx_list_from_policy(&p->tarn, "idle", p_policy,
                                                     p->context(DATA, "branch", "A"));
         }},
        {"no kind",
         [](PassWorld *p) { tarn_pfx_list_find(&p->tarn, "office", TARN_POLICY_PFX_LIST_TYPE_INVALID); }},
        {"a kind too far",
         [](PassWorld *p) { tarn_pfx_list_find(&p->tarn, "office", TARN_POLICY_PFX_LIST_TYPE_MAX); }},
        {"a use of applications counted down too far",
         [](PassWorld *p) {
             static_cast<t_tarn_dpi_app_ctx *>(avl_first(&p->context(DATA, "branch", "A")->dpi_app_list_db))
                 ->ref_count = 0;
             tarn_config_remove_app_list_from_policy(&p->tarn, "media", KEELSON_APP, DATA, "branch", "A");
         }},
    };
    PassWorld world;
    world.add_vpn_list("A", 1);
    world.add_pfx_list("office", {"10.0.0.0/8"});
    world.add_pfx_list("idle", {"10.0.0.0/8"});
    world.add_app_list("media", {"game"});
    world.add_policy(DATA, "branch", {"A"});
    t_tarn_config_rule *p_rule = world.add_rule(DATA, "branch", "A", 10);
    world.add_pfx_list_match(p_rule, TARN_FIELD_TYPE_SRC_PFX_LIST, "office");
    world.add_app_list_match(p_rule, TARN_FIELD_TYPE_DPI_APP_LIST, "media");
    for (const auto &c : cases)
        EXPECT_EXIT(c.fault(&world), testing::KilledBySignal(SIGSEGV), "") << c.behaviour;
}
