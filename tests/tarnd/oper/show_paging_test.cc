// Lists of ten thousand rows, from the daemon's trees through the adapter and the management daemon to the
// operator, while the configuration changes between two rows.

#include "tests/lconfd/framework.h"
#include "tests/support/tarn_store.h"

#include "common/timer.h"
#include "fp_api/fp_scaling.h"
#include "fp_api/fp_tables.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_dp.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/oper/tarn_show.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <utility>

static constexpr int num_rows = 10'000;

// ---- Rows as they leave ----

// Called behind each row's reply, before the next request is served; it may change the configuration.
static std::function<void(const std::string &key)> g_after_row;

#define REPLY _Z44confd_data_reply_next_object_tag_value_arrayP15confd_trans_ctxPK17confd_tag_value_til
#define JOIN(prefix, name) prefix##name
#define CALL(prefix, name) JOIN(prefix, name)

extern "C" int CALL(__real_, REPLY)(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n, long next);
extern "C" int CALL(__wrap_, REPLY)(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n, long next)
{
    int result = CALL(__real_, REPLY)(tctx, tvs, n, next);
    if (tvs != nullptr && tvs[0].v.type == C_BUF && g_after_row)
        g_after_row({reinterpret_cast<const char *>(tvs[0].v.val.buf.ptr), tvs[0].v.val.buf.size});
    return result;
}

// ---- The router ----

static t_lconfd_sub_entry no_points[] = {{}};
static confd_valpoint_cb no_validation[] = {{}};
static confd_action_cbs no_actions[] = {{}};

namespace {

struct Router {
    Router();
    ~Router();

    // What an operator reads, as JSON, or "error: ...": the list of a callpoint, or one row of it.
    std::string read(std::string_view callpoint, const std::string &row = "");

    Framework framework;
    TarnStore store;
    event_base *p_base = event_base_new();
    t_timer_mgr *p_timers =
        timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    t_lconfd_context *ctx = nullptr;
};

}  // namespace

Router::Router()
{
    t_lconfd_module_data data = {.opaque_p = &store.tarn,
                                 .sub_point_arr = no_points,
                                 .val_point_arr = no_validation,
                                 .action_cmd_arr = no_actions,
                                 .data_register_cb = tarn_show_init,
                                 .evt_base_p = p_base,
                                 .timer_mgr_p = p_timers,
                                 .mod_id = LUM_MODULE_TARN};
    EXPECT_EQ(lconfd_module_init(&data, nullptr, &ctx), LCONFD_STATUS_OK);
}

Router::~Router()
{
    g_after_row = nullptr;
    lconfd_module_deinit(&ctx);
    timer_mgr_destroy(p_timers);
    event_base_free(p_base);
}

static std::string json_of(const t_mgmt_get_result &result)
{
    std::string text;
    if (result.error.code != MGMT_OK)
        return "error: " + mgmt_error_text(result.error);
    mgmt_tree_print(*result.tree, nullptr, 0, &text);
    return text;
}

std::string Router::read(std::string_view callpoint, const std::string &row)
{
    std::string path;
    for (const auto &node : mgmt_engine_schema(*framework.engine).nodes)
        if (node->callpoint == callpoint)
            path = node->path + row;
    std::promise<std::string> promise;
    std::future<std::string> future = promise.get_future();
    mgmt_engine_post(framework.engine.get(), [&] {
        t_mgmt_get_request request;
        t_mgmt_error error;
        EXPECT_TRUE(mgmt_path_read(mgmt_engine_schema(*framework.engine), nullptr, path,
                                   &request.paths.emplace_back(), &error));
        request.done = [&](const t_mgmt_get_result &got) { promise.set_value(json_of(got)); };
        mgmt_get(framework.engine.get(), framework.session, std::move(request));
    });
    auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        if (std::chrono::steady_clock::now() > deadline)
            abort();
        timeval pause = {.tv_sec = 0, .tv_usec = 1000};
        event_base_loopexit(p_base, &pause);
        event_base_loop(p_base, EVLOOP_NO_EXIT_ON_EMPTY);
    }
    return future.get();
}

// Names of one length stand in the order of their numbers.
static std::string name_of(int number)
{
    char name[16];
    snprintf(name, sizeof(name), "row%05d", number);
    return name;
}

static int rows_in(const std::string &json)
{
    int count = 0;
    for (size_t at = json.find("\"row"); at != std::string::npos; at = json.find("\"row", at + 1))
        count++;
    return count;
}

static bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// ---- Tests ----

TEST(ShowPaging, AccessListsGoOnWhereOneVanishes)
{
    OWN_SYSTEM_OR_SKIP();
    Router router;
    t_tarn *p_tarn = &router.store.tarn;
    for (int i = 0; i < num_rows; i++)
        EXPECT_EQ(tarn_access_list_add(p_tarn, name_of(i).c_str(), TARN_AF_TYPE_IPV6, 2), 0);
    std::string_view point = "access-list-names-v6";
    g_after_row = [&](const std::string &name) {
        if (name != name_of(5000))
            return;
        for (int i : {5000, 5001})  // the row that was given, and the one that would come
            EXPECT_EQ(tarn_access_list_delete(p_tarn, name_of(i).c_str(), TARN_AF_TYPE_IPV6), 0);
    };
    std::string json = router.read(point);
    EXPECT_EQ(rows_in(json), num_rows - 1);
    EXPECT_FALSE(has(json, "row05001"));
    EXPECT_TRUE(has(router.read(point, "{row07777}"), "row07777"));
    EXPECT_EQ(router.read(point, "{row05000}"), "{}");
}

TEST(ShowPaging, PoliciesEndWhereOneVanishes)
{
    OWN_SYSTEM_OR_SKIP();
    Router router;
    t_tarn *p_tarn = &router.store.tarn;
    for (int i = 0; i < num_rows; i++)
        EXPECT_EQ(tarn_policy_add(p_tarn, TARN_POLICY_TYPE_DATA, name_of(i).c_str(), TARN_POLICY_DIR_ALL, 0),
                  0);
    auto remove = [&](int i) {
        EXPECT_EQ(tarn_policy_delete(p_tarn, TARN_POLICY_TYPE_DATA, name_of(i).c_str()), 0);
    };
    std::string_view point = "data-policy-filters";
    g_after_row = [&](const std::string &name) {
        if (name == name_of(100))
            remove(101);  // the one that would come
        if (name == name_of(9000))
            remove(9000);
    };
    std::string json = router.read(point);
    EXPECT_EQ(rows_in(json), 9000);
    EXPECT_TRUE(has(json, "row09000") && !has(json, "row00101"));
}

TEST(ShowPaging, CountersEndWithTheirPolicyAndOtherKeysWork)
{
    OWN_SYSTEM_OR_SKIP();
    Router router;
    t_tarn *p_tarn = &router.store.tarn;
    for (const char *policy : {"p1", "p2"}) {
        EXPECT_EQ(tarn_policy_add(p_tarn, TARN_POLICY_TYPE_ZBF, policy, TARN_POLICY_DIR_ALL, 2), 0);
        for (uint32_t id : {1u, 2u, 3u}) {
            EXPECT_EQ(
                tarn_config_rule_add(p_tarn, TARN_POLICY_TYPE_ZBF, policy, TARN_ZBF_VPN_LIST, id, nullptr),
                0);
            EXPECT_EQ(tarn_config_action_add(p_tarn, TARN_POLICY_TYPE_ZBF, policy, TARN_ZBF_VPN_LIST, id,
                                             TARN_ACTION_TAG_COUNT, name_of(static_cast<int>(id)).c_str(),
                                             nullptr),
                      0);
        }
    }
    EXPECT_EQ(rows_in(router.read("zbfw-filter-statistics")), 6);
    bool is_gone = false;
    g_after_row = [&](const std::string &name) {
        if (name == name_of(2) && !std::exchange(is_gone, true)) {
            EXPECT_EQ(tarn_policy_delete(p_tarn, TARN_POLICY_TYPE_ZBF, "p1"), 0);
        }
    };
    std::string json = router.read("zbfw-filter-statistics");
    EXPECT_EQ(rows_in(json), 2) << json;
    EXPECT_FALSE(has(json, "packets")) << "nothing is loaded";

    // A row with two keys, one of them an enumeration.
    EXPECT_EQ(tarn_access_list_add(p_tarn, "l", TARN_AF_TYPE_IPV4, 2), 0);
    for (uint8_t direction : {uint8_t{1}, uint8_t{2}}) {
        t_tarn_acl_bind_param param = {7, "ge0/0", direction};
        EXPECT_EQ(tarn_access_list_bind(p_tarn, TARN_AF_TYPE_IPV4, "l", &param), 0);
    }
    json = router.read("access-policy-list-for-interface");
    EXPECT_TRUE(has(json, R"({"interface-name":"ge0/0","interface-direction":"in"},)"
                          R"({"interface-name":"ge0/0","interface-direction":"out"})"))
        << json;
    json = router.read("access-policy-list-for-interface", "{l}/interface-list{ge0/0 out}");
    EXPECT_TRUE(has(json, R"([{"interface-name":"ge0/0","interface-direction":"out"}])")) << json;

    t_tarn_filter filters[4] = {};
    filters[2] = {.record_valid = 1, .activity = 0, .unused = 0, .hw_index = 0, .num_hw_mem_blocks = 6};
    t_tarn_filter *p_real = std::exchange(g_fp_filter, filters);
    int num_real = std::exchange(g_fp_scaling.num_filters, 4);
    for (int i = 0; i < 2; i++) {
        json = router.read("filter-memory-usage");
        EXPECT_TRUE(has(json, R"("filters-in-use":1,"blocks-in-use":6,"filters-total":4)")) << json;
    }
    EXPECT_EQ(json.find("filters-in-use"), json.rfind("filters-in-use")) << json;
    g_fp_filter = p_real;
    g_fp_scaling.num_filters = num_real;
}
