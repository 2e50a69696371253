// The store's fixed points: orders, invariants, what a failed allocation leaves, null arguments.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "fp_api/fp_tables.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/peers/tarn_ftm.h"
#include "tests/support/tarn_store.h"

// ---- A calloc that fails ----

static int g_callocs_left = -1;  // until one fails; below 0: none does

extern "C" {
void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size)
{
    return g_callocs_left >= 0 && g_callocs_left-- == 0 ? nullptr : __real_calloc(count, size);
}
}

// ---- Orders ----

template <typename t_record>
static t_record named(const char *name)
{
    t_record record = {};
    memcpy(record.key.name, name, strnlen(name, sizeof(record.key.name)));
    return record;
}

// Each row of the objects lies before the next.
template <typename t_record>
static void expect_ascending(f_avl_compare compare, const std::vector<t_record> &records)
{
    for (size_t i = 0; i < records.size(); i++) {
        for (size_t j = 0; j < records.size(); j++) {
            int order = compare(&records[i], &records[j]);
            EXPECT_EQ((order > 0) - (order < 0), (i > j) - (i < j)) << i << ' ' << j;
        }
    }
}

static t_tarn_policy policy(uint32_t type, const char *name)
{
    t_tarn_policy record = named<t_tarn_policy>(name);
    record.key.type = static_cast<e_tarn_policy_type>(type);
    return record;
}

static t_tarn_vpn_list_ref list_ref(uint32_t type, const char *policy_name, const char *name)
{
    t_tarn_vpn_list_ref record = named<t_tarn_vpn_list_ref>(name);
    record.key.pol_type = static_cast<e_tarn_policy_type>(type);
    strcpy(record.key.pol_name, policy_name);
    return record;
}

static t_tarn_vpn vpn(uint64_t min, uint64_t max)
{
    t_tarn_vpn record = {};
    record.key = {min, max};
    return record;
}

static t_tarn_access_list access_list(const char *name, e_tarn_af_type af_type)
{
    t_tarn_access_list record = named<t_tarn_access_list>(name);
    record.key.af_type = af_type;
    return record;
}

static t_tarn_intf intf(const char *name, uint8_t direction)
{
    t_tarn_intf record = {};
    memcpy(record.key.name, name, strnlen(name, sizeof(record.key.name)));
    record.key.direction = direction;
    return record;
}

TEST(StoreOrder, IsFixed)
{
    std::string full(TARN_NAME_SIZE, 'n');  // fills its field without a terminator
    expect_ascending<t_tarn_policy>(tarn_policy_key_cmp, {policy(1, "zz"), policy(1, "abc"), policy(2, "a"),
                                                          policy(2, full.c_str()), policy(0x80000000, "a")});
    expect_ascending<t_tarn_vpn_list>(tarn_vpn_list_key_cmp,
                                      {named<t_tarn_vpn_list>(""), named<t_tarn_vpn_list>("zz"),
                                       named<t_tarn_vpn_list>("aaa"), named<t_tarn_vpn_list>("aab"),
                                       named<t_tarn_vpn_list>(full.c_str())});
    // By letters alone.
    expect_ascending<t_tarn_vpn_list_ref>(
        tarn_vpn_list_ref_key_cmp,
        {list_ref(1, "b", "b"), list_ref(2, "aaa", "zz"), list_ref(2, "ab", "aaa"), list_ref(2, "ab", "ab")});
    expect_ascending<t_tarn_vpn>(
        tarn_vpn_key_cmp, {vpn(1, 2), vpn(1, uint64_t{1} << 63), vpn(2, 2), vpn(uint64_t{1} << 63, 0)});
    expect_ascending<t_tarn_access_list>(tarn_access_list_key_cmp, {access_list("z", TARN_AF_TYPE_IPV4),
                                                                    access_list("z", TARN_AF_TYPE_IPV6),
                                                                    access_list("aa", TARN_AF_TYPE_IPV4)});
    expect_ascending<t_tarn_intf>(tarn_intf_key_cmp, {intf("ge0/10", 1), intf("ge0/10", 2), intf("ge0/2", 1),
                                                      intf(full.substr(0, 33).c_str(), 1),
                                                      intf((full.substr(0, 32) + 'o').c_str(), 1)});
}

TEST(StoreOrder, FilterTypeOfAPolicyType)
{
    static constexpr int types[] = {2, 1, 2, 3, 2};
    for (uint32_t type = 0; type < 5; type++)
        EXPECT_EQ(tarn_get_filter_type(type), types[type]);
}

// ---- Set-up and arguments ----

TEST(Store, KnowsTheFlowKnobAndTakesNoNull)
{
    EXPECT_EQ(tarn_config_init(nullptr), EBADMSG);
    TarnStore store;
    EXPECT_EQ(store.tarn.flow_p, &store.flow_knob);
    t_tarn *p_tarn = &store.tarn;
    const auto data = TARN_POLICY_TYPE_DATA;
    t_tarn_vpn_list *p_list;
    const int statuses[] = {
        tarn_policy_add(nullptr, data, "p", TARN_POLICY_DIR_ALL, 0),
        tarn_policy_add(p_tarn, data, nullptr, TARN_POLICY_DIR_ALL, 0),
        tarn_policy_lookup(p_tarn, data, nullptr, nullptr),
        tarn_policy_delete(p_tarn, data, nullptr),
        tarn_policy_update_direction(p_tarn, nullptr, TARN_POLICY_DIR_ALL),
        tarn_vpn_list_add(p_tarn, nullptr),
        tarn_vpn_list_delete(p_tarn, nullptr),
        tarn_vpn_list_lookup(p_tarn, nullptr, &p_list),
        tarn_vpn_add(p_tarn, nullptr, 1, 1),
        tarn_vpn_delete(p_tarn, nullptr, 1, 1),
        tarn_vpn_bind_policy(nullptr, 1),
        tarn_vpn_list_add_to_policy(p_tarn, data, "p", nullptr, 1, nullptr),
        tarn_vpn_list_remove_from_policy(p_tarn, data, nullptr, "v"),
        tarn_vpn_list_lookup_in_policy(p_tarn, data, "p", nullptr, nullptr),
        tarn_policy_vpn_list_change(p_tarn, data, nullptr, "v", 1, nullptr),
    };
    for (size_t i = 0; i < std::size(statuses); i++)
        EXPECT_EQ(statuses[i], EBADMSG) << i;
    EXPECT_EQ(tarn_vpn_list_lookup(p_tarn, "none", &p_list), EEXIST) << "unlike every other look-up";
}

TEST(Store, ADefaultActionTakesTheIdOfAClassThatIsThere)
{
    TarnStore store;
    ASSERT_EQ(tarn_sla_class_add(&store.tarn, "gold"), 0);
    ASSERT_EQ(tarn_policy_add(&store.tarn, TARN_POLICY_TYPE_PFR, "p", TARN_POLICY_DIR_ALL, 0), 0);
    ASSERT_EQ(tarn_vpn_list_add(&store.tarn, "v"), 0);
    ASSERT_EQ(tarn_vpn_list_add_to_policy(&store.tarn, TARN_POLICY_TYPE_PFR, "p", "v", 0, "gold"), 0);
    t_tarn_policy_vpn_list *p_context;
    ASSERT_EQ(tarn_vpn_list_lookup_in_policy(&store.tarn, TARN_POLICY_TYPE_PFR, "p", "v", &p_context), 0);
    EXPECT_EQ(p_context->default_action->sla_class.id, 1);
}

TEST(Store, AFailedAllocationLeavesNothing)
{
    static const struct {
        const char *behaviour;
        int (*operate)(t_tarn *p_tarn);
        int callocs;  // that it makes before the one that fails
    } cases[] = {
        {"policy",
         [](t_tarn *p_tarn) {
             return tarn_policy_add(p_tarn, TARN_POLICY_TYPE_DATA, "q", TARN_POLICY_DIR_ALL, 0);
         },
         0},
        {"list", [](t_tarn *p_tarn) { return tarn_vpn_list_add(p_tarn, "w"); }, 0},
        {"range", [](t_tarn *p_tarn) { return tarn_vpn_add(p_tarn, "v", 1, 1); }, 0},
        {"context",
         [](t_tarn *p_tarn) {
             return tarn_vpn_list_add_to_policy(p_tarn, TARN_POLICY_TYPE_DATA, "p", "v", 1, nullptr);
         },
         0},
        {"default action",
         [](t_tarn *p_tarn) {
             return tarn_vpn_list_add_to_policy(p_tarn, TARN_POLICY_TYPE_DATA, "p", "v", 1, nullptr);
         },
         1},
    };
    TarnStore store;
    ASSERT_EQ(tarn_policy_add(&store.tarn, TARN_POLICY_TYPE_DATA, "p", TARN_POLICY_DIR_ALL, 0), 0);
    ASSERT_EQ(tarn_vpn_list_add(&store.tarn, "v"), 0);
    for (const auto &c : cases) {
        g_callocs_left = c.callocs;
        EXPECT_EQ(c.operate(&store.tarn), ENOMEM) << c.behaviour;
        g_callocs_left = -1;
        EXPECT_EQ(c.operate(&store.tarn), 0) << c.behaviour << ": nothing was in the way";
        if (c.callocs == 0 && strcmp(c.behaviour, "context") == 0) {
            EXPECT_EQ(tarn_vpn_list_remove_from_policy(&store.tarn, TARN_POLICY_TYPE_DATA, "p", "v"), 0);
        }
    }
}

// ---- Invariants ----

namespace {

class StoreDeathTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(tarn_policy_add(&store.tarn, TARN_POLICY_TYPE_DATA, "p", TARN_POLICY_DIR_ALL, 0), 0);
        ASSERT_EQ(tarn_vpn_list_add(&store.tarn, "v"), 0);
    }
    int add_context(const char *list)
    {
        return tarn_vpn_list_add_to_policy(&store.tarn, TARN_POLICY_TYPE_DATA, "p", list, 1, nullptr);
    }
    int remove_context()
    {
        return tarn_vpn_list_remove_from_policy(&store.tarn, TARN_POLICY_TYPE_DATA, "p", "v");
    }
    t_tarn_vpn_list *list()
    {
        t_tarn_vpn_list *p_list = nullptr;
        tarn_vpn_list_lookup(&store.tarn, "v", &p_list);
        return p_list;
    }

    TarnStore store;
};

}  // namespace

TEST_F(StoreDeathTest, AContextNeedsItsListAndNoEarlierReference)
{
    EXPECT_EXIT(add_context("missing"), testing::KilledBySignal(SIGSEGV), "");
    t_tarn_policy_ref ref = {};
    ref.key = policy(TARN_POLICY_TYPE_DATA, "p").key;
    ASSERT_EQ(avl_insert(&list()->policy_db, &ref), 0);
    EXPECT_EXIT(add_context("v"), testing::KilledBySignal(SIGSEGV), "");
    avl_remove(&list()->policy_db, &ref);
}

TEST_F(StoreDeathTest, AListInUseCannotGoAndAReferenceCannotBeMissing)
{
    ASSERT_EQ(add_context("v"), 0);
    EXPECT_EXIT(tarn_vpn_list_delete(&store.tarn, "v"), testing::KilledBySignal(SIGSEGV), "");
    void *p_ref = avl_first(&list()->policy_db);
    avl_remove(&list()->policy_db, p_ref);
    EXPECT_EXIT(remove_context(), testing::KilledBySignal(SIGSEGV), "");
    ASSERT_EQ(avl_insert(&list()->policy_db, p_ref), 0);
}

TEST_F(StoreDeathTest, AContextThatStillUsesAPrefixListCannotGo)
{
    ASSERT_EQ(add_context("v"), 0);
    t_tarn_policy_vpn_list *p_context;
    ASSERT_EQ(tarn_vpn_list_lookup_in_policy(&store.tarn, TARN_POLICY_TYPE_DATA, "p", "v", &p_context), 0);
    t_tarn_pfx_list_ref ref = named<t_tarn_pfx_list_ref>("prefixes");
    ref.key.pfx_list_type = TARN_POLICY_PFX_LIST_TYPE_KEELSON;
    ASSERT_EQ(avl_insert(&p_context->pfx_list_db, &ref), 0);
    EXPECT_EXIT(remove_context(), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(tarn_policy_delete(&store.tarn, TARN_POLICY_TYPE_DATA, "p"), testing::KilledBySignal(SIGSEGV),
                "");
    avl_remove(&p_context->pfx_list_db, &ref);
}
